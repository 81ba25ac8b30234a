// The benchmarks' report is readable with any counter values.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { parseReport } from '../../benchmarks/report_text.mjs';

for (const number of ['NaN', '-nan', 'nan', 'inf', '-inf', 'Infinity', '-Infinity']) {
  test(`a counter that is ${number} is no number`, () => {
    assert.deepEqual(parseReport(`{"benchmarks": [{"name": "A", "bytes_per_flow": ${number},\n "real_time": 1.5e+00}, {"x": ${number}\n}]}`),
      { benchmarks: [{ name: 'A', bytes_per_flow: null, real_time: 1.5 }, { x: null }] });
  });
}

test('texts stay as they are', () => {
  const report = { name: 'NaN', label: 'a ": NaN', more: ['"x": inf }', 'nan'] };
  assert.deepEqual(parseReport(JSON.stringify(report)), report);
});
