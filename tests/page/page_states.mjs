// The window's messages in each state of the program, for tests and pictures.

export const kNat = 'NAT模式IP 172.31.0.0/24 -> 现场真实 10.10.0.0/24\r\n直连网段 192.168.77.0/24';
export const kResting = '粘贴现场端密钥即可连接';
export const kReconnecting = '软件隧道正在自动重连';
export const kRetryArmed = '授权未恢复，将每 5 秒自动重试连接。';
export const kRefused = '\r\nConnection authorization failed: 设备离线';
export const kUnreachable = 'Error: WinHttpReceiveResponse: 无法与服务器建立连接';
const kConnected = '\r\n连接授权成功：9f3c-22d1，分配地址 10.88.0.2，路由 192.168.77.0/24\r\n10.10.0.0/24\r\n' +
  `工程师端软件隧道已启动：9f3c-22d1\r\n${kNat}\r\n局域网发现模式已关闭：只转发已知 IP 网段。`;

const card = (k, v, cls = '') => ({ k, v, cls });

export function cards({ device = 'DEV-2041', address = '', access = '', discovery = false } = {}) {
  return [
    device ? card('设备', device) : card('设备', '等待密钥', 'off'),
    address ? card('组网 IP', address, 'ok') : card('组网 IP', '未连接', 'off'),
    card('运行库', '软件隧道已就绪'),
    access ? card('NAT访问IP', access) : card('NAT访问IP', '未连接', 'off'),
    discovery ? card('PLC发现模式', 'PLC发现模式已开启', 'ok') : card('PLC发现模式', '已关闭', 'off'),
  ];
}

export const log = (ts, msg, cls = '') => ({ t: 'log', ts, msg, cls });

/** A state message; `tunnel` is 'off', 'up' or 'down' (running without its link). */
export function state(tunnel, statusline, given = {}) {
  const on = tunnel === 'up';
  const shown = tunnel === 'off' ? {} : { address: '10.88.0.2', access: kNat };
  const detail = on ? `访问网段 ${given.access ?? kNat}` : tunnel === 'down' ? kReconnecting : kResting;
  return { t: 'state', role: 'client', side: {
    logo: 'Velmarine.Client', sub: '工程师远程调试', on, err: false, state: on ? '在线' : '未连接', detail, foot: '',
    cards: cards({ ...shown, ...given }) }, statusline };
}

export const apply = (fields = {}) => ({ t: 'apply', role: 'client', fields: {
  secret: 'KEY-7F3A-90C2-11D4', testip: '192.168.77.10', profileName: '二号泵站',
  targets: ['自动', '192.168.77.0/24', '10.10.0.0/24'], target: '自动', discovery: false,
  profiles: ['二号泵站', '城东水厂', '污水处理厂'], profileSel: '二号泵站', ...fields } });

const kFirstStart = [
  apply({ secret: '', testip: '', profileName: '', targets: ['自动'], profiles: [], profileSel: '' }),
  state('off', '就绪。', { device: '' }), log('02:14:07', '客户端启动中'),
];
const kConnecting = [state('off', '正在请求连接授权...'), log('02:14:29', '正在请求连接授权...')];
const kResolved = [
  apply(), state('off', '就绪。'), log('02:14:07', '客户端启动中'), log('02:14:20', '正在获取现场端网段...'),
  log('02:14:21', '已获取现场端 DEV-2041 的共享网段。', 'ok'),
];
const kOnline = [
  ...kResolved, log('02:14:29', '正在请求连接授权...'), state('up', kConnected), log('02:14:31', kConnected, 'ok'),
  log('02:14:32', 'UDP 通道已就绪：小数据包经 UDP 传输。', 'ok'),
];

/** By name: the messages, oldest first. */
export const kStates = {
  first: kFirstStart,
  resolved: [...kResolved, state('off', '已获取现场端 DEV-2041 的共享网段。')],
  working: [...kResolved, ...kConnecting],
  online: kOnline,
  testing: [...kOnline, state('up', '正在测试通讯延迟...'), log('02:14:40', '正在测试通讯延迟...')],
  reconnecting: [...kOnline, state('down', kConnected), log('02:15:32', '警告：中继连接中断，软件隧道正在自动重连。', 'wn')],
  retrying: [...kResolved, ...kConnecting, state('off', kRefused), log('02:14:31', kRefused),
    log('02:14:31', kRetryArmed, 'wn')],
  failed: [...kResolved, ...kConnecting, state('off', kUnreachable), log('02:14:31', kUnreachable, 'er')],
  error: [...kResolved, { t: 'state', role: 'client', side: { err: true, state: '离线', detail: '等待中心服务' } }],
};

const kLongName = '东区水厂二号泵站变频控制柜'.repeat(5).slice(0, 60);
export const kMappings = Array.from({ length: 5 }, (_, i) =>
  `NAT模式IP 172.31.${i}.0/24 -> 现场真实 192.168.${100 + i}.0/24`).join('\r\n');

/** The longest contents that any field may have to hold. */
export const kLongValues = [
  state('up', `${'0123456789abcdef'.repeat(25)}\r\n${'连接授权成功'.repeat(20)}`,
    { device: kLongName, access: kMappings, discovery: true }),
  apply({ secret: 'KEY-7F3A-'.repeat(8), testip: '192.168.177.210', profileName: kLongName, profileSel: `${kLongName}1`,
    targets: ['自动', ...Array.from({ length: 200 }, (_, i) => `10.${i}.0.0/16`)],
    profiles: Array.from({ length: 40 }, (_, i) => kLongName + i), discovery: true }),
  ...Array.from({ length: 12 }, (_, i) => log('01:02:03', (i % 2 ? 'x' : '连接字').repeat(400).slice(0, 400), ['er', 'wn', 'ok', ''][i % 4])),
];
