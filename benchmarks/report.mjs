// Runs Google Benchmark programs and writes build/bench/report.json.
// Usage: node benchmarks/report.mjs PROGRAM...
// A program that ends in .mjs is run with node and prints its medians in the same form.
//
// A benchmark NAME that has a partner NAME_Anchor is reported with the ratio of the two, both measured
// in the same run with their repetitions interleaved. Values are medians.
import { spawnSync } from 'node:child_process';
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { parseReport } from './report_text.mjs';

const kRepetitions = 7;
const here = path.dirname(fileURLToPath(import.meta.url));
const goals = JSON.parse(readFileSync(path.join(here, 'goals.json'), 'utf8'));

const kArguments = [
  '--benchmark_format=json', `--benchmark_repetitions=${kRepetitions}`,
  '--benchmark_enable_random_interleaving=true', '--benchmark_report_aggregates_only=true', '--benchmark_min_time=0.05',
];

function medians(program) {
  const command = program.endsWith('.mjs') ? [process.execPath, program] : [program, ...kArguments];
  const { status, stdout, stderr } = spawnSync(command[0], command.slice(1), { encoding: 'utf8', maxBuffer: 1 << 26 });
  if (status !== 0) throw new Error(`${program} ended with ${status}\n${stderr}`);
  return parseReport(stdout).benchmarks.filter(({ aggregate_name: kind }) => kind === 'median');
}

function row(entry, byName) {
  const name = entry.run_name;
  const [base, ...args] = name.split('/');
  const anchor = byName.get([`${base}_Anchor`, ...args].join('/'));
  const ratio = anchor ? entry.real_time / anchor.real_time : null;
  const goal = goals[name] ?? null;
  const figures = Object.fromEntries(Object.entries(entry)
    .filter(([key, value]) => typeof value === 'number' && /bytes|items|per_/.test(key)));
  return {
    name, value: entry.real_time, unit: entry.time_unit, anchor: anchor?.run_name ?? null,
    anchorValue: anchor?.real_time ?? null, ratio, goal, met: goal === null ? null : (ratio ?? entry.real_time) <= goal,
    ...figures,
  };
}

const report = [];
for (const program of process.argv.slice(2)) {
  const entries = medians(program);
  const byName = new Map(entries.map((entry) => [entry.run_name, entry]));
  for (const entry of entries) {
    if (!entry.run_name.split('/')[0].endsWith('_Anchor')) report.push(row(entry, byName));
  }
}
const folder = path.join(here, '../build/bench');
mkdirSync(folder, { recursive: true });
writeFileSync(path.join(folder, 'report.json'), `${JSON.stringify(report, null, 2)}\n`);
for (const { name, value, unit, ratio, goal, met, bytes_per_flow: bytesPerFlow } of report) {
  console.log(`${name.padEnd(44)} ${value.toFixed(1).padStart(12)} ${unit}` +
    `${bytesPerFlow ? `   ${bytesPerFlow.toFixed(1)} bytes a flow` : ''}${ratio === null ? '' : `   ${ratio.toFixed(2)} x anchor`}${goal === null ? '' : `   goal ${goal}: ${met ? 'met' : 'MISSED'}`}`);
}
process.exitCode = report.some(({ met }) => met === false) ? 1 : 0;
