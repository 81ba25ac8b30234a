// Measures at one rate of the line, in a lab of its own. Usage: node one_rate.mjs KILOBITS_PER_SECOND
// Prints an array of {rate, ends, way, load, times, lost, requestMs, megabits}; `ends` names the queues and buffers, "stated" or "short".
import { rm } from 'node:fs/promises';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

import { Lab } from '../../lab/harness/lab.mjs';
import { kBuild } from '../../lab/harness/paths.mjs';
import { connect, disconnect, measure, startProgram, useCubic } from './slow_line.mjs';

const kLoads = { stated: ['rest', 'upload', 'download'], short: ['upload', 'download'] };
/** The other lab starts at the same time. */
const kSettleMs = 1500;
const rate = Number(process.argv[2]);
const artifacts = path.join(kBuild, `bench/line/${rate}`);
const results = [];

async function measureWay(lab, ends, way) {
  await connect(lab, way);
  await sleep(kSettleMs);
  for (const load of kLoads[ends]) {
    const seen = await measure(lab, rate, load);
    results.push({ rate, ends, way, load, ...seen });
  }
  await disconnect(lab);
}

await rm(artifacts, { recursive: true, force: true });
const lab = await Lab.create({ artifacts });
try {
  await useCubic(lab.network);
  for (const ends of Object.keys(kLoads)) {
    await startProgram(lab, ends);
    for (const way of ['udp', 'webSocket']) await measureWay(lab, ends, way);
    if (ends === 'stated') await lab.program.kill();
  }
} finally {
  for (const left of await lab.close()) console.error(`left over: ${left}`);
}
console.log(JSON.stringify(results));
