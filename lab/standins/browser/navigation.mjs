// Loads documents and reports the outcome of each once: its load event or an error.

const kTextUrl = 'data:text/html;charset=utf-8;base64,';

/** Web error statuses of the control, for the error names of Chromium that can occur in the lab. */
const kStatuses = [
  [/NAME_NOT_RESOLVED/, 13], [/CONNECTION_REFUSED|ADDRESS_UNREACHABLE/, 12], [/TIMED_OUT/, 7],
  [/CONNECTION_RESET/, 10], [/CONNECTION_ABORTED/, 9], [/INTERNET_DISCONNECTED/, 11],
  [/ABORTED/, 14], [/EMPTY_RESPONSE|INVALID_RESPONSE/, 8],
];
const kUnknown = 0;

export class Navigation {
  #browser;
  #report;
  #pending = null;        // {id, loader}: the navigation in progress
  #loaded = new Set();    // loaders whose load event preceded the answer to Page.navigate

  /** The source of the page's messages. */
  source = 'about:blank';

  /** report(id, success, status) is called once per navigation, in order. */
  constructor(browser, report) {
    this.#browser = browser;
    this.#report = report;
    browser.on('Page.lifecycleEvent', ({ name, loaderId }) => {
      if (name === 'load') this.#onLoad(loaderId);
    });
    browser.on('Page.frameNavigated', ({ frame }) => {
      if (!frame.parentId) this.source = frame.url.startsWith(kTextUrl) ? 'about:blank' : frame.url;
    });
  }

  /** Shows an HTML text, with about:blank as its address. */
  async toText(id, html) {
    await this.toUrl(id, kTextUrl + Buffer.from(html, 'utf8').toString('base64'));
  }

  async toUrl(id, url) {
    if (this.#pending) this.#finish(false, 14);  // aborted by the new one
    this.#pending = { id, loader: null };
    this.#loaded.clear();
    let result;
    try {
      result = await this.#browser.send('Page.navigate', { url });
    } catch (error) {
      result = { errorText: error.message };
    }
    if (this.#pending?.id !== id) return;
    if (result.errorText) {
      const status = kStatuses.find(([pattern]) => pattern.test(result.errorText))?.[1] ?? kUnknown;
      this.#finish(false, status);
      return;
    }
    this.#pending.loader = result.loaderId;
    if (this.#loaded.has(result.loaderId)) this.#finish(true, kUnknown);
  }

  #onLoad(loader) {
    if (!this.#pending) return;
    if (this.#pending.loader === loader) this.#finish(true, kUnknown);
    else this.#loaded.add(loader);
  }

  #finish(success, status) {
    const { id } = this.#pending;
    this.#pending = null;
    this.#report(id, success, status);
  }
}
