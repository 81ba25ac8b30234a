// The program under test, as a person at its window sees and uses it.
import { cp, mkdir, readdir, readFile } from 'node:fs/promises';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

import { kProgramFile } from './paths.mjs';

export const kTitle = 'Velmarine.Client 维马林';
const kPageReadyMs = 30_000;
/** One sent when the page loads, one when it is ready; each overwrites what was typed before. */
const kStartApplies = 2;
/** The possible last lines of the update check. */
const kUpdateChecked = /当前已是最新版本：|自动更新|发现新版本 |强制更新/;
const kUpdateCheckMs = 30_000;
const kGoneMs = 5_000;

/** Waits until `probe()` returns something truthy and returns it; fails with `what` after `timeoutMs`. */
export async function waitUntil(what, probe, timeoutMs = 15_000) {
  const end = performance.now() + timeoutMs;
  for (;;) {
    const value = await probe();
    if (value) return value;
    if (performance.now() > end) throw new Error(`Not seen in ${timeoutMs / 1000} s: ${what}`);
    await sleep(50);
  }
}

export class Program {
  constructor(lab) {
    this.lab = lab;
    this.folder = path.join(lab.workFolder, `run${Math.floor(performance.now())}`);
  }

  /** Resolves once the page is ready and the update check has finished, unless the options say otherwise. */
  async start({ env, file = kProgramFile, args = [], waitForPage = true, waitForUpdateCheck = true }) {
    const { lab } = this;
    await mkdir(this.folder, { recursive: true });
    const command = lab.prefix.command(lab.prefix.windowsPath(file), args);
    this.child = await lab.processes.start('program', command, {
      namespace: lab.network.engineer, env: { ...lab.windowsEnv, ...env }, cwd: this.folder,
      log: path.join(lab.artifacts, 'program-output.log'),
    });
    if (!waitForPage) return;
    await this.#takePage(await lab.bridge.waitForPage(kPageReadyMs).catch((error) => this.#failWithoutPage(error)));
    if (waitForUpdateCheck) await this.waitForLog(kUpdateChecked, kUpdateCheckMs);
  }

  async #failWithoutPage({ message }) {
    const { processes, display } = this.lab;
    const exit = await processes.waitForExit(this.child, 0);
    const titles = await display.windowTitles();
    throw new Error(`${message} The program: ${exit === 'running' ? exit : `exit code ${exit}`}; windows: ${titles.join(', ') || 'none'}.`);
  }

  async #takePage(page) {
    this.page = page;
    await this.page.waitFor('document.body.classList.contains("embedded")', kPageReadyMs);
    await this.waitForLog('客户端启动中');
    await waitUntil('the forms that a start fills in', async () => (await this.page.messages())
      .filter(({ direction, json }) => direction === 'toPage' && json.includes('"t":"apply"')).length >= kStartApplies);
  }

  /** Takes the newest page, ready or not; keeps the old one if there is none. */
  async takeNewestPage() {
    this.page = (await this.lab.bridge.pages()).at(-1) ?? this.page;
  }

  /** After the browser's end: takes the next browser's page, once it shows the program. */
  async takeNextPage() {
    const old = this.page.id;
    this.page = await waitUntil('the page of the next browser', async () =>
      (await this.lab.bridge.pages()).find(({ id }) => id !== old), kPageReadyMs);
    await this.page.waitFor('document.querySelector("#s-cards")?.childElementCount > 0', kPageReadyMs);
  }

  /** After an update: takes the page and the log of the new program. */
  async followUpdate() {
    const old = this.page.id;
    const page = await waitUntil('the page of the new program', async () =>
      (await this.lab.bridge.pages()).find(({ id }) => id !== old), kPageReadyMs);
    await this.#takePage(page);
    await this.waitForLog(kUpdateChecked, kUpdateCheckMs);
  }

  // ---- a person's actions

  async type(selector, text) { await this.page.type(selector, text); }
  async click(selector) { await this.page.click(selector); }
  async choose(selector, value) { await this.page.select(selector, value); }

  /** Screen coordinates of an element's centre. */
  async screenPoint(selector) {
    const area = await waitUntil('the window', () => this.lab.display.clientArea(kTitle));
    const rect = JSON.parse(await this.page.evaluate(`(() => {
      const r = document.querySelector(${JSON.stringify(selector)}).getBoundingClientRect();
      return JSON.stringify({ x: r.x + r.width / 2, y: r.y + r.height / 2 });
    })()`));
    return { x: area.x + rect.x, y: area.y + rect.y };
  }

  /** Clicks with the display's mouse. */
  async pointAndClick(selector) {
    const { x, y } = await this.screenPoint(selector);
    await this.lab.display.click(x, y);
  }

  /** Closes the window by its close button and returns the exit code. */
  async closeWindow(timeoutMs = 20_000) {
    await this.pointAndClick('#s-logo').catch(() => {});
    await this.lab.display.pressCloseButton();
    return this.lab.processes.waitForExit(this.child, timeoutMs);
  }

  // ---- the visible state

  async text(selector) { return this.page.text(selector); }
  async value(selector) { return this.page.evaluate(`document.querySelector('${selector}').value`); }
  /** The options of a list. */
  async options(selector) {
    return JSON.parse(await this.page.evaluate(
      `JSON.stringify([...document.querySelector('${selector}').options].map(({ text }) => text))`));
  }
  async state() { return this.text('#s-state'); }
  async detail() { return this.text('#s-detail'); }
  async statusLine() { return this.text('#c-statusline'); }

  async waitForText(selector, wanted, timeoutMs = 20_000) {
    let seen;
    await waitUntil(`${selector} showing ${wanted}`, async () => {
      seen = await this.text(selector);
      return wanted instanceof RegExp ? wanted.test(seen) : seen === wanted;
    }, timeoutMs).catch((error) => { throw new Error(`${error.message} (shows: ${seen})`); });
    return seen;
  }

  /** The value of the info card named `key`. */
  async card(key) {
    return this.page.evaluate(`[...document.querySelectorAll('#s-cards > *')]
      .find((card) => card.querySelector('.k').textContent === ${JSON.stringify(key)})
      ?.querySelector('.v').textContent ?? null`);
  }

  /** The lines of the page's live log: [{text, cls}]. */
  async pageLog() {
    return JSON.parse(await this.page.evaluate(`JSON.stringify([...document.querySelectorAll('#c-log > *')]
      .map((line) => ({ text: line.lastElementChild.textContent, cls: line.lastElementChild.className })))`));
  }

  // ---- the log file

  /** The newest log file. */
  async logFile() {
    const root = path.join(this.folder, 'Log');
    const names = await readdir(root, { recursive: true }).catch(() => []);
    const newest = names.filter((name) => name.endsWith('.log')).sort().at(-1);
    return newest ? path.join(root, newest) : null;
  }

  /** The log file's text without its byte order mark. */
  async log() {
    const file = await this.logFile();
    return file ? (await readFile(file, 'utf8')).replace(/^\uFEFF/, '') : '';
  }

  async waitForLog(wanted, timeoutMs = 20_000) {
    let seen = '';
    await waitUntil(`the log line ${wanted}`, async () => {
      seen = await this.log();
      return wanted instanceof RegExp ? wanted.test(seen) : seen.includes(wanted);
    }, timeoutMs).catch((error) => { throw new Error(`${error.message}\n${seen}`); });
    return seen;
  }

  async keepLog() {
    const file = await this.logFile();
    if (file) await cp(file, path.join(this.lab.artifacts, 'program.log'));
  }

  /** Ends the program at once, as the task manager does. */
  async kill() {
    const { processes, bridge } = this.lab;
    this.child.kill('SIGKILL');
    await processes.waitForExit(this.child, kGoneMs);
    await waitUntil('the page closed with its program', async () => (await bridge.pages()).length === 0);
  }

  /** Ends the program if it still runs. */
  async end() {
    if (this.child && !this.lab.processes.hasEnded(this.child)) await this.lab.prefix.stopServer();
  }
}
