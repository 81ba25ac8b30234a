// A program of the engineer's that is talked to line by line.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { createInterface } from 'node:readline';

import { within } from './requests.mjs';

/**
 * Starts `command`. next() resolves with its next line, or fails with its error output when it has ended;
 * end() closes its input and waits until it has; kill() is for what did not.
 */
export function openLines(command) {
  const child = spawn(command[0], command.slice(1), { stdio: 'pipe' });
  let errors = '';
  child.stderr.on('data', (bytes) => { errors += bytes; });
  child.stdin.on('error', () => {});  // its end is seen by next()
  child.on('error', (error) => { errors += error.message; });
  const ended = once(child, 'close').catch(() => []);
  const lines = createInterface({ input: child.stdout })[Symbol.asyncIterator]();
  return {
    send: (line) => child.stdin.write(`${line}\n`),
    async next() {
      const { value, done } = await lines.next();
      if (!done) return value;
      await ended;
      throw new Error(`${command[0]} has ended: ${errors.trim().slice(-300)}`);
    },
    async end(timeoutMs) {
      child.stdin.end();
      const [code] = await within(timeoutMs, `the end of ${command[0]}`, ended);
      if (code !== 0) throw new Error(`${command[0]} ended with ${code}: ${errors.trim().slice(-300)}`);
    },
    kill: () => child.kill('SIGKILL'),
  };
}
