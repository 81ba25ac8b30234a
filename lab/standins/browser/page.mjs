// One page: the DLL's requests, the events for the DLL, and the handle for tests.
import { writeFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

import { deliverJson, kCopied, kInjectedScript, kPosted } from './injected.mjs';
import { dispatchKey } from './keys.mjs';
import { Navigation } from './navigation.mjs';

/** The kinds of failed processes that the lab uses. */
export const FailedProcess = { browser: 0, renderer: 1, unresponsive: 2, gpu: 6 };

const kPollMs = 25;
const kActionMs = 5000;
const kKeptMessages = 10_000;

/**
 * `host` receives the page's events: message(source, json), navigated(id, success, status),
 * frame(number, jpeg), selection(text), processFailed(kind).
 */
export class Page {
  #browser;
  #host;
  #navigation;
  #record = [];
  #showing = false;
  #crashed = false;
  #lastInput = Promise.resolve();

  constructor(id, browser, host) {
    this.id = id;
    this.#browser = browser;
    this.#host = host;
    this.#navigation = new Navigation(browser, (...result) => host.navigated(...result));
  }

  get pid() { return this.#browser.pid; }

  async open({ width, height }) {
    const browser = this.#browser;
    browser.on('Runtime.bindingCalled', (call) => this.#onCalled(call));
    browser.on('Page.screencastFrame', ({ data, sessionId }) =>
      this.#host.frame(sessionId, Buffer.from(data, 'base64')));
    browser.on('Inspector.targetCrashed', () => {
      this.#crashed = true;
      this.#host.processFailed(FailedProcess.renderer);
    });
    browser.on('Page.javascriptDialogOpening', () =>
      browser.send('Page.handleJavaScriptDialog', { accept: true }).catch(() => {}));
    await Promise.all([
      browser.send('Page.enable'),
      browser.send('Runtime.enable'),
      browser.send('Inspector.enable'),
      browser.send('Page.setLifecycleEventsEnabled', { enabled: true }),
      ...[kPosted, kCopied].map((name) => browser.send('Runtime.addBinding', { name })),
      browser.send('Page.addScriptToEvaluateOnNewDocument', { source: kInjectedScript }),
      browser.send('Emulation.setFocusEmulationEnabled', { enabled: true }),
      this.resize(width, height),
    ]);
    await this.show(true);
  }

  async close() {
    await this.#browser.close();
  }

  // ---- requests of the DLL

  #onCalled({ name, payload }) {
    if (name === kCopied) this.#host.selection(payload);
    if (name !== kPosted) return;
    this.#keep('toHost', payload);
    this.#host.message(this.#navigation.source, payload);
  }

  #keep(direction, json) {
    this.#record.push({ direction, json });
    if (this.#record.length > kKeptMessages) this.#record.shift();
  }

  async loadText(id, html) { await this.#load(this.#navigation.toText(id, html)); }
  async loadUrl(id, url) { await this.#load(this.#navigation.toUrl(id, url)); }

  /** After a crash, the next document's process sends no pictures until it is asked to. */
  async #load(loading) {
    const again = this.#crashed && this.#showing;
    this.#crashed = false;
    await loading;
    if (!again) return;
    await this.show(false);
    await this.show(true);
  }

  /**
   * Delivers a JSON text to the page. Invalid JSON is dropped and recorded as 'notJson'. Between a crash and
   * the next document, messages are lost.
   */
  async post(json) {
    if (this.#crashed) return;
    const { result } = await this.#browser.send('Runtime.evaluate', { expression: deliverJson(json) });
    this.#keep(result.value === true ? 'toPage' : 'notJson', json);
  }

  async resize(width, height) {
    if (width === 0 || height === 0) return;
    await this.#browser.send('Emulation.setDeviceMetricsOverride',
      { width, height, deviceScaleFactor: 1, mobile: false });
  }

  /** Starts or stops sending pictures. */
  async show(visible) {
    if (visible === this.#showing) return;
    this.#showing = visible;
    if (!visible) await this.#browser.send('Page.stopScreencast');
    else {
      await this.#browser.send('Page.startScreencast',
        { format: 'jpeg', quality: 80, everyNthFrame: 1 });
    }
  }

  async frameDone(number) {
    await this.#browser.send('Page.screencastFrameAck', { sessionId: number });
  }

  async background(r, g, b, alpha) {
    await this.#browser.send('Emulation.setDefaultBackgroundColorOverride',
      { color: { r, g, b, a: alpha / 255 } });
  }

  async mouse(event) { await this.#input(this.#browser.send('Input.dispatchMouseEvent', event)); }
  async insertText(text) { await this.#input(this.#browser.send('Input.insertText', { text })); }
  async key(event) { await this.#input(dispatchKey(this.#browser, event)); }

  #input(sent) {
    this.#lastInput = sent.catch(() => {});
    return sent;
  }

  /**
   * Ctrl+C or Ctrl+X; the text arrives as if the page had copied it. Waits for pending input, which reaches the
   * page by another path.
   */
  async copy(cut) {
    await this.#lastInput;
    await this.evaluate(`document.execCommand('${cut ? 'cut' : 'copy'}')`);
  }

  // ---- requests of tests

  /** The value of a JavaScript expression (promises are awaited), as plain data. */
  async evaluate(expression) {
    const { result, exceptionDetails } = await this.#browser.send('Runtime.evaluate',
      { expression, returnByValue: true, awaitPromise: true, userGesture: true });
    if (exceptionDetails) {
      throw new Error(exceptionDetails.exception?.description ?? exceptionDetails.text);
    }
    return result.value;
  }

  /** Evaluates repeatedly until the value is truthy, and returns it; throws after `timeoutMs`. */
  async waitFor(expression, timeoutMs = kActionMs) {
    const end = performance.now() + timeoutMs;
    for (;;) {
      let seen;
      try {
        seen = await this.evaluate(expression);
        if (seen) return seen;
      } catch (error) {
        seen = error.message;  // between two documents an expression may fail
      }
      if (performance.now() > end) {
        throw new Error(`Not true in ${timeoutMs} ms: ${expression} (last: ${seen})`);
      }
      await sleep(kPollMs);
    }
  }

  /** The text of an element, hidden or not. */
  async text(selector) {
    return this.evaluate(`(${kFind})(${JSON.stringify(selector)}).textContent`);
  }

  /** A real mouse click in the centre of an element, which must not be covered there. */
  async click(selector) {
    const name = JSON.stringify(selector);
    await this.waitFor(`document.querySelector(${name}) !== null`, kActionMs);
    const { x, y, met } = await this.evaluate(`(${kAim})((${kFind})(${name}))`);
    if (met !== true) throw new Error(`${selector} cannot be clicked: ${met}.`);
    const at = { x, y, button: 'left', clickCount: 1 };
    await this.mouse({ ...at, type: 'mouseMoved', button: 'none', buttons: 0 });
    await this.mouse({ ...at, type: 'mousePressed', buttons: 1 });
    await this.mouse({ ...at, type: 'mouseReleased', buttons: 0 });
  }

  /** Replaces a field's text, like a person who selects all and types or pastes. */
  async type(selector, text) {
    await this.waitFor(`document.querySelector(${JSON.stringify(selector)}) !== null`, kActionMs);
    await this.evaluate(`(${kTakeAll})((${kFind})(${JSON.stringify(selector)}))`);
    if (text === '') await this.key({ kind: 'rawKeyDown', virtualKey: 0x2e, modifiers: 0 });
    else await this.insertText(text);
  }

  /** Chooses an option of a select element by its value, with the events that a person causes. */
  async select(selector, value) {
    const chosen = await this.evaluate(
      `(${kChoose})((${kFind})(${JSON.stringify(selector)}), ${JSON.stringify(value)})`);
    if (!chosen) throw new Error(`${selector} has no option ${value}.`);
  }

  /**
   * Makes the control report a failed process of that kind (FailedProcess). The browser and the page's own
   * process really end; for the other kinds, only the report is sent.
   */
  failProcess(kind) {
    if (kind === FailedProcess.browser) process.kill(this.pid, 'SIGKILL');
    // A crashed page does not answer.
    else if (kind === FailedProcess.renderer) this.#browser.send('Page.crash').catch(() => {});
    else this.#host.processFailed(kind);
  }

  /** All messages so far: [{direction: 'toHost' | 'toPage' | 'notJson', json}]. */
  messages() { return [...this.#record]; }

  async screenshot(path) {
    const { data } = await this.#browser.send('Page.captureScreenshot', { format: 'png' });
    await writeFile(path, Buffer.from(data, 'base64'));
  }
}

const kFind = `(selector) => {
  const found = document.querySelector(selector);
  if (!found) throw new Error('There is no element ' + selector);
  return found;
}`;

const kAim = `(element) => {
  element.scrollIntoView({ block: 'nearest', inline: 'nearest', behavior: 'instant' });
  const r = element.getBoundingClientRect();
  const x = r.x + r.width / 2;
  const y = r.y + r.height / 2;
  if (r.width === 0 || r.height === 0) return { x, y, met: 'it has no size' };
  const top = document.elementFromPoint(x, y);
  const met = top === element || element.contains(top) || !!top?.closest('label')?.contains(element);
  return { x, y, met: met || 'covered by ' + (top ? top.tagName + '#' + top.id : 'nothing') };
}`;

const kTakeAll = `(field) => {
  field.focus();
  if (document.activeElement !== field) throw new Error('The field does not take the focus.');
  if (field.select) field.select();
  else getSelection().selectAllChildren(field);
}`;

const kChoose = `(element, value) => {
  if (![...element.options].some((option) => option.value === value)) return false;
  element.focus();
  element.value = value;
  element.dispatchEvent(new Event('input', { bubbles: true }));
  element.dispatchEvent(new Event('change', { bubbles: true }));
  return true;
}`;
