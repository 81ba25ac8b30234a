// A benchmark's goal is found by name or pattern, and met by a figure below or above its limit.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';

import { describeGoal, findGoal, isMet } from '../../benchmarks/goals.mjs';

test('a bare number is the most that a figure may reach', () => {
  assert.deepEqual(findGoal({ 'Inbound/1000': 3 }, 'Inbound/1000'), { kind: 'atMost', limit: 3 });
});

test('a figure without a goal has none', () => {
  assert.equal(findGoal({ 'Inbound/1000': 3, 'Tunnel*': 1 }, 'Inbound/100'), null);
  assert.equal(findGoal({}, 'toString'), null);
});

test("a figure's own name counts before patterns, and the first pattern before the others", () => {
  const goals = { 'Open*Ping*': { atLeast: 1 }, 'Open*': { atMost: 1 }, OpenPing: { atLeast: 2 } };
  assert.deepEqual(findGoal(goals, 'OpenPing'), { kind: 'atLeast', limit: 2 });
  assert.deepEqual(findGoal(goals, 'OpenUdpPing99'), { kind: 'atLeast', limit: 1 });
  assert.deepEqual(findGoal(goals, 'OpenUdpUp'), { kind: 'atMost', limit: 1 });
  assert.equal(findGoal(goals, 'ReOpenUp'), null);
});

test('only the star of a pattern has a meaning', () => {
  assert.equal(findGoal({ 'A.B*': 1 }, 'AxB'), null);
  assert.deepEqual(findGoal({ 'A.B/(1)*': 1 }, 'A.B/(1)'), { kind: 'atMost', limit: 1 });
});

test('a goal that cannot be read is an error', () => {
  assert.throws(() => findGoal({ A: { atleast: 1 } }, 'A'), /goal of A/);
  assert.throws(() => findGoal({ A: { atLeast: '1' } }, 'A'), /goal of A/);
});

const kCases = [
  // kind, limit, value, anchor, met
  ['atMost', 3, 29, 10, true], ['atMost', 3, 31, 10, false], ['atMost', 3, 3, null, true], ['atMost', 3, 4, null, false],
  ['atLeast', 0.9, 9, 10, true], ['atLeast', 0.9, 8.9, 10, false], ['atLeast', 5, 5, null, true], ['atLeast', 5, 4, null, false],
  ['atMostAbove', 0.5, 1.5, 1, true], ['atMostAbove', 0.5, 1.6, 1, false], ['atMostAbove', 0.5, 0.1, 1, true],
  ['atMostAbove', 0.5, 0.1, null, false],
];
for (const [kind, limit, value, anchor, met] of kCases) {
  test(`${describeGoal({ kind, limit })} is ${met ? 'met' : 'missed'} by ${value} beside ${anchor}`, () => {
    assert.equal(isMet({ kind, limit }, value, anchor), met);
  });
}

test('no goal is met by a figure that is no number', () => {
  for (const kind of ['atMost', 'atLeast', 'atMostAbove']) assert.equal(isMet({ kind, limit: 1 }, NaN, 1), false);
});

test('every goal in goals.json can be read', () => {
  const goals = JSON.parse(readFileSync(new URL('../../benchmarks/goals.json', import.meta.url), 'utf8'));
  for (const name of Object.keys(goals)) assert.ok(findGoal(goals, name.replaceAll('*', 'Up')), name);
});
