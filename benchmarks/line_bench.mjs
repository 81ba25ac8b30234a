// Measures ping and Modbus through the program over a slow line, at rest and beside a transfer. Prints JSON as Google
// Benchmark does.
//
// A figure's anchor is the same measurement at rest. Two rates are measured at a time, each in its own lab: neither needs much processor time.
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { fileURLToPath } from 'node:url';

import { kLabSuffix } from '../lab/harness/paths.mjs';
import { Figures, percentile } from './medians.mjs';

const kOneRate = fileURLToPath(new URL('line/one_rate.mjs', import.meta.url));
const kRates = [2000, 10_000];  // kbit/s
const kLimitMs = 300_000;

async function measureRate(rate) {
  const child = spawn(process.execPath, [kOneRate, String(rate)],
    { env: { ...process.env, LAB_SUFFIX: `${kLabSuffix}-${rate}` }, stdio: ['ignore', 'pipe', 'inherit'] });
  const timer = setTimeout(() => child.kill('SIGINT'), kLimitMs);
  let text = '';
  child.stdout.on('data', (bytes) => { text += bytes; });
  const [code] = await once(child, 'close');
  clearTimeout(timer);
  if (code !== 0) throw new Error(`At ${rate} kbit/s the measurement ended with ${code}.`);
  return JSON.parse(text);
}

const kNames = { rest: 'AtRest', upload: 'Upload', download: 'Download' };

function addResult(figures, { rate, ends, way, load, times, lost, requestMs, megabits }, rest) {
  const place = `${ends}/${way}/${rate}`;
  const name = kNames[load];
  const add = (figure, value) => {
    const anchor = figure(rest);
    figures.add(`Line${value}${name}/${place}`, 'ms', figure({ times, requestMs }));
    if (load !== 'rest') figures.add(`Line${value}${name}_Anchor/${place}`, 'ms', anchor);
  };
  add((one) => percentile(one.times, 50), 'Ping');
  add((one) => percentile(one.times, 99), 'Ping99');
  add((one) => one.requestMs, 'Modbus');
  // Time per megabit; the anchor is the line's own time at its rate.
  if (megabits !== undefined) {
    figures.add(`LineMegabit${name}/${place}`, 'ms', 1000 / megabits);
    figures.add(`LineMegabit${name}_Anchor/${place}`, 'ms', 1e6 / rate);
  }
  console.error(`${name} ${place}: ${times.length} pings, ${lost} lost`);
}

const figures = new Figures();
const outcomes = await Promise.allSettled(kRates.map(measureRate));  // a failure of one does not cut the other short
for (const { reason } of outcomes) if (reason) throw reason;
const results = outcomes.flatMap(({ value }) => value);
for (const result of results) {
  const rest = results.find(({ rate, way, load }) => rate === result.rate && way === result.way && load === 'rest');
  addResult(figures, result, rest);
}
figures.print();
