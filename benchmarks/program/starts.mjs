// Measures how long the program takes to start, connect and disconnect, compared with a bare window and a bare browser.
import path from 'node:path';

import { Chromium } from '../../lab/standins/browser/chromium.mjs';
import { kDeviceSecret } from '../../lab/harness/lab.mjs';
import { kBuild } from '../../lab/harness/paths.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';

const kBareWindow = path.join(kBuild, 'windows/benchmarks/bare_window.exe');
const kPageFile = path.join(kBuild, 'windows/src/shell/Velmarine.Client/app.html');
const kSize = { width: 1200, height: 850 };
const kReadyMs = 30_000;

/** Detects when the window manager lists a new window, in the same way for every program. */
export class WindowWatch {
  #lab;
  #child;

  constructor(lab) { this.#lab = lab; }

  async start() {
    this.#child = await this.#lab.processes.start('xprop', ['xprop', '-root', '-spy', '_NET_CLIENT_LIST'],
      { env: { DISPLAY: this.#lab.display.name }, ready: /_NET_CLIENT_LIST/ });
  }

  /** Calls `begin()`, which starts a program, and returns the milliseconds until one more window is listed. */
  async untilShown(begin) {
    let count = this.#count();
    const began = performance.now();
    const shown = new Promise((resolve) => {
      const look = () => {
        const now = this.#count();
        if (now > count) {
          this.#child.stdout.off('data', look);
          resolve(performance.now() - began);
        }
        count = now;
      };
      this.#child.stdout.on('data', look);
    });
    await begin();
    return shown;
  }

  #count() {
    const lines = this.#lab.processes.outputOf(this.#child).split('\n').filter((line) => line.startsWith('_NET_CLIENT_LIST('));
    return lines.length === 0 ? 0 : [...lines.at(-1).matchAll(/0x[0-9a-f]+/g)].length;
  }
}

/** Starts a bare window and returns its child process. */
export async function startBareWindow(lab) {
  return lab.processes.start('bare window', lab.prefix.command(lab.prefix.windowsPath(kBareWindow)),
    { namespace: lab.network.engineer, env: lab.windowsEnv });
}

/** Milliseconds from the start of a browser until it has parsed the program's page, without the program. */
export async function timeBareBrowser() {
  const began = performance.now();
  const browser = await Chromium.launch(kSize);
  const parsed = new Promise((resolve) => { browser.once('Page.domContentEventFired', resolve); });
  await browser.send('Page.enable');
  await browser.send('Page.navigate', { url: `file://${kPageFile}` });
  await parsed;
  const took = performance.now() - began;
  await browser.close();
  return took;
}

/** Starts the program in `file`. Returns the milliseconds to its window and to its page's first message. */
export async function timeStart(lab, watch, file) {
  const began = performance.now();
  const windowMs = await watch.untilShown(() => lab.startProgram({ file, waitForPage: false }));
  const page = await lab.bridge.waitForPage(kReadyMs);
  await waitUntil('the page ready', async () => (await page.messages())
    .some(({ direction, json }) => direction === 'toHost' && json.includes('ready')), kReadyMs);
  return { windowMs, readyMs: performance.now() - began };
}

/** Runs in the page. Returns the milliseconds from the next click to the state `wanted`. */
function untilState(wanted) {
  return new Promise((resolve) => {
    const state = document.querySelector('#s-state');
    addEventListener('click', () => {
      const began = performance.now();
      new MutationObserver((_, observer) => {
        if (state.textContent !== wanted) return;
        observer.disconnect();
        resolve(performance.now() - began);
      }).observe(state, { childList: true, characterData: true, subtree: true });
    }, { capture: true, once: true });
  });
}

async function timeClick(program, selector, wanted) {
  const took = program.page.evaluate(`(${untilState})(${JSON.stringify(wanted)})`);
  await program.click(selector);
  return took;
}

export async function timeConnect(program) {
  await program.type('#c-secret', kDeviceSecret);
  return timeClick(program, '#c-connect', '在线');
}

export const timeDisconnect = (program) => timeClick(program, '#c-stop', '未连接');
