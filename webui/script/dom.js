// Shared by all scripts of the page: the bridge to the window, elements by id, texts of foreign values.
export const bridge = window.chrome && window.chrome.webview ? window.chrome.webview : null;

export const byId = (id) => document.getElementById(id);
export const isPresent = (value) => value !== undefined && value !== null;
/** Returns a text for objects too: converting one may throw, recurse without end or give something unreadable. */
export const asText = (value) => (['string', 'number', 'boolean'].includes(typeof value) ? String(value) : '');
export const asList = (value) => (Array.isArray(value) ? value : []);
/** Returns the words of a class attribute that are valid class names. */
export const asClass = (value) => asText(value).split(/\s+/).filter((word) => /^[\w-]+$/.test(word)).join(' ');

export function escapeHtml(text) {
  const entities = { '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' };
  return asText(text).replace(/[&<>"]/g, (unit) => entities[unit]);
}

const kMaxShownUnits = 8000;  // in UTF-16: minutes of reading, laid out within a frame
const kShownTailUnits = 2000;  // the last ones of these: a failure's last line explains it

/** Shortens a long text in its middle and says by how much; `whole` names the place with all of it. */
export function shownText(value, whole = '') {
  const text = asText(value);
  if (text.length <= kMaxShownUnits) return text;
  // Never cut inside a surrogate pair.
  const head = text.slice(0, kMaxShownUnits - kShownTailUnits).replace(/[\ud800-\udbff]$/, '');
  const tail = text.slice(-kShownTailUnits).replace(/^[\udc00-\udfff]/, '');
  return `${head}…（此处省略 ${text.length - head.length - tail.length} 字${whole}）…${tail}`;
}

/** Shortens a text that the program also writes to its log file: a log line or a status. */
export const shownLogText = (value) => shownText(value, '，全文见日志文件');

/** Sets an element's text only if it differs: a selection in it survives, and nothing is announced twice. */
export function setText(id, value) {
  const element = byId(id);
  if (!isPresent(value) || !element) return;
  const text = element.matches('.statusline') ? shownLogText(value) : shownText(value);
  if (element.textContent === text) return;
  element.textContent = text;
  // Results may begin with a line break, which would show as an empty line.
  element.classList.toggle('lead', /^\r?\n/.test(text));
}

export function setAttribute(element, name, value) {
  if (!element) return;
  if (value === null) element.removeAttribute(name);
  else element.setAttribute(name, value);
}
