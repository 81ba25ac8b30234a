// The project's files and sources, with which the documents are compared.
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

export const kRoot = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');

/** Every file of the project, including uncommitted ones, as paths from its root. */
export const kFiles = execFileSync('git', ['ls-files', '--cached', '--others', '--exclude-standard'],
  { cwd: kRoot, encoding: 'utf8' }).trim().split('\n');

const kFolders = new Set(kFiles.flatMap((file) => {
  const parts = file.split('/').slice(0, -1);
  return parts.map((_, depth) => parts.slice(0, depth + 1).join('/'));
}));

export const isFile = (name) => kFiles.includes(name);
export const isFolder = (name) => kFolders.has(name.replace(/\/$/, ''));
export const read = (name) => readFileSync(path.join(kRoot, name), 'utf8');

export const kDocuments = kFiles.filter((file) => file.endsWith('.md'));
export const kSources = kFiles.filter((file) => /^src\/.*\.(cpp|h)$/.test(file));

/** The section of a document below the heading `title`, up to the next heading of its level. */
export function section(document, title) {
  const text = read(document);
  const start = text.search(new RegExp(`^## ${title}$`, 'm'));
  if (start < 0) throw new Error(`${document} has no section "${title}".`);
  const end = text.indexOf('\n## ', start);
  return text.slice(start, end < 0 ? undefined : end);
}

/** The rows of the tables in a text, each a list of cells, without headings. */
export function rows(text) {
  const lines = text.split('\n').map((line) => line.trim());
  const isRow = (line) => line?.startsWith('|') ?? false;
  return lines.filter((line, i) => isRow(line) && !/^\|[\s|:-]+\|$/.test(line) && !/^\|[\s|:-]+\|$/.test(lines[i + 1] ?? ''))
    .map((line) => line.split(/(?<!\\)\|/).slice(1, -1).map((cell) => cell.trim()));
}

/** The texts between backticks. */
export const quoted = (text) => [...text.matchAll(/`([^`]+)`/g)].map(([, inside]) => inside);

/** The indented code blocks of a document, each a list of lines. */
export function codeBlocks(document) {
  const blocks = [];
  let inside = false;
  const lines = read(document).split('\n');
  lines.forEach((line, i) => {
    const isCode = line.startsWith('    ') && line.trim() !== '';
    if (isCode && !inside && (lines[i - 1] ?? '').trim() === '') blocks.push([]);
    if (isCode && (inside || (lines[i - 1] ?? '').trim() === '')) {
      blocks.at(-1).push(line.slice(4));
      inside = true;
    } else if (line.trim() !== '') inside = false;
  });
  return blocks;
}

/** The anchor of a heading on the web site that shows the documents. */
export const anchor = (heading) => heading.replace(/\[([^\]]*)\]\([^)]*\)/g, '$1').toLowerCase()
  .replaceAll(/[^\p{L}\p{N}\p{M} _-]/gu, '').replaceAll(' ', '-');

/** Files of `src` that match a pattern, without the folder's name. */
export const sourcesWith = (pattern) => kSources.filter((file) => pattern.test(read(file)))
  .map((file) => file.slice('src/'.length));
