// What every script of the page stands on: the bridge to the window, elements by id, texts of foreign values.
export const bridge = window.chrome && window.chrome.webview ? window.chrome.webview : null;

export const byId = (id) => document.getElementById(id);
export const isPresent = (value) => value !== undefined && value !== null;
/** Objects are no texts: made into one they may throw, recurse without end, or say nothing to anybody. */
export const asText = (value) => (['string', 'number', 'boolean'].includes(typeof value) ? String(value) : '');
export const asList = (value) => (Array.isArray(value) ? value : []);
/** The words of a class attribute that can be names of classes. */
export const asClass = (value) => asText(value).split(/\s+/).filter((word) => /^[\w-]+$/.test(word)).join(' ');

export function escapeHtml(text) {
  const entities = { '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' };
  return asText(text).replace(/[&<>"]/g, (unit) => entities[unit]);
}

const kMaxShownUnits = 8000;  // of UTF-16: minutes of reading, and laid out within a frame
const kShownTailUnits = 2000;  // of these: a failure's last line says what it means

/** A long text without its middle, and how much that leaves out; `whole` says where all of it is. */
export function shownText(value, whole = '') {
  const text = asText(value);
  if (text.length <= kMaxShownUnits) return text;
  // Never half a character.
  const head = text.slice(0, kMaxShownUnits - kShownTailUnits).replace(/[\ud800-\udbff]$/, '');
  const tail = text.slice(-kShownTailUnits).replace(/^[\udc00-\udfff]/, '');
  return `${head}…（此处省略 ${text.length - head.length - tail.length} 字${whole}）…${tail}`;
}

/** For what the program writes to its log file too: log lines and status messages. */
export const shownLogText = (value) => shownText(value, '，全文见日志文件');

/** Leaves an element alone that shows the text already: a selection in it stays, nothing is announced again. */
export function setText(id, value) {
  const element = byId(id);
  if (!isPresent(value) || !element) return;
  const text = element.matches('.statusline') ? shownLogText(value) : shownText(value);
  if (element.textContent === text) return;
  element.textContent = text;
  // Results may begin with a line break, which would be an empty line.
  element.classList.toggle('lead', /^\r?\n/.test(text));
}

export function setAttribute(element, name, value) {
  if (!element) return;
  if (value === null) element.removeAttribute(name);
  else element.setAttribute(name, value);
}
