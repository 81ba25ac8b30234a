// What every script of the page stands on: the bridge to the window, elements by id, texts of foreign values.
export const bridge = window.chrome && window.chrome.webview ? window.chrome.webview : null;

export const byId = (id) => document.getElementById(id);
export const isPresent = (value) => value !== undefined && value !== null;
export const asText = (value) => String(value ?? '');
export const asList = (value) => (Array.isArray(value) ? value : []);

export function escapeHtml(text) {
  const entities = { '&': '&amp;', '<': '&lt;', '>': '&gt;', '"': '&quot;' };
  return asText(text).replace(/[&<>"]/g, (unit) => entities[unit]);
}

/** Leaves an element alone that shows the text already: a selection in it stays, nothing is announced again. */
export function setText(id, value) {
  const element = byId(id);
  if (!isPresent(value) || !element || element.textContent === asText(value)) return;
  element.textContent = value;
  // Results may begin with a line break, which would be an empty line.
  element.classList.toggle('lead', /^\r?\n/.test(value));
}

export function setAttribute(element, name, value) {
  if (!element) return;
  if (value === null) element.removeAttribute(name);
  else element.setAttribute(name, value);
}
