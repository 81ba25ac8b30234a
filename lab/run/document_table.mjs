// Tables of measurements inside a document, each between its own two marks.
import { readFileSync, writeFileSync } from 'node:fs';

const line = (cells) => `| ${cells.join(' | ')} |`;

const writeTable = (header, rows) => [line(header), line(header.map(() => '---')), ...rows.map(line)].join('\n');

/** The rows between the marks in a document's text, each a list of cells. */
export function readTable(document, { begin, end }) {
  const table = document.slice(document.indexOf(begin) + begin.length, document.indexOf(end));
  return table.trim().split('\n').slice(2).map((text) => text.split('|').slice(1, -1).map((cell) => cell.trim()));
}

/** Replaces the table between the marks in a file. */
export function replaceTable(file, { begin, end }, header, rows) {
  const document = readFileSync(file, 'utf8');
  const [before, after] = [document.slice(0, document.indexOf(begin)), document.slice(document.indexOf(end))];
  writeFileSync(file, `${before}${begin}\n${writeTable(header, rows)}\n${after}`);
}
