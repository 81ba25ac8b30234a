// A model of the window for tests of the page's messages: its jobs, their results, its retry timer,
// its tunnel and its log, driven by a seeded random sequence. Time runs in whole seconds, as the log's does.
import { cards, kResting } from './page_states.mjs';

export const kConnecting = '正在请求连接授权...';
export const kRetrying = '正在自动重试连接授权...';
export const kArmed = '授权未恢复，将每 5 秒自动重试连接。';
export const kGranted = '连接授权成功：';
const kStopping = '正在停止软件隧道...';
/** Busy texts, and the button that starts each job. */
export const kJobs = [
  [kConnecting, 'c-connect'], [kRetrying, 'c-connect'], [kStopping, 'c-stop'],
  ['正在测试通讯延迟...', 'c-test'], ['正在请求远程桌面...', 'c-desktop'], ['正在获取现场端网段...', 'c-fetch'],
];
const kByHand = kJobs.map(([text]) => text).filter((text) => text !== kRetrying);
const kRetrySeconds = 5;

/** The class that the program assigns to a line. */
function classOf(text) {
  const holds = (...words) => words.some((word) => text.includes(word));
  if (text.startsWith('Error') || holds('失败', '错误', '异常', '未接受')) return 'er';
  if (holds('警告', '忽略', '重试', '待')) return 'wn';
  return holds('成功', '已连接', '就绪', '在线', '已生效', '已获取', '已保存', '已复制', '已刷新') ? 'ok' : '';
}

function timeOfDay(seconds) {
  const parts = [seconds / 3600 % 24, seconds / 60 % 60, seconds % 60];
  return parts.map((part) => String(Math.floor(part)).padStart(2, '0')).join(':');
}

const kReasons = ['设备离线', '设备不在线', '请等待', '流量已用完'];
const kNotices = ['UDP 通道已就绪：小数据包经 UDP 传输。', '警告：系统代理已被另一程序改写。', '局域网发现模式已开启：支持 PLC 广播扫描。'];
const kErrors = ['Error: WinHttpReceiveResponse: 无法与服务器建立连接', 'Unknown error.'];
const kOtherResults = {
  '正在测试通讯延迟...': ['通讯延迟 23 ms：10.0.0.1', '通讯延迟测试超时：10.0.0.1', '通讯延迟测试失败：测试 IP 无效。'],
  '正在请求远程桌面...': ['远程桌面已打开：1，访问密码已复制。', '远程桌面失败：设备离线', '未找到 RustDesk 程序。'],
  '正在获取现场端网段...': ['已获取现场端 DEV-2041 的共享网段。', 'Resolve failed: 密钥无效'],
};

/** The window, as far as the page can observe it. */
export class WindowModel {
  /** `random` decides, `seconds` is the time of day at the start. */
  constructor(random, seconds) {
    this.random = random;
    this.startSeconds = seconds;
    this.second = 0;
    this.tunnel = 'off';
    this.status = '就绪。';
    this.job = null;              // { text, endsAt }
    this.hasGrant = false;        // a connection is held
    this.isRefusedForNow = false;  // the service's last reply asked to try again
    this.armedAt = null;
    this.hasFailedToConnect = false;  // according to the result in the status line
    this.quietSince = 0;          // no job ran or ended and no retry was armed since then
    this.lines = [];
    this.sent = [];
  }

  get clock() { return timeOfDay(this.startSeconds + this.second); }

  stateMessage() {
    const on = this.tunnel === 'up';
    const detail = on ? '访问网段 10.0.0.0/24' : this.tunnel === 'down' ? '软件隧道正在自动重连' : kResting;
    return { t: 'state', role: 'client', statusline: this.status,
      side: { on, err: false, state: on ? '在线' : '未连接', detail, foot: '', cards: cards() } };
  }

  /** The messages for a page that replaces another. */
  welcome() {
    return [this.stateMessage(), this.stateMessage(), { t: 'logs', lines: this.lines.slice(-500) }];
  }

  log(msg) {
    this.lines.push([this.clock, msg, classOf(msg)]);
    this.sent.push({ t: 'log', ts: this.clock, msg, cls: classOf(msg) });
  }

  show(status) {
    this.status = status;
    this.sent.push(this.stateMessage());
    this.log(status);
  }

  startJob(text) {
    this.hasFailedToConnect = false;
    this.job = { text, endsAt: this.second + 1 + Math.floor(this.random.share() ** 3 * 40) };
    this.show(text);
  }

  finishJob() {
    const { text } = this.job;
    this.job = null;
    const isConnecting = text === kConnecting || text === kRetrying;
    const result = isConnecting ? this.connectResult() : text === kStopping ? this.stopResult()
      : this.random.choice([...kOtherResults[text], ...kErrors]);
    this.hasFailedToConnect = isConnecting && !this.hasGrant;
    this.sent.push(this.stateMessage());  // the outcome is visible before its text
    this.show(result);
    this.decideRetry();
  }

  connectResult() {
    const report = this.hasGrant ? this.random.choice(['\r\n远程调试会话已断开。', '\r\n会话断开上报失败：超时']) : '';
    this.hasGrant = false;
    const chance = this.random.share();
    if (chance < 0.2) return this.random.choice(kErrors);
    if (chance < 0.7) {
      this.isRefusedForNow = this.random.share() < 0.7;
      return `${report}\r\nConnection authorization failed: ${this.random.choice(kReasons)}`;
    }
    this.isRefusedForNow = false;
    if (chance < 0.8) {
      this.tunnel = 'off';
      return 'Error: 旧的驱动服务正在删除，仍被另一程序占用。';
    }
    Object.assign(this, { tunnel: 'up', hasGrant: true });
    return `${report}\r\n${kGranted}9f3c，分配地址 10.88.0.2，路由 10.0.0.0/24\r\n工程师端软件隧道已启动：9f3c`;
  }

  stopResult() {
    const stopped = this.tunnel === 'off' ? '软件隧道运行中。' : '软件隧道已停止。';
    const report = this.hasGrant ? this.random.choice(['\r\n远程调试会话已断开。', '\r\n会话断开上报失败：超时']) : '';
    Object.assign(this, { tunnel: 'off', hasGrant: false });
    return this.random.share() < 0.2 ? kErrors[0] : stopped + report;
  }

  decideRetry() {
    if (this.hasGrant || !this.isRefusedForNow) this.armedAt = null;
    else if (this.armedAt === null) {
      this.armedAt = this.second;
      this.log(kArmed);
    }
  }

  flipLink() {
    this.tunnel = this.tunnel === 'up' ? 'down' : 'up';
    this.sent.push(this.stateMessage());
    this.log(this.tunnel === 'up' ? '软件隧道已重新在线。' : '警告：中继连接中断，软件隧道正在自动重连。');
  }

  /** Advances one second. Returns what the window sends in it. */
  pass() {
    this.sent = [];
    this.second += 1;
    const isTry = this.armedAt !== null && (this.second - this.armedAt) % kRetrySeconds === 0;
    if (this.job && this.job.endsAt <= this.second) this.finishJob();
    else if (!this.job && isTry) this.startJob(kRetrying);
    else if (!this.job && this.random.share() < 0.1) this.startJob(this.random.choice(kByHand));
    else if (this.tunnel !== 'off' && this.random.share() < 0.1) this.flipLink();
    else if ((this.job || this.tunnel !== 'off') && this.random.share() < 0.1) this.log(this.random.choice(kNotices));
    if (this.job || this.armedAt !== null || this.sent.some(({ t }) => t === 'state')) this.quietSince = this.second;
    return this.sent;
  }
}
