// A virtual display with a window manager, and the hands and eyes of a person in front of it.
import { readdir, readFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

import { run, runOrFail } from './processes.mjs';

const kFirstDisplay = 77;

async function freeDisplay() {
  const taken = new Set((await readdir('/tmp')).concat(await readdir('/tmp/.X11-unix').catch(() => [])));
  let number = kFirstDisplay;
  while (taken.has(`.X${number}-lock`) || taken.has(`X${number}`)) number += 1;
  return number;
}

export class Display {
  async start(processes, { width = 1280, height = 960, log } = {}) {
    this.number = await freeDisplay();
    this.name = `:${this.number}`;
    await processes.start('Xvfb', ['Xvfb', this.name, '-screen', '0', `${width}x${height}x24`,
      '-nolisten', 'tcp', '-noreset'], { log });
    await this.#waitUntilUp();
    await processes.start('openbox', ['openbox'], { env: { DISPLAY: this.name, HOME: '/nonexistent' } });
  }

  async #waitUntilUp() {
    for (let i = 0; i < 200; i += 1) {
      if ((await run(['xset', '-display', this.name, 'q'])).code === 0 ||
          (await run(['xwininfo', '-display', this.name, '-root'])).code === 0) return;
      await sleep(50);
    }
    throw new Error(`The display ${this.name} did not come up.`);
  }

  async #tool(command) {
    return runOrFail(command, { env: { DISPLAY: this.name } });
  }

  /** The client area of the window titled `title`: {x, y, width, height} on the screen, or null. */
  async clientArea(title) {
    const { code, stdout } = await run(['xwininfo', '-name', title], {
      env: { DISPLAY: this.name, LC_ALL: 'zh_CN.UTF-8' },
    });
    if (code !== 0) return null;
    const number = (label) => Number(new RegExp(`${label}:\\s+(-?\\d+)`).exec(stdout)?.[1]);
    return {
      id: /Window id: (0x[0-9a-f]+)/.exec(stdout)?.[1],
      x: number('Absolute upper-left X'), y: number('Absolute upper-left Y'),
      width: number('Width'), height: number('Height'),
    };
  }

  async click(x, y) {
    await this.#tool(['xdotool', 'mousemove', String(Math.round(x)), String(Math.round(y))]);
    await sleep(60);
    await this.#tool(['xdotool', 'click', '1']);
  }

  async type(text) {
    await this.#tool(['xdotool', 'type', '--delay', '25', text]);
  }

  async key(combination) {
    await this.#tool(['xdotool', 'key', combination]);
  }

  /** The titles of all windows on the display. */
  async windowTitles() {
    const { stdout } = await run(['xwininfo', '-root', '-tree'], {
      env: { DISPLAY: this.name, LC_ALL: 'zh_CN.UTF-8' },
    });
    return [...stdout.matchAll(/^\s+0x[0-9a-f]+ "(.*?)":/gm)].map(([, title]) => title);
  }

  /** Asks the active window to close, through the window manager. */
  async pressCloseButton() {
    await this.key('alt+F4');
  }

  /** The whole screen, once two looks in a row show the same (or after five seconds). */
  async screenshot(path) {
    let earlier = null;
    for (let i = 0; i < 12; i += 1) {
      await this.#tool(['import', '-window', 'root', path]);
      const picture = await readFile(path);
      if (earlier?.equals(picture)) return;
      earlier = picture;
      await sleep(400);
    }
  }
}
