// The measurements of a contestant, each a fraction of a second long. A contestant is {pair, process, rates}.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { readdir, readFile } from 'node:fs/promises';

import { runOrFail } from '../../lab/harness/processes.mjs';
import { percentile } from '../medians.mjs';
import { kPacketsProgram } from './contestants.mjs';
import { readIperf, readPackets, readPing, readSchedstat } from './readings.mjs';
import { inside, kSite } from './world.mjs';

export const kPacketsPort = '5300';
export const kPacketSizes = [64, 512, 1300];
const kBulkSeconds = 0.3;
const kFirstBulkBytes = 10_000_000;
const kLeastBulkBytes = 4_000_000;
const kPacketsMs = 150;
// Only received packets count. The peer with the smallest socket buffer still loses 2 to 4 percent.
const kLargestLoss = 0.1;
const kPings = 120;
const kPingSeconds = '0.002';
const kLoadedPingSeconds = '0.004';
const kTimeoutMs = 15_000;

const atEngineer = (contestant, command) => runOrFail(inside(contestant.pair.engineer, command), { timeoutMs: kTimeoutMs });

/** Processor time of all threads of the engineer's process, in nanoseconds. */
async function processorNs({ process: { pid } }) {
  const folder = `/proc/${pid}/task`;
  const texts = await Promise.all((await readdir(folder)).map((id) => readFile(`${folder}/${id}/schedstat`, 'utf8')));
  return texts.reduce((sum, text) => sum + readSchedstat(text), 0);
}

/** Pings until `work` is done. Returns its result and the times in ms. */
async function whilePinging(contestant, work) {
  const [file, ...args] = inside(contestant.pair.engineer, ['ping', '-n', '-i', kLoadedPingSeconds, kSite]);
  const child = spawn(file, args, { stdio: ['ignore', 'pipe', 'inherit'] });
  const closed = once(child, 'close');
  let output = '';
  child.stdout.on('data', (bytes) => { output += bytes; });
  try {
    return { result: await work(), pings: readPing(output) };
  } finally {
    child.kill('SIGINT');
    await closed;
  }
}

/**
 * One transfer, of the size that should take `kBulkSeconds` judging by the previous one of its kind. iperf3 accepts
 * whole seconds only, but any number of bytes. The congestion control is that of Windows, which is Linux's default too.
 */
async function transfer(contestant, kind, flags) {
  const bytes = contestant.bulkBytes[kind] ?? kFirstBulkBytes;
  const { stdout } = await atEngineer(contestant, ['iperf3', '-J', '-c', kSite, '-C', 'cubic', '-n', String(bytes), ...flags]);
  const reading = readIperf(stdout);
  const fastest = Math.max(reading.upMegabits, reading.downMegabits) * 1e6 / 8;
  contestant.bulkBytes[kind] = Math.max(kLeastBulkBytes, Math.round(fastest * kBulkSeconds));
  return reading;
}

async function oneWay(contestant, kind, flags) {
  const before = await processorNs(contestant);
  const { result, pings } = await whilePinging(contestant, () => transfer(contestant, kind, flags));
  const cpu = (await processorNs(contestant) - before) / result.bytes;  // ns a byte is s a GB
  return { [kind]: result.upMegabits + result.downMegabits, [`Cpu${kind}`]: cpu, [`Ping${kind}99`]: percentile(pings, 99) };
}

async function bothWays(contestant) {
  const { upMegabits, downMegabits } = await transfer(contestant, 'Both', ['--bidir']);
  return { Both: upMegabits + downMegabits };
}

const packets = (size, direction) => async (contestant) => {
  const before = await processorNs(contestant);
  const { stdout } = await atEngineer(contestant,
    [kPacketsProgram, direction.toLowerCase(), kSite, kPacketsPort, String(size), String(kPacketsMs)]);
  const cpuNs = await processorNs(contestant) - before;
  const { received, perSecond, lostShare } = readPackets(stdout);
  if (lostShare > kLargestLoss) throw new Error(`${contestant.name} lost ${(lostShare * 100).toFixed(1)} % of packets of ${size} bytes`);
  return { [`Packets${size}${direction}`]: perSecond, [`Cpu${size}${direction}`]: cpuNs / 1000 / received };
};

async function idle(contestant) {
  const { stdout } = await atEngineer(contestant, ['ping', '-n', '-c', String(kPings), '-i', kPingSeconds, kSite]);
  const times = readPing(stdout);
  return { Ping: percentile(times, 50), Ping99: percentile(times, 99) };
}

/** Run one after the other in each round; each returns some figures by name. */
export const kMeasures = [
  (contestant) => oneWay(contestant, 'Up', []),
  (contestant) => oneWay(contestant, 'Down', ['-R']),
  bothWays,
  ...kPacketSizes.flatMap((size) => [packets(size, 'Up'), packets(size, 'Down')]),
  idle,
];

/** The figures, in the order of the table. */
export const kFigures = [
  { name: 'Up', title: 'bulk up', unit: 'Mbit/s', isBulk: true },
  { name: 'Down', title: 'bulk down', unit: 'Mbit/s', isBulk: true },
  { name: 'Both', title: 'both at once, sum', unit: 'Mbit/s', isBulk: true },
  ...kPacketSizes.flatMap((size) => ['Up', 'Down'].map((direction) => (
    { name: `Packets${size}${direction}`, title: `${size}-byte packets ${direction.toLowerCase()}`, unit: '1/s' }))),
  { name: 'Ping', title: 'ping, idle, median', unit: 'ms' },
  { name: 'Ping99', title: 'ping, idle, 99 %', unit: 'ms' },
  { name: 'PingUp99', title: 'ping in bulk up, 99 %', unit: 'ms' },
  { name: 'PingDown99', title: 'ping in bulk down, 99 %', unit: 'ms' },
  { name: 'CpuUp', title: 'processor, bulk up', unit: 's/GB', isBulk: true },
  { name: 'CpuDown', title: 'processor, bulk down', unit: 's/GB', isBulk: true },
  { name: 'Cpu64Up', title: 'processor, 64-byte packets up', unit: 'us' },
  { name: 'Cpu64Down', title: 'processor, 64-byte packets down', unit: 'us' },
];
