// Reads a process's figures from the kernel: private memory, processor time, wake-ups of its threads.
import { readdir, readFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

const kLookMs = 20;
const kTicksPerSecond = 100;  // USER_HZ, the same on every Linux

/** One line of smaps_rollup in KiB. */
function kib(text, name) {
  const found = new RegExp(`^${name}:\\s+(\\d+) kB$`, 'm').exec(text);
  if (!found) throw new Error(`smaps_rollup has no line ${name}.`);
  return Number(found[1]);
}

/** The memory that ending the process would free: {privateKib, pssKib} from the text of smaps_rollup. */
export function parseMemory(text) {
  return { privateKib: kib(text, 'Private_Clean') + kib(text, 'Private_Dirty'), pssKib: kib(text, 'Pss') };
}

/** A thread's voluntary context switches, from the text of its status. */
export function parseSleeps(text) {
  const found = /^voluntary_ctxt_switches:\s+(\d+)$/m.exec(text);
  if (!found) throw new Error('The status has no line voluntary_ctxt_switches.');
  return Number(found[1]);
}

/** Processor time in milliseconds, from the text of stat. The process name may contain anything, even ")". */
export function parseCpuMs(text) {
  const [userTicks, systemTicks] = text.slice(text.lastIndexOf(')') + 2).split(' ').slice(11, 13).map(Number);
  return ((userTicks + systemTicks) * 1000) / kTicksPerSecond;
}

export const memoryOf = async (pid) => parseMemory(await readFile(`/proc/${pid}/smaps_rollup`, 'utf8'));
export const cpuMsOf = async (pid) => parseCpuMs(await readFile(`/proc/${pid}/stat`, 'utf8'));

/** By thread id. A thread that has just ended is left out. */
async function sleepsOf(pid) {
  const ids = await readdir(`/proc/${pid}/task`);
  const texts = await Promise.all(ids.map((id) => readFile(`/proc/${pid}/task/${id}/status`, 'utf8').catch(() => null)));
  return new Map(ids.flatMap((id, i) => (texts[i] === null ? [] : [[id, parseSleeps(texts[i])]])));
}

/** The threads whose count in `later` exceeds that in `earlier`: [thread id, difference]. */
export function wokenBetween(earlier, later) {
  return [...later].map(([id, count]) => [id, count - (earlier.get(id) ?? 0)]).filter(([, grown]) => grown > 0);
}

/**
 * Watches processes for `seconds` and returns {wakeUps, sleeps, byThread} for each, the first two per second. A call to
 * Wine's server is also a sleep, so everything a thread does within one sample (20 ms) counts as one wake-up.
 */
export async function watchWakeUps(pids, seconds) {
  const watched = await Promise.all(pids.map(async (pid) =>
    ({ pid, last: await sleepsOf(pid), wakeUps: 0, sleeps: 0, byThread: {} })));
  const begin = performance.now();
  while (performance.now() - begin < seconds * 1000) {
    await sleep(kLookMs);
    for (const one of watched) await look(one);
  }
  const elapsed = (performance.now() - begin) / 1000;
  return watched.map(({ wakeUps, sleeps, byThread }) =>
    ({ wakeUps: wakeUps / elapsed, sleeps: sleeps / elapsed, byThread }));
}

async function look(one) {
  const now = await sleepsOf(one.pid);
  for (const [id, grown] of wokenBetween(one.last, now)) {
    one.wakeUps += 1;
    one.sleeps += grown;
    one.byThread[id] = (one.byThread[id] ?? 0) + 1;
  }
  one.last = now;
}
