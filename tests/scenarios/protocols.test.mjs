// The tools that engineers really use, through the tunnel, with real libraries or programs on both sides. Results and
// times are written to build/test/protocols.json and must match docs/protocols.md.
import assert from 'node:assert/strict';
import { readFile, writeFile } from 'node:fs/promises';
import { test } from 'node:test';

import { kRoutes, listUses, Survey } from '../../lab/protocols/survey.mjs';
import { kDocument, kReport, readTable, rowsOf } from '../../lab/run/protocol_table.mjs';
import { connect, scenario } from './scenario.mjs';

const kAtOnce = { clean: 4, lossy: Infinity };
/** Protocols whose request is a message, not a program run, are timed alone, except for held uses. */
const isTimed = ({ name, title, held }) =>
  ['modbus_tcp', 'siemens_s7', 'opc_ua', 'bacnet', 'snmp', 'http'].includes(name) && !held && !title.includes('trap');
const kOptions = {
  clean: { rounds: 20, timeoutMs: 8_000, megabytes: 50 },
  lossy: { rounds: 6, timeoutMs: 20_000, megabytes: 1 },
};
const kLossyLine = { lossPercent: 1, delayMs: 80 };
const kLimits = { timeoutMs: 500_000 };
const kOutcomes = 6;  // the result cells of a row; the rest are times
const kTimes = [6, 7];
const kSlower = 5;  // machines are noisy: only this factor over the documented time is a failure
const kNoiseMs = 100;
const results = [];

/** Runs `body` for each of `items`, `atOnce` of them at a time. */
async function forEach(items, atOnce, body) {
  const waiting = [...items];
  await Promise.all(Array.from({ length: Math.min(atOnce, items.length) }, async () => {
    while (waiting.length > 0) await body(waiting.shift());
  }));
}

/** Uses one row's protocol by one route over one line, and records the result. */
async function useRow(survey, t, conditions, row, route, more = {}) {
  const options = { ...kOptions[conditions.line], ...more };
  const started = performance.now();
  // Whether the setting is needed is known from the clean line.
  const before = results.find((one) => one.title === row.title && one.route === route && one.relay === conditions.relay);
  const outcome = before ? { setting: before.setting, ...await survey.use(row, route, { ...options, setting: before.setting }) }
    : await survey.useAsNeeded(row, route, options);
  results.push({ ...row, ...conditions, route, ...outcome });
  const seconds = ((performance.now() - started) / 1000).toFixed(1);
  const said = [outcome.without, outcome.error].filter(Boolean).join('; ');
  t.diagnostic(`${conditions.line} ${route} ${row.title}: ${outcome.works ? 'works' : 'does not work'}, ${seconds} s ${said}`);
}

/** Uses every protocol by both routes over one line; held uses last all the time. */
async function useAll(survey, t, conditions) {
  const rows = await listUses();
  const use = (row, more) => Promise.all(
    Object.keys(kRoutes).map((route) => useRow(survey, t, conditions, row, route, more)));
  const held = rows.filter((row) => row.held).map((row) => use(row, { hold: true }));
  const alone = conditions.line === 'clean' ? rows.filter(isTimed) : [];
  await forEach(alone, 1, (row) => use(row));
  await forEach(rows.filter((row) => !row.held && !alone.includes(row)), kAtOnce[conditions.line], (row) => use(row));
  await survey.release();
  await Promise.all(held);
}

async function overBothLines(lab, t, relay) {
  const survey = await Survey.start(lab);
  await useAll(survey, t, { relay, line: 'clean' });
  await lab.faults.worsenLine(kLossyLine);
  await useAll(survey, t, { relay, line: 'lossy' });
  await survey.end();
}

const medianOf = (cell) => (cell === '-' ? 0 : Number.parseFloat(cell));

function checkTime(title, seenMs, saidMs) {
  assert.ok(seenMs <= kSlower * saidMs + kNoiseMs, `${title}: ${seenMs} ms, the document says ${saidMs} ms`);
}

scenario('every protocol, small packets by UDP', kLimits, async (lab, program, t) => {
  await connect(program);
  await overBothLines(lab, t, 'udp');
  const { udpFromClient, udpToClient } = await lab.service.counts();
  assert.ok(udpFromClient > 1000 && udpToClient > 1000);
});

scenario('every protocol, only over the WebSocket', kLimits, async (lab, program, t) => {
  await lab.service.setUdp({ helloAnswer: ['none'] });
  await connect(program);
  await overBothLines(lab, t, 'webSocket');
  const { udpFromClient, udpToClient } = await lab.service.counts();
  assert.deepEqual([udpFromClient, udpToClient], [0, 0]);
});

test('the document has the results seen for each protocol', async () => {
  const titles = (await listUses()).map(({ title }) => title);
  results.sort((a, b) => titles.indexOf(a.title) - titles.indexOf(b.title));
  await writeFile(kReport, `${JSON.stringify(results, null, 1)}\n`);
  const said = readTable(await readFile(kDocument, 'utf8'));
  const seen = rowsOf(results);
  const outcomes = (rows) => rows.map((cells) => cells.slice(0, kOutcomes).join(' | '));
  assert.deepEqual(results.filter(({ wrong }) => wrong), [], 'what does not work gives no answer, never a wrong one');
  assert.deepEqual(outcomes(seen), outcomes(said));
  for (const [index, cells] of seen.entries()) {
    for (const column of kTimes) checkTime(cells[0], medianOf(cells[column]), medianOf(said[index][column]));
  }
});
