// Runs Google Benchmark programs and writes build/bench/report.json.
// Usage: node benchmarks/report.mjs PROGRAM...
// A program that ends in .mjs is run with node and prints its medians in the same form.
//
// A benchmark NAME that has a partner NAME_Anchor is reported with the ratio of the two, both measured
// in the same run with their repetitions interleaved. An .mjs program may also name the anchor itself. Values are medians.
// A table that such a program prints in addition is shown at the end.
import { spawnSync } from 'node:child_process';
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { describeGoal, findGoal, isMet } from './goals.mjs';
import { parseReport } from './report_text.mjs';
import { formatTable } from './text_table.mjs';

const kRepetitions = 7;
const here = path.dirname(fileURLToPath(import.meta.url));
const goals = JSON.parse(readFileSync(path.join(here, 'goals.json'), 'utf8'));

const kArguments = [
  '--benchmark_format=json', `--benchmark_repetitions=${kRepetitions}`,
  '--benchmark_enable_random_interleaving=true', '--benchmark_report_aggregates_only=true', '--benchmark_min_time=0.05',
];

/** Runs one program. Returns {entries, table}: its medians, and its table if it prints one. */
function measure(program) {
  const isScript = program.endsWith('.mjs');
  const command = isScript ? [process.execPath, program] : [program, ...kArguments];
  // A script reports its progress; Google Benchmark's remarks matter only when it fails.
  const { status, stdout, stderr } = spawnSync(command[0], command.slice(1),
    { encoding: 'utf8', maxBuffer: 1 << 26, stdio: ['ignore', 'pipe', isScript ? 'inherit' : 'pipe'] });
  if (status !== 0) throw new Error(`${program} ended with ${status}\n${stderr ?? ''}`);
  const { benchmarks, table } = parseReport(stdout);
  return { entries: benchmarks.filter(({ aggregate_name: kind }) => kind === 'median'), table };
}

function anchorOf({ run_name: name, anchor }, byName) {
  const [base, ...args] = name.split('/');
  return byName.get(anchor ?? [`${base}_Anchor`, ...args].join('/')) ?? null;
}

function row(entry, byName) {
  const { run_name: name, real_time: value } = entry;
  const anchor = anchorOf(entry, byName);
  const anchorValue = anchor?.real_time ?? null;
  const goal = findGoal(goals, name);
  const figures = Object.fromEntries(Object.entries(entry)
    .filter(([key, number]) => typeof number === 'number' && /bytes|items|per_/.test(key)));
  return {
    name, value, unit: entry.time_unit, anchor: anchor?.run_name ?? null, anchorValue,
    ratio: anchor ? value / anchorValue : null, goal: goal?.limit ?? null, goalKind: goal?.kind ?? null,
    met: goal === null ? null : isMet(goal, value, anchorValue), ...figures,
  };
}

/** A table as an additional entry of the report, without a figure of its own. */
const tableRow = ({ name, ...table }) => ({
  name, value: null, unit: null, anchor: null, anchorValue: null, ratio: null, goal: null, goalKind: null, met: null, table,
});

function print({ name, value, unit, ratio, goal, goalKind, met, bytes_per_flow: bytesPerFlow }) {
  const digits = Math.abs(value) < 10 ? 3 : 1;
  console.log(`${name.padEnd(44)} ${value.toFixed(digits).padStart(12)} ${unit}` +
    `${bytesPerFlow ? `   ${bytesPerFlow.toFixed(1)} bytes a flow` : ''}${ratio === null ? '' : `   ${ratio.toFixed(2)} x anchor`}` +
    `${goal === null ? '' : `   goal ${describeGoal({ kind: goalKind, limit: goal })}: ${met ? 'met' : 'MISSED'}`}`);
}

const report = [];
const tables = [];
for (const program of process.argv.slice(2)) {
  const { entries, table } = measure(program);
  const byName = new Map(entries.map((entry) => [entry.run_name, entry]));
  for (const entry of entries) {
    if (!entry.run_name.split('/')[0].endsWith('_Anchor')) report.push(row(entry, byName));
  }
  if (table) tables.push(table);
}
const folder = path.join(here, '../build/bench');
mkdirSync(folder, { recursive: true });
writeFileSync(path.join(folder, 'report.json'), `${JSON.stringify([...report, ...tables.map(tableRow)], null, 2)}\n`);
for (const entry of report) print(entry);
for (const table of tables) console.log(`\n${formatTable(table)}`);
process.exitCode = report.some(({ met }) => met === false) ? 1 : 0;
