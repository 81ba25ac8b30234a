// Derives the state of the connection from the window's messages: messages go in, a view comes out. Pure: the time
// is an argument, records are frozen, the document is not used.
// The window has no word for "connecting failed" or "retrying": both follow from the last job, its result's text
// and the log.

import {
  kConnectBusy, kDesktopBusy, kGrantedPrefix, kLatencyBusy, kNotResolvedPrefix, kReconnecting, kRefusedPrefix,
  kResolveBusy, kRetryArmed, kRetryBusy, kStopBusy, kUnknownError,
} from './texts.js';

/** The status line while a job runs, and the button that starts this job. */
const kJobs = new Map([
  [kConnectBusy, 'c-connect'], [kRetryBusy, 'c-connect'], [kStopBusy, 'c-stop'],
  [kLatencyBusy, 'c-test'], [kDesktopBusy, 'c-desktop'], [kResolveBusy, 'c-fetch'],
]);
const kRefused = kRefusedPrefix.trimEnd();
const kNotResolved = kNotResolvedPrefix.trimEnd();

const kConnectJobs = [kConnectBusy, kRetryBusy];
const kRetryGoneMs = 12_000;  // two further tries would have been seen by now
const kDayMs = 24 * 3600 * 1000;
const kTags = { online: '', error: '出错', reconnecting: '自动重连', retrying: '自动重试', failed: '未成功', idle: '' };
const kHeldPhases = ['online', 'reconnecting', 'retrying'];  // phases with a connection that can be ended

export const kJobButtons = Object.freeze([...new Set(kJobs.values())]);
export const kTones = Object.freeze(['ok', 'wn', 'er']);
/** What the program must say in these very words: whole texts, and how lines begin. */
export const kNativeTexts = Object.freeze({
  busy: Object.freeze([...kJobs.keys()]),
  whole: Object.freeze([kReconnecting, kRetryArmed, kUnknownError]),
  starts: Object.freeze([kRefused, kNotResolved, kGrantedPrefix]),
});

const textOrNone = (value) => (typeof value === 'string' ? value : '');
const hasLine = (text, start) => text.startsWith(start) || text.includes('\n' + start);
const isBusyText = (text) => kJobs.has(text);

/** Failures that the program's own classification, which looks for Chinese words, leaves plain or takes for a success. */
const readsLikeFailure = (text) => text === kUnknownError || hasLine(text, kRefused) || hasLine(text, kNotResolved);

/** The record before the first message. */
export function startOfConnection() {
  return Object.freeze({
    on: false, err: false, detail: '',  // the side panel
    status: '', tone: '',
    origin: '',     // the busy text of the job that ended with this status; empty if unknown
    awaited: '',    // the busy text of the job whose result is the next status
    triedMs: null,  // when automatic retrying was last seen; null if it is not active
  });
}

/** No message announces the end of retrying, so it counts as ended when no further try is seen. */
function isRetrying({ status, triedMs }, nowMs) {
  return triedMs !== null && (isBusyText(status) || nowMs - triedMs < kRetryGoneMs);
}

const withoutOldRetry = (seen, nowMs) =>
  (seen.triedMs === null || isRetrying(seen, nowMs) ? seen : { ...seen, triedMs: null });

/** A job's end counts as a try: the window tries again within seconds after it, but not while it runs. */
function seeStatus(seen, status, nowMs) {
  if (status === undefined || status === null || textOrNone(status) === seen.status) return seen;
  const text = textOrNone(status);
  const isTry = text === kRetryBusy || (seen.triedMs !== null && isBusyText(seen.status));
  const triedMs = hasLine(text, kGrantedPrefix) ? null : isTry ? nowMs : seen.triedMs;
  const next = { ...seen, status: text, tone: readsLikeFailure(text) ? 'er' : '', triedMs };
  return isBusyText(text) ? { ...next, origin: '', awaited: text } : { ...next, origin: seen.awaited, awaited: '' };
}

function seeState(seen, { side, statusline }, nowMs) {
  const { on, err, detail } = side || {};
  const shown = { on: on === true, err: err === true, detail: detail ?? seen.detail };
  return seeStatus({ ...seen, ...shown }, statusline, nowMs);
}

/** The status line comes without a class; the log line with the same text, right behind it, provides it. */
function seeLine(seen, { msg, cls }, nowMs) {
  const awaited = isBusyText(msg) ? msg : seen.awaited;
  const tone = msg === seen.status && kTones.includes(cls) && !readsLikeFailure(msg) ? cls : seen.tone;
  const triedMs = msg === kRetryArmed ? nowMs : seen.triedMs;
  const isNews = awaited !== seen.awaited || tone !== seen.tone || triedMs !== seen.triedMs;
  return isNews ? { ...seen, awaited, tone, triedMs } : seen;
}

function secondsOfDay(ts) {
  const [, hours, minutes, seconds] = /^(\d+):(\d+):(\d+)$/.exec(textOrNone(ts)) ?? [];
  return Number(hours) * 3600 + Number(minutes) * 60 + Number(seconds);
}

/** Milliseconds from one time of day to a later one; unreadable times count as long ago. */
function msBetween(earlier, later) {
  const ms = (secondsOfDay(later) - secondsOfDay(earlier)) * 1000;
  return Number.isNaN(ms) ? kDayMs : (ms + kDayMs) % kDayMs;
}

/** Lines carry the time of day only: their ages add up from the last one, as the first may be days old. */
function datedLines(lines, nowMs, timeOfDay) {
  let [later, atMs] = [timeOfDay, nowMs];
  const lastFirst = [...lines].reverse().map(([ts, msg, cls]) => {
    atMs -= msBetween(ts, later);
    later = ts;
    return { atMs, msg, cls };
  });
  return lastFirst.reverse();
}

/**
 * The lines that were status lines: busy texts, results of connecting, the line before the next job, and the last one that
 * equals the current status.
 */
function wereStatus(dated, status) {
  const shown = dated.findLastIndex(({ msg }) => msg === status);
  return dated.map(({ msg }, at) => at === shown || isBusyText(msg) || isBusyText(dated[at + 1]?.msg) ||
    hasLine(textOrNone(msg), kRefused) || hasLine(textOrNone(msg), kGrantedPrefix));
}

/** Replays the log of an earlier page as if its messages came again. */
function seeLines(seen, lines, nowMs, timeOfDay) {
  const dated = datedLines(Array.isArray(lines) ? lines.filter(Array.isArray) : [], nowMs, timeOfDay);
  const isStatus = wereStatus(dated, seen.status);
  let past = startOfConnection();
  dated.forEach((line, at) => {
    if (isStatus[at]) past = seeStatus(withoutOldRetry(past, line.atMs), line.msg, line.atMs);
    past = seeLine(past, line, line.atMs);
  });
  const { tone, origin, awaited } = past.status === seen.status ? past : seen;
  return { ...seen, tone, origin, awaited, triedMs: past.triedMs ?? seen.triedMs };
}

/**
 * Returns the record after `message`, or the same object if it says nothing new. `nowMs` never goes back; `timeOfDay`
 * is the clock in log lines (HH:MM:SS), which goes back when someone sets it.
 */
export function seeMessage(seen, message, nowMs, timeOfDay) {
  const current = withoutOldRetry(seen, nowMs);
  switch (message?.t) {
    case 'state': return Object.freeze(seeState(current, message, nowMs));
    case 'log': return Object.freeze(seeLine(current, message, nowMs));
    case 'logs': return Object.freeze(seeLines(current, message.lines, nowMs, timeOfDay));
    default: return seen;
  }
}

/** Only connecting can fail to connect. A result of an unknown job counts as connecting if its text says so. */
function hasFailed({ status, tone, origin }) {
  if (tone !== 'er' || hasLine(status, kGrantedPrefix)) return false;
  return origin === '' ? hasLine(status, kRefused) : kConnectJobs.includes(origin);
}

function phaseOf(seen, nowMs) {
  if (seen.on) return 'online';
  if (seen.err) return 'error';
  if (seen.detail === kReconnecting) return 'reconnecting';
  if (isRetrying(seen, nowMs)) return 'retrying';
  return hasFailed(seen) ? 'failed' : 'idle';
}

/** While retrying, the offered button must not flicker with each try. */
function waitingButtons(status) {
  const isSteady = (id) => id === 'c-stop' && status === kRetryBusy;
  return isBusyText(status) ? kJobButtons.filter((id) => id !== kJobs.get(status) && !isSteady(id)) : [];
}

/**
 * The page's view. `job`: the button of the running job, or null; `waiting`: the buttons that wait for its end; `tone`: of the
 * status line; `tag`: the word beside the state; `resting`: nothing contradicts the window's line for a connection that
 * has not begun; `offer`: which of the two buttons makes sense now.
 */
export function viewOf(seen, nowMs) {
  const phase = phaseOf(seen, nowMs);
  const job = kJobs.get(seen.status) ?? null;
  return Object.freeze({
    phase, job, tone: seen.tone,
    tag: job !== null && ['idle', 'online'].includes(phase) ? '处理中' : kTags[phase],
    waiting: Object.freeze(waitingButtons(seen.status)),
    resting: phase === 'idle' && job === null && seen.tone !== 'er',
    offer: kHeldPhases.includes(phase) ? 'stop' : 'connect',
  });
}

/** Milliseconds until the view changes without a message; null if it does not. */
export function nextChangeMs(seen, nowMs) {
  if (phaseOf(seen, nowMs) !== 'retrying' || isBusyText(seen.status)) return null;
  return seen.triedMs + kRetryGoneMs - nowMs;
}
