// A table of figures as text. Pure.

/** Three significant digits; no decimals from 100 on. */
export function formatFigure(value) {
  if (value === null || !Number.isFinite(value)) return '-';
  if (value >= 100) return value.toFixed(0);
  return value.toFixed(value >= 10 ? 1 : value >= 1 ? 2 : 3);
}

/** `table` is {columns: [title], rows: [{title, values}]}; one line per row, the columns' titles first. */
export function formatTable({ columns, rows }) {
  const lines = [['', ...columns], ...rows.map(({ title, values }) => [title, ...values.map(formatFigure)])];
  const widths = lines[0].map((_, column) => Math.max(...lines.map((line) => line[column].length)));
  const cell = (text, column) => (column === 0 ? text.padEnd(widths[0]) : text.padStart(widths[column]));
  return lines.map((line) => line.map(cell).join('  ').trimEnd()).join('\n');
}
