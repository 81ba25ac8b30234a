// The table that ends ./bench tunnel.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { formatFigure, formatTable } from '../../benchmarks/text_table.mjs';

test('figures have three digits that count', () => {
  const shown = [[0.0424, '0.042'], [1.234, '1.23'], [12.34, '12.3'], [123.4, '123'], [123456.7, '123457'], [null, '-'], [NaN, '-']];
  for (const [value, text] of shown) assert.equal(formatFigure(value), text);
});

test('columns are as wide as what stands in them, and figures end below each other', () => {
  assert.equal(formatTable({
    columns: ['ours', 'a long title'],
    rows: [{ title: 'up', values: [1000, 2] }, { title: 'ping, idle', values: [0.1, 12345] }],
  }), [
    '             ours  a long title',
    'up           1000          2.00',
    'ping, idle  0.100         12345',
  ].join('\n'));
});

test('a table without rows is its head', () => {
  assert.equal(formatTable({ columns: ['a'], rows: [] }), '  a');
});
