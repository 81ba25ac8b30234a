// The soak's verdict on the protocols at work, with scripted uses.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { kServed, Work, writeTable } from '../run/soak/work.mjs';

const kRight = { works: true, requestMs: [1, 2, 3] };
const kLost = { works: false, requestMs: [], error: 'nothing within 8000 ms', wrong: false };
const kWrong = { works: false, requestMs: [], error: 'wanted 1, got 2', wrong: true };
const kSince = { fromMs: 0, untilMs: Infinity };

/** Works until each protocol was used `uses` times; uses of `title` return `results` first, then those added to `left`. */
async function workThrough(title, results, uses = 2) {
  const left = [...results];
  const routes = new Map();
  let enough;
  const done = new Promise((resolve) => { enough = resolve; });
  const work = new Work({
    async use(row, route) {
      routes.set(row.title, [...routes.get(row.title) ?? [], route]);
      if ([...routes.values()].every((used) => used.length >= uses)) enough();
      return row.title === title ? left.shift() ?? kRight : kRight;
    },
    async release() {},
  });
  await done;
  await work.stop();
  return { work, routes, left };
}

const rowOf = (report, title) => report.find((row) => row.title === title);

test('each protocol is used by both routes in turn, and its answers are counted', async () => {
  const { work, routes } = await workThrough('Siemens S7', []);
  const report = work.report([]);
  assert.ok(report.length >= 8 && kServed.length >= 8);
  for (const { title, uses, requests, failures, reconnects, wrong, unexplained } of report) {
    assert.deepEqual(routes.get(title).slice(0, 2), ['direct', 'NAT'], title);
    assert.deepEqual([requests, reconnects], [3 * uses, 0], title);
    assert.deepEqual([failures, wrong, unexplained], [[], [], []], title);
  }
});

test('a failed use is explained by a current fault or one that ended within a time-out', async () => {
  const { work } = await workThrough('SNMP v2c', [kLost]);
  const [{ atMs }] = rowOf(work.report([]), 'SNMP v2c').failures;
  const unexplained = (...faults) => rowOf(work.report(faults), 'SNMP v2c').unexplained.length;
  assert.equal(unexplained(), 1);
  assert.equal(unexplained(kSince), 0);
  assert.equal(unexplained({ fromMs: atMs + 1, untilMs: Infinity }), 1, 'a later fault');
  assert.equal(unexplained({ fromMs: 0, untilMs: atMs - 9_900 }), 0);
  assert.equal(unexplained({ fromMs: 0, untilMs: atMs - 10_100 }), 1, 'an earlier fault');
  assert.equal(rowOf(work.report([]), 'SNMP v2c').reconnects, 1);
});

test('no fault excuses a wrong answer', async () => {
  const { work } = await workThrough('OPC UA', [kWrong]);
  const report = work.report([kSince]);
  const { wrong, unexplained } = rowOf(report, 'OPC UA');
  assert.deepEqual([wrong.length, unexplained.length], [1, 0]);
  assert.match(writeTable(report), /OPC UA, direct, answered wrongly at [\d.]+ s: wanted 1, got 2/);
});

test('the last uses show which protocol does not work, and by which route', async () => {
  const { work, left } = await workThrough('SSH', []);
  const failures = async (...results) => {
    left.push(...results);
    return (await work.useAll()).filter(({ works }) => !works).map(({ title, route, tries }) => ({ title, route, tries }));
  };
  assert.deepEqual(await failures(), []);
  assert.deepEqual(await failures(kLost), [], 'a second try');
  assert.deepEqual(await failures(kRight, kLost, kLost, kLost), [{ title: 'SSH', route: 'NAT', tries: 3 }]);
  assert.deepEqual(await failures(kWrong), [{ title: 'SSH', route: 'direct', tries: 1 }], 'no second try');
});
