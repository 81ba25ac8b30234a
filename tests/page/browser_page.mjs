// The page in a real Chromium, with a bridge stub in the place of the window's.
import { createRequire } from 'node:module';
import { after, before, test } from 'node:test';

import { kPage } from './joined_page.mjs';

const require = createRequire(new URL('../../lab/package.json', import.meta.url));
const { chromium } = require('playwright-core');

// Answered by interception, so a page can be altered before its scripts run; nothing is looked up.
const kPageAddress = 'http://page.test/app.html';
const kActionMs = 5_000;
const kTestMs = 20_000;
const kStartMs = 40_000;

let browser;

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

/** One Chromium for the test file that calls this. */
export function useBrowser() {
  before(openBrowser, { timeout: kStartMs });
  after(closeBrowser, { timeout: kActionMs });
}

/** Runs inside the page before its scripts: keeps what is posted and hands out what is delivered. */
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

/** The page as a test handles it. */
export class BrowserPage {
  static async open({ embedded = true, alter = (html) => html, width = 1220, height = 820,
    scale = 1, reducedMotion = 'no-preference', forcedColors = 'none' } = {}) {
    const self = new BrowserPage();
    self.view = await browser.newPage({ viewport: { width, height }, deviceScaleFactor: scale, reducedMotion, forcedColors });
    self.view.setDefaultTimeout(kActionMs);
    self.errors = [];
    self.requests = [];
    self.console = [];
    self.view.on('pageerror', (error) => self.errors.push(error.message));
    self.view.on('console', (line) => self.console.push(line.text()));
    const html = alter(kPage);
    await self.view.route('**/*', (route) => {
      const address = route.request().url();
      self.requests.push(address);
      if (address !== kPageAddress) return route.abort();
      return route.fulfill({ contentType: 'text/html; charset=utf-8', body: html });
    });
    if (embedded) await self.view.addInitScript(installBridge);
    await self.view.goto(kPageAddress);
    return self;
  }

  close() { return this.view.close(); }

  /** A message from the window: an object as WebView2 gives it, or a JSON text. */
  deliver(data) { return this.view.evaluate((value) => window.deliver(value), data); }

  /** Several messages, one task. */
  deliverAll(messages) { return this.view.evaluate((all) => all.forEach((data) => window.deliver(data)), messages); }

  /** The actions posted since the last call, as texts. */
  takePosted() { return this.#take(false); }

  /** What was posted since the last call for a page that stands in for this one: the fields. */
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
    } finally {
      await page.close();
    }
  });
}
