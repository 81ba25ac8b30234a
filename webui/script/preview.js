// In a plain browser: sample data for either role, and a bar to switch between them. Starts the page.
import { bridge, setAttribute } from './dom.js';
import { send } from './form.js';
import { guardPage } from './guards.js';
import { replaceLog } from './log.js';
import { ROLE, setRole, watchSizes } from './layout.js';
import { receive } from './messages.js';
import { wire } from './wiring.js';

const kSamples = {
  client: [
    { t: 'state', role: 'client', side: {
      logo: 'Velmarine.Client', sub: '工程师远程调试', on: true, err: false, state: '在线',
      detail: '访问网段 NAT模式IP 172.31.0.0/24 -> 现场真实 192.168.1.0/24\r\n直连网段 10.20.0.0/16', foot: '', cards: [
        { k: '设备', v: 'DEV-2041', cls: '' }, { k: '组网 IP', v: '10.88.0.2', cls: 'ok' },
        { k: '运行库', v: '软件隧道已就绪', cls: '' },
        { k: 'NAT访问IP', v: 'NAT模式IP 172.31.0.0/24 -> 现场真实 192.168.1.0/24\r\n直连网段 10.20.0.0/16', cls: '' },
        { k: 'PLC发现模式', v: '已关闭', cls: 'off' }] }, statusline: '通讯延迟 23 ms：172.31.0.10' },
    { t: 'apply', role: 'client', fields: {
      secret: 'DEMO-7F3A-90C2-11D4', testip: '172.31.0.10', profileName: '二号泵站', target: '自动',
      targets: ['自动', '192.168.1.0/24', '10.20.0.0/16'], discovery: false, profiles: ['二号泵站', '东区水厂'],
      profileSel: '二号泵站' } },
    { t: 'log', ts: '02:14:07', msg: '客户端启动中', cls: '' },
    { t: 'log', ts: '02:14:29', msg: '正在请求连接授权...', cls: '' },
    { t: 'log', ts: '02:14:31', msg: '连接授权成功：示例，分配地址 10.88.0.2，路由 192.168.1.0/24\r\n10.20.0.0/16', cls: 'ok' },
    { t: 'log', ts: '02:14:32', msg: 'UDP 通道已就绪：小数据包经 UDP 传输。', cls: 'ok' },
    { t: 'log', ts: '02:15:02', msg: '警告：中继连接中断，软件隧道正在自动重连。', cls: 'wn' },
    { t: 'log', ts: '02:15:04', msg: '软件隧道已重新在线。', cls: 'ok' },
    { t: 'log', ts: '02:15:20', msg: '通讯延迟测试失败：测试 IP 无效。', cls: 'er' },
  ],
  edge: [
    { t: 'state', role: 'edge', side: {
      logo: 'Velmarine.Edge', sub: '现场端', on: false, err: true, state: '离线', detail: '等待中心服务',
      foot: '示例数据', cards: [{ k: '设备', v: 'DEV-2041', cls: '' }] }, statusline: '就绪。' },
    { t: 'apply', role: 'edge', fields: { devname: '二号泵站', nics: ['以太网'], nicSel: '以太网',
      shared: ['192.168.1.0/24', '10.20.0.0/16'], manual: '' } },
    { t: 'log', ts: '02:14:07', msg: '现场端启动中', cls: '' },
  ],
};

function preview(role) {
  for (const button of document.querySelectorAll('[data-preview]')) {
    button.setAttribute('aria-pressed', String(button.dataset.preview === role));
  }
  replaceLog([]);
  kSamples[role].forEach(receive);
}

function start() {
  wire();
  setRole(ROLE);
  watchSizes();
  guardPage();
  if (bridge) {
    document.body.classList.add('embedded');
    bridge.addEventListener('message', (event) => receive(event.data));
    send('ready');
    return;
  }
  for (const button of document.querySelectorAll('[data-preview]')) {
    button.onclick = () => preview(button.dataset.preview);
  }
  preview(ROLE);
}

start();
