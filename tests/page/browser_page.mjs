// The page in a real Chromium, with a stub instead of the bridge to the window.
import { createHash } from 'node:crypto';
import { createRequire } from 'node:module';
import { after, before, test } from 'node:test';

import { kPage } from './joined_page.mjs';

const require = createRequire(new URL('../../lab/package.json', import.meta.url));
const { chromium } = require('playwright-core');

// Answered by interception, so a page can be altered before its scripts run; nothing is looked up.
const kPageAddress = 'http://page.test/app.html';
const kActionMs = 5_000;
const kTestMs = 60_000;  // for a test that hangs
const kStartMs = 40_000;

let browser;
const tabs = { isShared: false, idle: new Map() };  // a new tab costs five times as much as a page in an old one

export async function openBrowser() {
  browser = await chromium.launch({
    executablePath: '/usr/bin/chromium',
    args: ['--headless=new', '--no-sandbox', '--disable-gpu', '--disable-background-networking',
      '--disable-component-update', '--lang=zh-CN'],
    env: { ...process.env, LC_ALL: 'zh_CN.UTF-8' },
    timeout: kStartMs - 5_000,
  });
}

export const closeBrowser = () => browser?.close();

/** One Chromium for the test file that calls this. Its tests have one tab after the other, unless they change the tab itself. */
export function useBrowser({ isTabShared = true } = {}) {
  before(async () => {
    tabs.isShared = isTabShared;
    await openBrowser();
  }, { timeout: kStartMs });
  after(closeBrowser, { timeout: kActionMs });
}

/** Runs inside the page before its scripts: records posted messages and delivers those from the window. */
export function installBridge() {
  const listeners = [];
  window.posted = [];
  window.chrome ??= {};
  window.chrome.webview = {
    postMessage: (value) => window.posted.push(value),
    addEventListener: (type, listener) => { if (type === 'message') listeners.push(listener); },
  };
  window.deliver = (data) => listeners.forEach((listener) => listener({ data }));
}

/** What a tab keeps for its whole life. */
const kTabOptions = { embedded: true, scale: 1, reducedMotion: 'no-preference', forcedColors: 'none' };

/** A tab whose events and requests go to the page it currently shows, `tab.page`. */
async function openTab({ embedded, scale, reducedMotion, forcedColors }, viewport) {
  const view = await browser.newPage({ viewport, deviceScaleFactor: scale, reducedMotion, forcedColors });
  const tab = { view, page: null };
  view.setDefaultTimeout(kActionMs);
  view.on('pageerror', (error) => tab.page.errors.push(error.message));
  view.on('console', (line) => tab.page.console.push(line.text()));
  await view.route('**/*', (route) => {
    const address = route.request().url();
    tab.page.requests.push(address);
    if (address !== kPageAddress) return route.abort();
    return route.fulfill({ contentType: 'text/html; charset=utf-8', body: tab.page.html });
  });
  if (embedded) await view.addInitScript(installBridge);
  return tab;
}

/** A tab that another test has finished with, if any. */
async function takeTab(options, viewport) {
  const key = JSON.stringify(options);
  const tab = tabs.idle.get(key);
  tabs.idle.delete(key);
  if (!tab) return Object.assign(await openTab(options, viewport), { key });
  await tab.view.mouse.move(0, 0);
  await tab.view.setViewportSize(viewport);
  return tab;
}

/** The page, for tests. */
/** The page altered by a test, with a policy that admits the alteration, as the build would write it. */
function readmitted(html) {
  return ['script', 'style'].reduce((page, tag) => {
    const [, text] = page.match(new RegExp(`<${tag}>(.*)</${tag}>`, 's'));
    const hash = createHash('sha256').update(text).digest('base64');
    return page.replace(new RegExp(`${tag}-src 'sha256-[^']*'`), `${tag}-src 'sha256-${hash}'`);
  }, html);
}

export class BrowserPage {
  errors = [];
  requests = [];
  console = [];

  static async open({ alter = (html) => html, width = 1220, height = 820, ...options } = {}) {
    const self = new BrowserPage();
    self.html = readmitted(alter(kPage));
    self.tab = await takeTab({ ...kTabOptions, ...options }, { width, height });
    self.tab.page = self;
    self.view = self.tab.view;
    await self.view.goto(kPageAddress);
    return self;
  }

  close() { return this.view.close(); }

  /** Leaves the tab to the next page. */
  async leave() {
    if (!tabs.isShared) return this.close();
    await tabs.idle.get(this.tab.key)?.view.close();
    tabs.idle.set(this.tab.key, this.tab);
  }

  /** Delivers a message from the window: an object as WebView2 passes it, or a JSON text. */
  deliver(data) { return this.view.evaluate((value) => window.deliver(value), data); }

  /** Delivers several messages in one task. */
  deliverAll(messages) { return this.view.evaluate((all) => all.forEach((data) => window.deliver(data)), messages); }

  /** The actions posted since the last call, as texts. */
  takePosted() { return this.#take(false); }

  /** The fields posted since the last call for a page that may replace this one. */
  async takeTyped() { return (await this.#take(true)).map((text) => JSON.parse(text).f); }

  #take(isTyped) {
    return this.view.evaluate((wanted) => {
      const isWanted = (text) => text.startsWith('{"action":"typed"') === wanted;
      const taken = window.posted.filter(isWanted);
      window.posted = window.posted.filter((text) => !isWanted(text));
      return taken;
    }, isTyped);
  }

  click(id) { return this.view.click(`#${id}`); }
  fill(id, text) { return this.view.fill(`#${id}`, text); }
  value(id) { return this.view.inputValue(`#${id}`); }
  text(id) { return this.view.locator(`#${id}`).evaluate((element) => element.textContent); }
  className(id) { return this.view.locator(`#${id}`).evaluate((element) => element.className); }
  isVisible(id) { return this.view.isVisible(`#${id}`); }

  options(id) {
    return this.view.locator(`#${id} option`).evaluateAll((all) =>
      all.map((option) => ({ value: option.value, text: option.textContent })));
  }

  cards() {
    return this.view.locator('#s-cards > *').evaluateAll((all) => all.map((card) => ({
      k: card.querySelector('.k').textContent,
      v: card.querySelector('.v').textContent,
      cls: card.querySelector('.v').className,
    })));
  }

  /** The lines of a log list as [time, text, class]. */
  log(id = 'c-log') {
    return this.view.locator(`#${id} > *`).evaluateAll((all) => all.map((line) =>
      [line.querySelector('.ts').textContent, line.lastElementChild.textContent,
        line.lastElementChild.className]));
  }

  style(selector, property, pseudo) {
    return this.view.locator(selector).first().evaluate((element, [name, part]) =>
      getComputedStyle(element, part).getPropertyValue(name), [property, pseudo]);
  }
}

/** A test with a fresh page of its own; an error inside the page fails it. */
export function pageTest(name, options, body) {
  const run = body ?? options;
  test(name, { timeout: kTestMs }, async () => {
    const page = await BrowserPage.open(body ? options : {});
    try {
      await run(page);
      if (page.errors.length > 0) throw new Error(`The page raised: ${page.errors.join('; ')}`);
    } catch (error) {
      await page.close();
      throw error;
    }
    await page.leave();
  });
}

/** A test of a page whose clock moves only when the test moves it; for files whose tests share no tab. */
export function clockTest(name, run) {
  pageTest(name, async (page) => {
    await page.view.clock.install();
    await page.view.reload();
    await page.view.clock.pauseAt(Date.now() + 1_000);
    await run(page, (ms) => page.view.clock.runFor(ms));
  });
}
