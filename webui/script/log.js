// Lines enter the lists at once, in order and never more than kMaxLogLines: a hidden window draws no frames, and must
// neither lose lines nor pile them up. Only scrolling, which forces a layout, happens at most once per frame.
import { asClass, asText, byId, shownLogText, shownText } from './dom.js';
import { notePhase } from './phase_view.js';

const kMaxLogLines = 500;
const kSpokenLinesPerFrame = 4;  // more than anyone can follow: shown but not read out
const kMostLines = 10;  // of a message in the live log: more than a connection to a few networks needs
const kRepeatWithin = 4;  // lines; a failing retry adds the same two or three every 5 s, perhaps all night
export const kLogs = ['c-log', 'full-log'].map(byId);
const frame = { isOpen: false, lines: 0, scroll: false };
const scrolledUp = new Set();  // of kLogs
const heights = new Map();  // by kLogs entry, when last scrolled to the end or left alone
let latest = [];  // full texts of the last kRepeatWithin lines

const kLineTemplate = document.createElement('div');
kLineTemplate.innerHTML = '<span class="ts"></span> <span></span>';

/** Results may begin with a line break: the text keeps it, but it is neither shown nor copied. */
function showMessage(line, msg) {
  const text = shownLogText(msg);
  const [lead] = /^[\r\n]*/.exec(text);
  line.lastElementChild.append(text.slice(lead.length));
  if (lead === '') return;
  line.className = 'lead';
  line.lastElementChild.insertAdjacentHTML('afterbegin', '<i></i>');
  line.querySelector('i').textContent = lead;
}

/** A long list of networks would push everything else out of the live log; a failure's advice is in its last lines. */
function markLong(line, msg, cls) {
  const count = msg.trim().split('\n').length;
  if (count <= kMostLines || cls === 'er') return;
  line.classList.add('long');
  line.dataset.lines = `共 ${count} 行`;
}

export function toggleLong({ target }) {
  if (getSelection().isCollapsed) target.closest('.long')?.classList.toggle('open');
}

function logLine([ts, msg, cls]) {
  const line = kLineTemplate.cloneNode(true);
  line.firstElementChild.textContent = shownText(ts);
  showMessage(line, msg);
  if (cls) line.lastElementChild.className = cls;
  markLong(line, msg, cls);
  return line;
}

const asLine = ([ts, msg, cls]) => [asText(ts), asText(msg), asClass(cls)];

/** Shows new lines, wherever the engineer scrolled to. */
function scrollLogsToEnd() {
  scrolledUp.clear();
  keepLogsAtEnd();
}

/** After a change of size or tab: a list that the engineer scrolled up keeps its place. */
export function keepLogsAtEnd() {
  for (const list of kLogs) {
    if (!scrolledUp.has(list)) list.scrollTop = list.scrollHeight;
    heights.set(list, list.clientHeight);
  }
}

/** A changed height moves a list's end without scrolling; the resize observer handles that after this event. */
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

/** Scrolls to the first change in a frame at once, to the others together at the frame's end. */
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

/** Whether a recent line had the same text; a screen reader would otherwise repeat it every few seconds, endlessly. */
function isRepeated(msg) {
  const isRepeat = latest.includes(msg);
  latest = [...latest, msg].slice(-kRepeatWithin);
  return isRepeat;
}

export function appendLog(ts, msg, cls) {
  const line = asLine([ts, msg, cls]);
  const isRepeat = isRepeated(line[1]);
  for (const list of kLogs) {
    const shown = logLine(line);
    if (isRepeat) shown.setAttribute('aria-live', 'off');
    list.append(shown);
    if (list.childElementCount > kMaxLogLines) list.firstElementChild.remove();
  }
  keepAtEnd(1);
  notePhase({ t: 'log', ts: line[0], msg: line[1], cls: line[2] });
}

/** Ignores a message without a list of lines: the lines shown stay. */
export function replaceLog(lines) {
  if (!Array.isArray(lines)) return;
  const kept = lines.filter(Array.isArray).slice(-kMaxLogLines).map(asLine);
  latest = kept.slice(-kRepeatWithin).map(([, msg]) => msg);
  setSpoken(false);
  for (const list of kLogs) list.replaceChildren(...kept.map(logLine));
  keepAtEnd(kept.length);
  notePhase({ t: 'logs', lines: kept });
}
