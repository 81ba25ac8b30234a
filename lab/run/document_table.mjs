// Tables of measured things inside a document, each between two marks of its own.
import { readFileSync, writeFileSync } from 'node:fs';

const line = (cells) => `| ${cells.join(' | ')} |`;

const writeTable = (header, rows) => [line(header), line(header.map(() => '---')), ...rows.map(line)].join('\n');

/** The rows that a document's text holds between the marks, each a list of cells. */
export function readTable(document, { begin, end }) {
  const table = document.slice(document.indexOf(begin) + begin.length, document.indexOf(end));
  return table.trim().split('\n').slice(2).map((text) => text.split('|').slice(1, -1).map((cell) => cell.trim()));
}

/** Writes a table in the place of what the file has between the marks. */
export function replaceTable(file, { begin, end }, header, rows) {
  const document = readFileSync(file, 'utf8');
  const [before, after] = [document.slice(0, document.indexOf(begin)), document.slice(document.indexOf(end))];
  writeFileSync(file, `${before}${begin}\n${writeTable(header, rows)}\n${after}`);
}
