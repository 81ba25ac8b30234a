// The medians of the benchmarks that are Node programs.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { Figures, median, percentile } from '../../benchmarks/medians.mjs';

test('a percentile is one of the values, by its rank and not by its text', () => {
  assert.equal(median([10, 9, 100]), 10);
  assert.equal(median([2, 1]), 1);
  const hundred = Array.from({ length: 100 }, (_, i) => 100 - i);
  assert.equal(percentile(hundred, 99), 99);
  assert.equal(percentile(hundred, 100), 100);
  assert.equal(percentile([7], 99), 7);
  assert.throws(() => median([]), /no value/);
});

test('a figure that is no number is refused', () => {
  for (const value of [NaN, Infinity, undefined]) assert.throws(() => new Figures().add('A', 'ms', 1, value), /A is/);
});

test('the print holds the median of each figure', (t) => {
  const lines = [];
  t.mock.method(console, 'log', (line) => lines.push(line));
  const figures = new Figures();
  figures.add('A/64', 'us', 3, 1);
  figures.add('B', 'ms', 5);
  figures.add('A/64', 'us', 2);
  figures.print();
  assert.deepEqual(JSON.parse(lines[0]).benchmarks, [
    { run_name: 'A/64', aggregate_name: 'median', real_time: 2, time_unit: 'us' },
    { run_name: 'B', aggregate_name: 'median', real_time: 5, time_unit: 'ms' }]);
});
