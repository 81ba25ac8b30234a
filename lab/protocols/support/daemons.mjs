// Starts third-party programs: servers on site, and clients.
import { readFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

import { Processes, run } from '../../harness/processes.mjs';

const kReadyMs = 15_000;
const kStepMs = 20;

/** The lines of the kernel's table of this namespace's `udp` or `tcp` sockets (procfs: /proc/net). */
const sockets = async (table) => (await readFile(`/proc/net/${table}`, 'utf8')).split('\n').slice(1);

const hexOf = (port) => port.toString(16).toUpperCase().padStart(4, '0');

/** An address as the table shows it: network order, read as a number of this (little-endian) machine. */
const hexOfAddress = (address) =>
  Buffer.from(address.split('.').map(Number)).reverse().toString('hex').toUpperCase();

/**
 * Whether `port` is in use by a listening TCP socket (state 0A) or a bound datagram socket, at `address` if one
 * is named.
 */
export async function isOpen(kind, port, address) {
  const owner = address ? hexOfAddress(address) : '[0-9A-F]+';
  const isThis = new RegExp(`^ *\\d+: ${owner}:${hexOf(port)} [0-9A-F:]+ ${kind === 'tcp' ? '0A' : ''}`);
  const lines = [...await sockets(kind), ...await sockets(`${kind}6`).catch(() => [])];
  return lines.some((line) => isThis.test(line));
}

async function descendants(pid) {
  const children = await readFile(`/proc/${pid}/task/${pid}/children`, 'utf8').catch(() => '');
  const found = [];
  for (const one of children.split(' ').filter(Boolean)) found.push(Number(one), ...await descendants(one));
  return found;
}

/** Ends the program and its child processes, which may still wait for a client. */
async function end(processes, child) {
  const family = await descendants(child.pid);
  await processes.stopAll();
  for (const pid of family) {
    try { process.kill(pid, 'SIGKILL'); } catch { /* ended with the program */ }
  }
}

/**
 * Starts a program that serves `port` in the foreground. Resolves once it does, with a function that ends it; fails
 * with the program's output if it exits before. `kind` is 'tcp' or 'udp'; `address` is one address instead of all.
 */
export async function startDaemon(name, command, { kind, port, address, env } = {}) {
  if (await isOpen(kind, port, address)) throw new Error(`${name}: ${kind} port ${port} is in use`);
  const processes = new Processes();
  const child = await processes.start(name, command, { env });
  const late = performance.now() + kReadyMs;
  while (!await isOpen(kind, port, address)) {
    const ended = processes.hasEnded(child);
    if (ended || performance.now() > late) {
      await end(processes, child);
      throw new Error(`${name} ${ended ? 'ended' : 'did not listen'}: ${processes.outputOf(child)}`);
    }
    await sleep(kStepMs);
  }
  return () => end(processes, child);
}

/** Runs one of the engineer's programs to its end; returns its output or fails with it. */
export async function ask(command, { timeoutMs, env } = {}) {
  const { code, stdout, stderr } = await run(command, { timeoutMs, env });
  if (code === 'SIGKILL') throw new Error(`${command[0]}: not finished within ${timeoutMs} ms`);
  if (code !== 0) throw new Error(`${command[0]} ended with ${code}: ${`${stdout}${stderr}`.trim().slice(-300)}`);
  return stdout;
}
