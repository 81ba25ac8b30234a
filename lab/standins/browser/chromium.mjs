// One headless Chromium with its own profile, controlled over a pipe (DevTools protocol: JSON messages
// terminated by NUL, requests on descriptor 3, answers and events on 4).
import { spawn } from 'node:child_process';
import { EventEmitter, once } from 'node:events';
import { mkdtemp, readdir, readFile, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

import { kLabSuffix } from '../../harness/paths.mjs';

export const kChromium = '/usr/lib/chromium/chromium';
export const kProfilePrefix = `lab${kLabSuffix}-browser-`;

const kCloseGraceMs = 2000;
const kPageMs = 20_000;

const kFlags = [
  '--headless=new', '--no-sandbox', '--disable-gpu', '--remote-debugging-pipe', '--lang=zh-CN',
  '--no-first-run', '--no-default-browser-check', '--disable-background-networking',
  '--disable-component-update', '--disable-default-apps', '--disable-sync', '--disable-extensions',
  '--disable-domain-reliability', '--disable-breakpad', '--disable-crash-reporter',
  // No spare renderer: one that is killed together with the page's may still get the next document, which then dies
  // as well.
  '--disable-features=Translate,MediaRouter,OptimizationHints,SpareRendererForSitePerProcess', '--metrics-recording-only',
  '--disable-dev-shm-usage', '--disable-background-timer-throttling',
  '--disable-renderer-backgrounding', '--disable-backgrounding-occluded-windows',
  '--password-store=basic', '--use-mock-keychain', '--force-color-profile=srgb',
  '--allow-file-access-from-files',
  // A spinning ring costs sixty pictures a second, which the lab's few processors cannot spare.
  '--force-prefers-reduced-motion',
  // No name look-ups: only loopback and file addresses can be reached.
  '--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE localhost, EXCLUDE 127.0.0.1',
];

/**
 * Events: every DevTools event of the page under its method name, with the parameters;
 * 'exit' when the browser has ended, by itself or not.
 */
export class Chromium extends EventEmitter {
  #child;
  #waiting = new Map();
  #lastId = 0;
  #kept = '';
  #session;
  #ended = false;

  get pid() { return this.#child.pid; }

  /** Starts the browser and attaches to its one page. */
  static async launch({ program = kChromium, width, height }) {
    const browser = new Chromium();
    browser.profile = await mkdtemp(path.join(tmpdir(), kProfilePrefix));
    try {
      browser.#spawn(program, width, height);
      await browser.#attach();
    } catch (error) {
      await browser.close();
      throw error;
    }
    return browser;
  }

  #spawn(program, width, height) {
    const args = [...kFlags, `--user-data-dir=${this.profile}`, `--window-size=${width},${height}`,
      'about:blank'];
    // Its own process group, so that its helper processes can be ended with it.
    this.#child = spawn(program, args, {
      detached: true, stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe'],
      env: { ...process.env, LC_ALL: 'zh_CN.UTF-8', HOME: this.profile,
        XDG_CONFIG_HOME: this.profile, XDG_CACHE_HOME: this.profile, TMPDIR: this.profile },
    });
    this.exited = new Promise((resolve) => {
      this.#child.once('exit', resolve);
      this.#child.once('error', resolve);
    }).then((reason) => this.#onEnd(reason));
    const [, , , requests, answers] = this.#child.stdio;
    requests.on('error', () => {});  // the browser has ended; 'exit' reports it
    answers.setEncoding('utf8');
    answers.on('data', (text) => this.#onData(text));
    answers.on('error', () => {});
  }

  #onEnd(reason) {
    this.#ended = true;
    const why = reason instanceof Error ? reason.message : 'The browser has ended.';
    for (const { reject } of this.#waiting.values()) reject(new Error(why));
    this.#waiting.clear();
    this.emit('exit');
  }

  #onData(text) {
    const pieces = (this.#kept + text).split('\0');
    this.#kept = pieces.pop();
    for (const piece of pieces) this.#onMessage(JSON.parse(piece));
  }

  #onMessage(message) {
    if (message.id === undefined) {
      this.emit(message.method, message.params);
      return;
    }
    const waiting = this.#waiting.get(message.id);
    this.#waiting.delete(message.id);
    if (message.error) waiting?.reject(new Error(`${waiting.method}: ${message.error.message}`));
    else waiting?.resolve(message.result);
  }

  async #attach() {
    const end = performance.now() + kPageMs;
    for (;;) {
      const { targetInfos } = await this.#request('Target.getTargets', {}, undefined);
      const page = targetInfos.find((target) => target.type === 'page');
      if (page) {
        const { sessionId } = await this.#request('Target.attachToTarget',
          { targetId: page.targetId, flatten: true }, undefined);
        this.#session = sessionId;
        return;
      }
      if (performance.now() > end) throw new Error('The browser showed no page.');
      await sleep(20);
    }
  }

  /** Calls a DevTools method of the page. Requests take effect in the order they are sent. */
  send(method, params = {}) {
    return this.#request(method, params, this.#session);
  }

  #request(method, params, sessionId) {
    if (this.#ended) return Promise.reject(new Error('The browser has ended.'));
    this.#lastId += 1;
    const id = this.#lastId;
    return new Promise((resolve, reject) => {
      this.#waiting.set(id, { resolve, reject, method });
      this.#child.stdio[3].write(`${JSON.stringify({ id, method, params, sessionId })}\0`);
    });
  }

  /** Ends the browser with all its processes and removes its profile. */
  async close() {
    if (this.#child && !this.#ended) {
      this.#request('Browser.close', {}, undefined).catch(() => {});
      await Promise.race([this.exited, sleep(kCloseGraceMs, undefined, { ref: false })]);
    }
    this.#killGroup();
    if (this.#child) await this.exited;
    await rm(this.profile, { recursive: true, force: true, maxRetries: 20, retryDelay: 50 });
  }

  #killGroup() {
    if (!this.#child?.pid) return;
    try {
      process.kill(-this.#child.pid, 'SIGKILL');
    } catch (error) {
      if (error.code !== 'ESRCH') throw error;
    }
  }
}

/** Ids of the renderer processes of the browser `pid`, which leads their process group. */
export async function rendererProcesses(pid) {
  const found = [];
  for (const name of await readdir('/proc')) {
    if (!/^\d+$/.test(name)) continue;
    const [stat, line] = await Promise.all(['stat', 'cmdline'].map((file) =>
      readFile(`/proc/${name}/${file}`, 'utf8').catch(() => '')));
    // The program's name, in parentheses, may contain blanks; state, parent and group follow it.
    const group = Number(stat.slice(stat.lastIndexOf(')') + 2).split(' ')[2]);
    if (group === pid && line.includes('--type=renderer')) found.push(Number(name));
  }
  return found;
}
