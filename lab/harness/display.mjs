// A virtual display with a window manager, its mouse and keyboard, and screenshots.
import { readFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

import { run, runOrFail } from './processes.mjs';

export class Display {
  async start(processes, { width = 1280, height = 960, log } = {}) {
    // The server picks a free number itself, so that two simultaneous starts never share one.
    const server = await processes.start('Xvfb', ['Xvfb', '-displayfd', '1', '-screen', '0',
      `${width}x${height}x24`, '-nolisten', 'tcp', '-noreset'], { log, ready: /^\d+\s/m });
    this.name = `:${/^(\d+)\s/m.exec(processes.outputOf(server))[1]}`;
    await processes.start('openbox', ['openbox'], { env: { DISPLAY: this.name, HOME: '/nonexistent' } });
  }

  async #tool(command) {
    return runOrFail(command, { env: { DISPLAY: this.name } });
  }

  /** The client area of the window titled `title`: {x, y, width, height} in screen coordinates, or null. */
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

  /** Saves the whole screen once two pictures in a row are equal (or after five seconds). */
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
