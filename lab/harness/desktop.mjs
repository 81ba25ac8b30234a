// The engineer's Windows desktop around the program: the clipboard, other programs and windows, and messages that the
// system would send to the program's window.
import { copyFile, mkdir } from 'node:fs/promises';
import path from 'node:path';

import { RustDesk } from '../standins/rustdesk/rustdesk.mjs';
import { kClipboard, kRustDesk, kSendMessage, kSettingWatch } from './paths.mjs';
import { run, runOrFail } from './processes.mjs';

const kWindowClass = 'VelmarineNativeWindow';
const kNoText = 2;

export class Clipboard {
  #prefix;
  #options;

  /** `options` for run(): the namespace and environment of Windows programs. */
  constructor(prefix, options) {
    this.#prefix = prefix;
    this.#options = options;
  }

  #command(...args) { return this.#prefix.command(this.#prefix.windowsPath(kClipboard), args); }

  /** Its text; null without text. */
  async read() {
    const { code, stdout } = await run(this.#command('read'), this.#options);
    if (code !== 0 && code !== kNoText) throw new Error(`Reading the clipboard ended with ${code}.`);
    return code === kNoText ? null : stdout;
  }

  async write(text) { await runOrFail(this.#command('write', text), this.#options); }

  /** Keeps it open, so that no other program can open it; returns a function that closes it. */
  async hold(processes) {
    const child = await processes.start('clipboard holder', this.#command('hold'),
      { ...this.#options, ready: /ready/ });
    return () => processes.stop(child);
  }
}

export class Desktop {
  #lab;
  #options;

  constructor(lab) {
    this.#lab = lab;
    this.#options = { namespace: lab.network.engineer, env: lab.windowsEnv };
    this.clipboard = new Clipboard(lab.prefix, this.#options);
  }

  makeRustDesk(name) {
    return new RustDesk(this.#lab.prefix, path.join(this.#lab.artifacts, name), this.#options);
  }

  /**
   * Starts another program that is notified of changed system settings and takes `busyMs` for each.
   * Returns a function that returns the texts received so far.
   */
  async startSettingWatch({ busyMs = 0 } = {}) {
    const command = this.#lab.prefix.command(this.#lab.prefix.windowsPath(kSettingWatch), [String(busyMs)]);
    const child = await this.#lab.processes.start('setting watch', command, {
      ...this.#options, log: path.join(this.#lab.artifacts, 'setting-watch.log'), ready: /ready/,
    });
    return () => [...this.#lab.processes.outputOf(child).matchAll(/^setting change, (.*?)\r?$/gm)]
      .map(([, text]) => text);
  }

  /**
   * Sends the program's window a message as the system would, `count` times: {answer, tookMs}. Fails if it
   * does not answer within ten seconds.
   */
  async sendToWindow(message, wParam, count = 1) {
    const command = this.#lab.prefix.command(this.#lab.prefix.windowsPath(kSendMessage),
      [kWindowClass, message, wParam, count].map(String));
    const { code, stdout } = await run(command, this.#options);
    const [, answer, tookMs] = /^answer (\d+) after (\d+) ms/m.exec(stdout) ?? [];
    if (code !== 0 || answer === undefined) throw new Error(`The window did not answer message ${message}.`);
    return { answer: Number(answer), tookMs: Number(tookMs) };
  }

  /**
   * Starts RustDesk's stand-in as a decoy window, which records its events in its own folder. `plan` as
   * for RustDesk.plan(). Returns it after `event`, by default once it is visible. Under a `file` name
   * other than RustDesk's it is another program's window.
   */
  async startWindow(name, plan, { event = 'shown', file = path.basename(kRustDesk) } = {}) {
    const window = this.makeRustDesk(name);
    await window.plan(plan);
    const program = path.join(this.#lab.workFolder, name, file);
    await mkdir(path.dirname(program));
    await copyFile(kRustDesk, program);
    const { env, namespace } = this.#options;
    await this.#lab.processes.start(name, this.#lab.prefix.command(this.#lab.prefix.windowsPath(program)),
      { namespace, env: { ...env, ...window.env } });
    const { pid } = await window.started(1);
    await window.happened(pid, event);
    return window;
  }
}
