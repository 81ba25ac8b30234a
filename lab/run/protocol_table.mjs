// The table of docs/protocols.md, from the scenario's results: one row for each way of using a protocol.
// Usage: node lab/run/protocol_table.mjs   writes the table from build/test/protocols.json into the document.
import { readFileSync } from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { readTable as readTableBetween, replaceTable } from './document_table.mjs';
import { kBuild, kRepo } from '../harness/paths.mjs';
import { percentiles } from '../protocols/survey.mjs';

export const kReport = path.join(kBuild, 'test/protocols.json');
export const kDocument = path.join(kRepo, 'docs/protocols.md');

const kHeader = ['protocol', 'direct', 'NAT', 'UDP relay', 'WebSocket only', 'lossy line',
  'clean: median, 99 %', 'lossy: median, 99 %'];
const kMarks = { begin: '<!-- made by lab/run/protocol_table.mjs -->', end: '<!-- up to here -->' };

/** "yes", "setting" if one of them needs it, "in part" if only some work, "no" if none works. */
function outcomeOf(results) {
  if (results.length === 0) return '-';
  const working = results.filter(({ works }) => works);
  if (working.length === 0) return 'no';
  if (working.length < results.length) return 'in part';
  return working.some(({ setting }) => setting) ? 'setting' : 'yes';
}

function timesOf(results) {
  const times = results.flatMap(({ requestMs }) => requestMs);
  if (times.length === 0) return '-';
  const { medianMs, p99Ms } = percentiles(times);
  return [medianMs, p99Ms].map((ms) => `${ms < 10 ? ms.toFixed(1) : Math.round(ms)} ms`).join(', ');
}

/** The table's rows, each a list of cells, from the scenario's `results`. */
export function rowsOf(results) {
  return [...new Set(results.map(({ title }) => title))].map((title) => {
    const own = results.filter((one) => one.title === title);
    const by = (name, value) => own.filter((one) => one[name] === value);
    const [clean, lossy] = [by('line', 'clean'), by('line', 'lossy')];
    return [title, outcomeOf(by('route', 'direct')), outcomeOf(by('route', 'NAT')),
      outcomeOf(clean.filter(({ relay }) => relay === 'udp')),
      outcomeOf(clean.filter(({ relay }) => relay === 'webSocket')), outcomeOf(lossy),
      timesOf(clean), timesOf(lossy)];
  });
}

/** The rows in the document. */
export const readTable = (document) => readTableBetween(document, kMarks);

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  replaceTable(kDocument, kMarks, kHeader, rowsOf(JSON.parse(readFileSync(kReport, 'utf8'))));
}
