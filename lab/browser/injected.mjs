// What runs inside the page: the bridge object that the browser gives to pages it hosts.

/** Name of the page-to-host binding; the script below takes it away before the page can see it. */
export const kBinding = '__labPostToHost';

const kDeliver = 'Symbol.for("lab.browser.deliver")';

/** Runs before any script of the page, in every document. */
export const kInjectedScript = `(() => {
  if (window !== window.top) return;
  const post = window.${kBinding};
  delete window.${kBinding};
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
})()`;

/** Delivers a JSON text as the parsed value; the expression gives false when it is not JSON. */
export function deliverJson(json) {
  return `(() => {
    let data;
    try { data = JSON.parse(${JSON.stringify(json)}); } catch { return false; }
    window.chrome?.webview?.[${kDeliver}]?.(data);
    return true;
  })()`;
}

/** The text that is selected, in a field or in the page; passwords are not given away. */
export const kSelectedText = `(() => {
  const field = document.activeElement;
  if (field && 'selectionStart' in field && field.selectionStart !== null) {
    return field.type === 'password' ? ''
      : field.value.substring(field.selectionStart, field.selectionEnd);
  }
  return String(getSelection());
})()`;
