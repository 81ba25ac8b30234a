// Starts the lab's processes and ends each of them by its process id.
import { fork, spawn } from 'node:child_process';
import { createWriteStream } from 'node:fs';
import { once } from 'node:events';
import { setTimeout as sleep } from 'node:timers/promises';

const kTermGraceMs = 3000;

/** The command line that runs `command` inside `namespace`, if any. */
function inNamespace(namespace, command) {
  return namespace ? ['ip', 'netns', 'exec', namespace, ...command] : command;
}

/** Runs a command to its end. Returns {code, stdout, stderr, seconds}; never throws for a non-zero code. */
export async function run(command, { namespace, env, cwd, timeoutMs = 60_000, input } = {}) {
  const line = inNamespace(namespace, command);
  const started = performance.now();
  const child = spawn(line[0], line.slice(1), {
    cwd, env: { ...process.env, ...env }, stdio: [input === undefined ? 'ignore' : 'pipe', 'pipe', 'pipe'],
  });
  if (input !== undefined) child.stdin.end(input);
  let stdout = '';
  let stderr = '';
  child.stdout.on('data', (bytes) => { stdout += bytes; });
  child.stderr.on('data', (bytes) => { stderr += bytes; });
  const timer = setTimeout(() => child.kill('SIGKILL'), timeoutMs);
  const [code, signal] = await once(child, 'close').catch((error) => [-1, error.message]);
  clearTimeout(timer);
  return { code: code ?? signal, stdout, stderr, seconds: (performance.now() - started) / 1000 };
}

/** Like run(), but throws for a non-zero exit code, with the command and its output. */
export async function runOrFail(command, options) {
  const result = await run(command, options);
  if (result.code !== 0) {
    throw new Error(`${command.join(' ')} ended with ${result.code}\n${result.stdout}${result.stderr}`);
  }
  return result;
}

/** The processes of one lab, ended in reverse order of their start. */
export class Processes {
  #children = [];

  /**
   * Starts a process that runs until stopAll(). `log` is a file for its output; `ready` a pattern that its
   * output must match before the returned promise settles.
   */
  async start(name, command, { namespace, env, cwd, log, ready, readyMs = 15_000 } = {}) {
    const line = inNamespace(namespace, command);
    const child = spawn(line[0], line.slice(1), {
      cwd, env: { ...process.env, ...env }, stdio: ['ignore', 'pipe', 'pipe'],
    });
    this.#adopt(name, child, log);
    if (ready) await this.#waitForOutput(name, child, ready, readyMs);
    return child;
  }

  /** Starts a Node module with an IPC channel, optionally inside a namespace. */
  fork(name, modulePath, { namespace, env, log, args = [] } = {}) {
    const options = { env: { ...process.env, ...env }, stdio: ['ignore', 'pipe', 'pipe', 'ipc'] };
    if (namespace) {
      options.execPath = '/usr/sbin/ip';
      options.execArgv = ['netns', 'exec', namespace, process.execPath];
    }
    const child = fork(modulePath, args, options);
    this.#adopt(name, child, log);
    return child;
  }

  #adopt(name, child, log) {
    const entry = { name, child, output: '', ended: false };
    entry.exit = new Promise((resolve) => {
      child.once('error', (error) => { entry.ended = true; resolve(`not started: ${error.message}`); });
      child.once('exit', (code, signal) => { entry.ended = true; resolve(signal ?? code); });
    });
    const file = log ? createWriteStream(log) : null;
    for (const stream of [child.stdout, child.stderr]) {
      stream.on('data', (bytes) => {
        entry.output = (entry.output + bytes).slice(-65536);
        file?.write(bytes);
      });
    }
    this.#children.push(entry);
    return entry;
  }

  async #waitForOutput(name, child, pattern, timeoutMs) {
    const entry = this.#children.find((one) => one.child === child);
    const end = performance.now() + timeoutMs;
    while (!pattern.test(entry.output)) {
      if (entry.ended) throw new Error(`${name} ended before it was ready:\n${entry.output}`);
      if (performance.now() > end) throw new Error(`${name} was not ready in time:\n${entry.output}`);
      await sleep(20);
    }
  }

  /** Resolves with the exit code (or signal) of a started process; 'running' after `timeoutMs`. */
  async waitForExit(child, timeoutMs) {
    const entry = this.#children.find((one) => one.child === child);
    let timer;
    const late = new Promise((resolve) => { timer = setTimeout(() => resolve('running'), timeoutMs); });
    const result = await Promise.race([entry.exit, late]);
    clearTimeout(timer);
    return result;
  }

  hasEnded(child) {
    return this.#children.find((one) => one.child === child).ended;
  }

  /** The newest 64 KiB of a started process's output. */
  outputOf(child) {
    return this.#children.find((one) => one.child === child).output;
  }

  async stop(child, signal = 'SIGTERM') {
    const entry = this.#children.find((one) => one.child === child);
    if (!entry.ended) child.kill(signal);
    if ((await this.waitForExit(child, kTermGraceMs)) === 'running') {
      child.kill('SIGKILL');
      await this.waitForExit(child, kTermGraceMs);
    }
  }

  async stopAll() {
    for (const entry of this.#children.reverse()) await this.stop(entry.child);
    this.#children = [];
  }
}
