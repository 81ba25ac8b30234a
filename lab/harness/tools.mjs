// The engineer's ordinary tools, run in the engineer's namespace. Each returns {ok, figures} or
// {ok: false, error} with the tool's own message.
import { createHash } from 'node:crypto';
import { readFile, rm } from 'node:fs/promises';
import path from 'node:path';

import { kRepo } from './paths.mjs';

const failed = (result) => ({ ok: false, error: `${result.stdout}${result.stderr}`.trim().slice(-400) });

/** How late an answer may come: longer than a receive under Wine may oversleep (docs/lab.md). */
const kLateSeconds = 5;

/**
 * Sends `count` requests, each of which must be answered. With a deadline, ping waits longer for the last answer than its
 * default of twice the usual time.
 */
export async function ping(lab, address, count = 5) {
  const result = await lab.tool(['ping', '-n', '-c', String(count), '-i', '0.2',
    '-w', String(Math.ceil(count * 0.2) + kLateSeconds), address]);
  // While waiting, ping keeps sending, and several late answers may come at its end: a lost one shows as a gap in the
  // numbers.
  const answered = [...result.stdout.matchAll(/icmp_seq=(\d+)/g)].map(([, number]) => Number(number)).sort((a, b) => a - b);
  if (answered.length < count || answered.some((number, i) => number !== i + 1)) return failed(result);
  const [, min, avg, max] = /= ([\d.]+)\/([\d.]+)\/([\d.]+)/.exec(result.stdout).map(Number);
  return { ok: true, figures: { sent: answered.length, received: answered.length, minMs: min, avgMs: avg, maxMs: max } };
}

const sha256 = async (file) => createHash('sha256').update(await readFile(file)).digest('hex');

const kTimedOut = 28;  // curl's exit code

/** Downloads the controller's 5 MB file and compares its hash with the original's; fails after `silentSeconds` without a byte. */
export async function download(lab, address, { seconds: limit = 60, silentSeconds = limit } = {}) {
  const target = path.join(lab.workFolder, 'downloaded.bin');
  const result = await lab.tool(['curl', '-sS', '--max-time', String(limit), '--speed-limit', '1',
    '--speed-time', String(silentSeconds), '-o', target,
    '-w', '%{size_download} %{time_total}', `http://${address}:${lab.controllerPorts.web}/file`], { timeoutMs: (limit + 5) * 1000 });
  if (result.code !== 0) return { ...failed(result), silent: result.code === kTimedOut };
  const [bytes, seconds] = result.stdout.split(' ').map(Number);
  const [got, wanted] = await Promise.all([sha256(target), sha256(lab.plcFile)]);
  await rm(target, { force: true });
  return {
    ok: got === wanted, error: got === wanted ? undefined : 'The hash differs.',
    figures: { bytes, seconds, megabytesPerSecond: bytes / 1e6 / seconds, sha256: got },
  };
}

/** Writes and reads holding registers with a Modbus client library. */
export async function modbus(lab, address) {
  const result = await lab.tool(['/usr/bin/python3', path.join(kRepo, 'lab/standins/plc/modbus_check.py'), address,
    String(lab.controllerPorts.modbus)]);
  return result.code === 0 ? { ok: true, figures: JSON.parse(result.stdout) } : failed(result);
}

/**
 * Throughput to the controller, or from it with `reverse`. A run that says nothing about the tunnel is repeated, at most
 * twice, and counted in `tries`: its report has no sums (on a busy machine iperf3 can miss its interval), the server is
 * still closing the previous run, or it stalled because a receive overslept (docs/lab.md).
 */
export async function iperf(lab, address, { reverse = false, seconds = 3 } = {}) {
  for (let tries = 1; ; tries += 1) {
    const result = await lab.tool(['iperf3', '-J', '-c', address, '-t', String(seconds), '-i', '0.2',
      '--connect-timeout', '5000', ...(reverse ? ['-R'] : [])]);
    const received = result.code === 0 ? JSON.parse(result.stdout).end.sum_received : undefined;
    const megabits = (received?.bits_per_second ?? 0) / 1e6;
    if (megabits > 1) return { ok: true, figures: { megabitsPerSecond: megabits, bytes: received.bytes, tries } };
    const isConclusive = result.code !== 0 && !result.stdout.includes('the server is busy');
    if (isConclusive || tries === 3) return { ...failed(result), error: `${megabits} Mbit/s in try ${tries}: ${failed(result).error}` };
  }
}
