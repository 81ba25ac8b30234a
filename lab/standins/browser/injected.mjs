// Runs inside the page: the bridge object that the browser gives to its pages.

/** Names of the page-to-host bindings; the script below removes them before the page can see them. */
export const kPosted = '__labPostToHost';
export const kCopied = '__labCopied';

const kDeliver = 'Symbol.for("lab.browser.deliver")';

/** The text that the browser's own copy or cut would take; never a password. */
const kTaken = `(type) => {
  const field = document.activeElement;
  if (field && 'selectionStart' in field && field.selectionStart !== null) {
    if (field.type === 'password' || (type === 'cut' && (field.readOnly || field.disabled))) return '';
    return field.value.substring(field.selectionStart, field.selectionEnd);
  }
  return type === 'cut' && !field?.isContentEditable ? '' : String(getSelection());
}`;

/** Runs before any script of the page, in every document. */
export const kInjectedScript = `(() => {
  if (window !== window.top) return;
  const post = window.${kPosted};
  const copied = window.${kCopied};
  delete window.${kPosted};
  delete window.${kCopied};
  const target = new EventTarget();
  const webview = {
    postMessage(value) {
      if (arguments.length === 0) throw new TypeError('1 argument required, but only 0 present.');
      post(JSON.stringify(value) ?? 'null');
    },
    addEventListener: target.addEventListener.bind(target),
    removeEventListener: target.removeEventListener.bind(target),
  };
  Object.defineProperty(webview, ${kDeliver}, { value: (data) => {
    const event = new MessageEvent('message', { data });
    Object.defineProperty(event, 'source', { value: webview });
    target.dispatchEvent(event);
  } });
  window.chrome = Object.assign(window.chrome ?? {}, { webview });

  // A blinking caret would cost two pictures a second while a field has the focus.
  const steady = new CSSStyleSheet();
  steady.replaceSync('* { caret-animation: manual; }');
  document.adoptedStyleSheets.push(steady);

  const taken = ${kTaken};
  const reportCopied = (event) => {
    const text = event.defaultPrevented ? event.clipboardData.getData('text/plain') : taken(event.type);
    if (text !== '') copied(text);
  };
  // Added anew each time, so that it runs after all of the page's own listeners.
  for (const type of ['copy', 'cut']) {
    addEventListener(type, (event) => {
      if (event.isTrusted) addEventListener(type, reportCopied, { once: true });
    }, true);
  }
})()`;

/** An expression that delivers a JSON text as the parsed value; it is false for invalid JSON. */
export function deliverJson(json) {
  return `(() => {
    let data;
    try { data = JSON.parse(${JSON.stringify(json)}); } catch { return false; }
    window.chrome?.webview?.[${kDeliver}]?.(data);
    return true;
  })()`;
}
