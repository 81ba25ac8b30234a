// Lines are in the lists at once, in order and never more than kMaxLogLines: a window that is hidden has no frames,
// and must neither lose lines nor hoard them. Only scrolling, which lays the list out, happens at most once a frame.
import { asList, asText, byId, setAttribute } from './dom.js';
import { notePhase } from './phase_view.js';

const kMaxLogLines = 500;
const kSpokenLinesPerFrame = 4;  // more than anyone can follow are shown but not read out
export const kLogs = ['c-log', 'full-log'].map(byId);
const frame = { isOpen: false, lines: 0, scroll: false };
const scrolledUp = new Set();  // of kLogs
const heights = new Map();  // of kLogs, as last scrolled to the end or left alone

const kLineTemplate = document.createElement('div');
kLineTemplate.innerHTML = '<span class="ts"></span><span></span>';

function logLine(ts, msg, cls) {
  const line = kLineTemplate.cloneNode(true);
  const [time, text] = line.children;
  time.textContent = asText(ts);
  text.textContent = asText(msg);
  if (cls) text.className = asText(cls);
  if (/^\r?\n/.test(msg)) line.className = 'lead';
  return line;
}

/** For new lines; they are shown wherever the engineer has scrolled to. */
function scrollLogsToEnd() {
  scrolledUp.clear();
  keepLogsAtEnd();
}

/** For changes of size and tab: a list that the engineer has scrolled up stays where it is. */
export function keepLogsAtEnd() {
  for (const list of kLogs) {
    if (!scrolledUp.has(list)) list.scrollTop = list.scrollHeight;
    heights.set(list, list.clientHeight);
  }
}

/** A list of another height has moved its end, not been scrolled; the observer of sizes sees to it after this event. */
export function noteScroll({ target: list }) {
  if (list.clientHeight !== heights.get(list)) return;
  if (list.scrollTop + list.clientHeight < list.scrollHeight - 1) scrolledUp.add(list);
  else scrolledUp.delete(list);
}

function setSpoken(isSpoken) {
  const live = isSpoken ? 'polite' : 'off';
  if (kLogs[0].getAttribute('aria-live') === live) return;
  for (const list of kLogs) list.setAttribute('aria-live', live);
}

function closeFrame() {
  if (frame.scroll) scrollLogsToEnd();
  Object.assign(frame, { isOpen: false, lines: 0, scroll: false });
}

/** The first change in a frame is scrolled to right away, the rest of them together at its end. */
function keepAtEnd(lines) {
  frame.lines += lines;
  setSpoken(frame.lines <= kSpokenLinesPerFrame);
  if (frame.isOpen) {
    frame.scroll = true;
    return;
  }
  frame.isOpen = true;
  scrollLogsToEnd();
  requestAnimationFrame(closeFrame);
}

export function appendLog(ts, msg, cls) {
  for (const list of kLogs) {
    list.append(logLine(ts, msg, cls));
    if (list.childElementCount > kMaxLogLines) list.firstElementChild.remove();
  }
  keepAtEnd(1);
  notePhase({ t: 'log', ts, msg, cls });
}

export function replaceLog(lines) {
  const kept = asList(lines).filter(Array.isArray).slice(-kMaxLogLines);
  setSpoken(false);
  for (const list of kLogs) list.replaceChildren(...kept.map(([ts, msg, cls]) => logLine(ts, msg, cls)));
  keepAtEnd(kept.length);
  notePhase({ t: 'logs', lines: kept });
}
