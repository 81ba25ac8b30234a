// The clipboard of the lab's Windows, as another program on the desk has it.
import { kClipboard } from './paths.mjs';
import { run, runOrFail } from './processes.mjs';

const kNoText = 2;

export class Clipboard {
  #prefix;
  #options;

  /** `options` go to run(): the namespace and environment of Windows programs. */
  constructor(prefix, options) {
    this.#prefix = prefix;
    this.#options = options;
  }

  #command(...args) { return this.#prefix.command(this.#prefix.windowsPath(kClipboard), args); }

  /** Its text; null when it holds none. */
  async read() {
    const { code, stdout } = await run(this.#command('read'), this.#options);
    if (code !== 0 && code !== kNoText) throw new Error(`Reading the clipboard ended with ${code}.`);
    return code === kNoText ? null : stdout;
  }

  async write(text) { await runOrFail(this.#command('write', text), this.#options); }

  /** Opens it and keeps it open, so that nobody else can; returns a function that ends that. */
  async hold(processes) {
    const child = await processes.start('clipboard holder', this.#command('hold'),
      { ...this.#options, ready: /ready/ });
    return () => processes.stop(child);
  }
}
