// Measures the whole tunnel: the program's session between two network namespaces, compared with the minimum that any
// tunnel in user space must do (the floors) and with its peers. Prints JSON as Google Benchmark does, and a table.
//
// All contestants' tunnels are up all the time, each in its own namespaces; idle ones cost nothing. Each round measures every
// figure of every contestant in turn, starting with a different one; the report has the medians of the rounds. Generator,
// both ends of the tunnel and receiver share this machine's processors, so only ratios are meaningful.
// benchmarks/tunnel has the parts: the contestants, the measures, and their programs (floor_main.cpp,
// relay_main.cpp, session_main.cpp, packets_main.cpp).
import { setTimeout as sleep } from 'node:timers/promises';

import { Processes, run } from '../lab/harness/processes.mjs';
import { median } from './medians.mjs';
import { kContestants, kPacketsProgram } from './tunnel/contestants.mjs';
import { kFigures, kMeasures, kPacketsPort } from './tunnel/measures.mjs';
import { inside, kSite, World } from './tunnel/world.mjs';

const kLeastRounds = 5;
const kMostRounds = 11;
const kRoundsMs = 200_000;  // beyond the minimum number of rounds; less than four minutes with set-up and clean-up
const kTries = 5;
const kLimitMs = 300_000;

const processes = new Processes();
const world = new World();

async function bringUp(contestant) {
  const pair = await world.addPair(contestant.name.toLowerCase());
  const child = await contestant.start({ processes, name: contestant.name, pair, folder: world.folder });
  await world.bringUp(pair);
  await processes.start('iperf3', inside(pair.site, ['iperf3', '-s', '--forceflush']), { ready: /listening/ });
  await processes.start('packets', inside(pair.site, [kPacketsProgram, 'serve', kPacketsPort]), { ready: /ready/ });
  const up = { ...contestant, pair, process: child, bulkBytes: {}, rounds: new Map() };
  await waitForAnswer(up);
  return up;
}

async function waitForAnswer({ name, pair }) {
  for (let tries = 0; tries < 50; tries += 1) {
    const { code } = await run(inside(pair.engineer, ['ping', '-n', '-c', '1', '-W', '0.2', kSite]));
    if (code === 0) return;
    await sleep(50);
  }
  throw new Error(`${name} carries no packets`);
}

/** Retries once: an iperf3 server may still be busy with the end of the last transfer. */
async function take(measure, contestant) {
  for (let tries = 1; ; tries += 1) {
    try {
      return await measure(contestant);
    } catch (error) {
      if (tries === kTries || processes.hasEnded(contestant.process)) throw error;
      process.stderr.write(`${contestant.name}, once more: ${error.message}\n`);
      await sleep(100);
    }
  }
}

async function measureRound(contestants, { isKept, first }) {
  const order = contestants.map((_, index) => contestants[(index + first) % contestants.length]);
  for (const measure of kMeasures) {
    for (const contestant of order) {
      const figures = await take(measure, contestant);
      if (!isKept) continue;
      for (const [name, value] of Object.entries(figures)) {
        contestant.rounds.set(name, [...contestant.rounds.get(name) ?? [], value]);
      }
    }
  }
}

/** The medians as Google Benchmark prints them, each with the name of its anchor, and as a table. */
function report(contestants) {
  const value = (contestant, figure) => median(contestant.rounds.get(figure.name));
  return {
    benchmarks: kFigures.flatMap((figure) => contestants.map((contestant) => ({
      run_name: contestant.name + figure.name, aggregate_name: 'median',
      real_time: value(contestant, figure), time_unit: figure.unit,
      ...(contestant.anchor && { anchor: contestant.anchor(figure) + figure.name }) }))),
    table: {
      name: 'TunnelTable', columns: contestants.map(({ title }) => title),
      rows: kFigures.map((figure) => ({ title: `${figure.title}, ${figure.unit}`,
        values: contestants.map((contestant) => value(contestant, figure)) })),
    },
  };
}

async function cleanUp() {
  await processes.stopAll();
  await world.remove();
}

/** Rejects when the benchmark has to end early: on a signal, after its time, or when its reader is gone. */
function interruption() {
  const parent = process.ppid;
  return new Promise((_, reject) => {
    process.on('uncaughtException', reject);
    for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP']) process.on(signal, () => reject(new Error(`Ended by ${signal}.`)));
    setTimeout(() => reject(new Error(`No end in ${kLimitMs / 1000} s.`)), kLimitMs).unref();
    setInterval(() => { if (process.ppid !== parent) reject(new Error('Nobody waits for the figures.')); }, 500).unref();
  });
}

/** Whether another round would end in time, judging by the previous ones. */
const hasTimeFor = (round) => performance.now() * ((round + 1) / round) < kRoundsMs;

async function measureAll() {
  await World.removeLeftovers();
  await world.makeFolder();
  const contestants = await Promise.all(kContestants.map(bringUp));
  await measureRound(contestants, { isKept: false, first: 0 });  // warms up, and finds the size of a transfer
  for (let round = 1; round <= kMostRounds && (round <= kLeastRounds || hasTimeFor(round)); round += 1) {
    process.stderr.write(`Tunnel: round ${round}\n`);
    await measureRound(contestants, { isKept: true, first: round });
  }
  console.log(JSON.stringify(report(contestants)));
}

try {
  await Promise.race([measureAll(), interruption()]);
} catch (error) {
  console.error(error.message);
  process.exitCode = 1;
} finally {
  await cleanUp();
}
process.exit();
