// Told from their texts alone. Shown by data-phase and data-job of the body, which the style sheet knows.
import { asText, byId, isPresent, setAttribute, setText } from './dom.js';

const kJobs = {  // the status line while a job runs, and the button that started it
  '正在请求连接授权...': 'c-connect', '正在自动重试连接授权...': 'c-connect', '正在停止软件隧道...': 'c-stop',
  '正在测试通讯延迟...': 'c-test', '正在请求远程桌面...': 'c-desktop', '正在获取现场端网段...': 'c-fetch',
};
const kReconnecting = '软件隧道正在自动重连';
const kRetryArmed = '授权未恢复，将每 5 秒自动重试连接。';
export const kRetrying = '正在自动重试连接授权...';
const kRetryGoneMs = 12000;  // two tries would have been seen by now
const kTags = { online: '', error: '出错', reconnecting: '自动重连', retrying: '自动重试', failed: '未成功', idle: '' };

const seen = { on: false, err: false, detail: '', status: '', tone: '', retrying: false };
let retryGone = 0;

const jobOf = (status) => (Object.hasOwn(kJobs, status) ? kJobs[status] : null);

function currentPhase() {
  if (seen.on) return 'online';
  if (seen.err) return 'error';
  if (seen.detail === kReconnecting) return 'reconnecting';
  if (seen.retrying) return 'retrying';
  return seen.tone === 'er' ? 'failed' : 'idle';
}

/** Nothing tells that retrying has ended in vain, so it counts as ended when no further try is seen. */
export function watchRetry(heard) {
  clearTimeout(retryGone);
  seen.retrying = (heard || seen.retrying) && !seen.on && seen.detail !== kReconnecting;
  if (!seen.retrying || jobOf(seen.status)) return;
  retryGone = setTimeout(() => { seen.retrying = false; showPhase(); }, kRetryGoneMs);
}

/** A refusal's text has no colour of its own, but must not look like a success. */
export function noteStatus(status) {
  if (!isPresent(status) || status === seen.status) return;
  seen.status = asText(status);
  seen.tone = /^(Connection authorization|Resolve) failed:/m.test(seen.status) ? 'er' : '';
}

export function noteSide(side) {
  seen.on = side.on === true;
  seen.err = side.err === true;
  if (isPresent(side.detail)) seen.detail = asText(side.detail);
}

/** The status line comes without a colour; the log line with the same text, right behind it, brings it. */
export function noteLog(msg, cls) {
  const isStatus = msg === seen.status && isPresent(cls) && cls !== '';
  if (isStatus) seen.tone = asText(cls);
  if (msg === kRetryArmed) watchRetry(true);
  if (isStatus || msg === kRetryArmed) showPhase();
}

function ageMs(ts) {
  const [hours, minutes, seconds] = asText(ts).split(':').map(Number);
  const now = new Date();
  const past = (now.getHours() - hours) * 3600 + (now.getMinutes() - minutes) * 60 + now.getSeconds() - seconds;
  return (past < 0 ? past + 24 * 3600 : past) * 1000;
}

/** The log of a page before this one: the colour of the status line, and a retry that may still be going on. */
export function noteLines(lines) {
  const [, , cls] = [...lines].reverse().find(([, msg, tone]) => tone && msg === seen.status) ?? [];
  if (cls) seen.tone = asText(cls);
  if (lines.some(([ts, msg]) => [kRetryArmed, kRetrying].includes(msg) && ageMs(ts) < kRetryGoneMs)) watchRetry(true);
  showPhase();
}

export function showPhase() {
  const phase = currentPhase();
  const job = jobOf(seen.status);
  document.body.dataset.phase = phase;
  document.body.toggleAttribute('data-job', job !== null);
  setText('s-tag', job && ['idle', 'online'].includes(phase) ? '处理中' : kTags[phase]);
  for (const id of new Set(Object.values(kJobs))) {
    // A look only: every click goes to the window, which drops what it cannot take now.
    setAttribute(byId(id), 'aria-busy', id === job ? 'true' : null);
    setAttribute(byId(id), 'data-waiting', job && id !== job ? '' : null);
  }
  for (const bar of document.querySelectorAll('.statusbar')) bar.className = 'statusbar ' + seen.tone;
}
