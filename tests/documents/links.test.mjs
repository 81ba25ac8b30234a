// Links, pictures and commands in the documents lead somewhere.
import assert from 'node:assert/strict';
import path from 'node:path';
import { test } from 'node:test';

import { anchor, codeBlocks, isFile, isFolder, kDocuments, kFiles, quoted, read, rows } from './sources.mjs';

const withoutCode = (text) => text.replaceAll(/`[^`]*`/g, '');
const headings = (document) => [...read(document).matchAll(/^#+ (.+)$/gm)].map(([, title]) => anchor(title.replaceAll('`', '')));

/** [document, target] of every link except web addresses. */
const links = kDocuments.flatMap((document) => [...withoutCode(read(document)).matchAll(/\]\(([^)\s]+)\)/g)]
  .map(([, target]) => ({ document, target: decodeURI(target) })).filter(({ target }) => !/^\w+:/.test(target)));

const leadsTo = ({ document, target }) => {
  const [file, heading] = target.split('#');
  const name = file === '' ? document : path.posix.join(path.posix.dirname(document), file);
  if (!isFile(name) && !isFolder(name)) return false;
  return heading === undefined || headings(name).includes(heading);
};

test('every link and picture leads to an existing file and heading', () => {
  assert.ok(links.length > 50, `${links.length} links were read`);
  assert.deepEqual(links.filter((link) => !leadsTo(link)), []);
});

test('every picture is shown', () => {
  const shown = new Set(links.map(({ document, target }) => path.posix.join(path.posix.dirname(document), target)));
  assert.deepEqual(kFiles.filter((file) => file.startsWith('docs/images/') && !shown.has(file)), []);
});

test('both front pages link every document', () => {
  const linked = (page) => links.filter(({ document }) => document === page).map(({ target }) => target.split('#')[0]);
  const all = kFiles.filter((file) => /^docs\/[^/]+\.md$/.test(file) || ['CONTRIBUTING.md', 'CHANGELOG.md', 'THIRD-PARTY.md', 'LICENSE'].includes(file));
  for (const page of ['README.md', 'README.zh-CN.md']) {
    assert.deepEqual(all.filter((file) => !linked(page).includes(file)), [], page);
  }
});

// ---- commands

/** The commands in a document: lines of code, and commands between backticks. */
const commands = kDocuments.flatMap((document) =>
  [...codeBlocks(document).flat(), ...quoted(read(document))].map((text) => ({ document, text: text.replace(/\s+#.*$/, '') })));
const found = (pattern) => commands.flatMap(({ document, text }) =>
  [...text.matchAll(pattern)].map((match) => ({ document, text, name: match[1] })));

test('every named preset exists', () => {
  const presets = JSON.parse(read('CMakePresets.json')).configurePresets.map(({ name }) => name);
  const named = found(/--preset[ =]([\w-]+)/g);
  assert.ok(named.length > 5);
  assert.deepEqual(named.filter(({ name }) => !presets.includes(name) && name !== 'PRESET'), []);
});

test('every named part of ./test exists', () => {
  const parts = [...read('test').matchAll(/^ {2}(\w+)\) /gm)].map(([, name]) => name);
  const named = found(/\.\/test ([a-z]\w*)/g);
  assert.ok(parts.length > 6 && named.length > 8);
  assert.deepEqual(named.filter(({ name }) => !parts.includes(name)), []);
});

test('every script and file in a command exists', () => {
  const named = [...found(/\bnode (?:--?\S+ )*([\w./-]+\.mjs)/g), ...found(/-P ([\w./-]+\.cmake)/g),
    ...found(/(?:^|\s)((?:lab|tests|packaging|fuzz|benchmarks)\/[\w./-]+\.(?:sh|mjs|cmake|py))/g)];
  assert.ok(named.length > 5);
  const beside = ({ document, name }) => path.posix.join(path.posix.dirname(document), name);
  assert.deepEqual(named.filter((one) => !isFile(one.name) && !isFile(beside(one))), []);
});

test('every file or folder in backticks exists', () => {
  const roots = ['src', 'lab', 'tests', 'docs', 'fuzz', 'benchmarks', 'webui', 'resources', 'cmake', 'packaging'];
  const named = kDocuments.flatMap((document) => quoted(read(document))
    .filter((text) => roots.some((root) => text.startsWith(`${root}/`)) && /^[\w./-]+$/.test(text) && !/[A-Z]{4}|\.exe$/.test(text))
    .map((name) => ({ document, name })));
  assert.ok(named.length > 20);
  // A pair of files is named without its extension, and `lab`, `tests` and `webui` may be folders of src or tests.
  const isThere = ({ name }) => isFolder(name) || ['', '.cpp', '.h', '_win.cpp', '_win_test.cpp']
    .some((end) => isFile(name + end) || isFile(`src/${name}${end}`));
  assert.deepEqual(named.filter((one) => !isThere(one)), []);
});

test('every test or function named behind its file exists, an ellipsis standing for the rest of its name', () => {
  const named = kDocuments.flatMap((document) =>
    [...read(document).matchAll(/`([a-z_]+(?:\/[a-z0-9_]+)+)` ([A-Z]\w+)(…?)/g)].map(([, file, name, rest]) => ({ document, file, name, rest })));
  assert.ok(named.length > 15);
  const isThere = ({ file, name, rest }) => [`tests/${file}_test.cpp`, `tests/${file}_win_test.cpp`, `src/${file}.cpp`]
    .some((place) => isFile(place) && new RegExp(`\\b${name}${rest ? '' : '\\b'}`).test(read(place)));
  assert.deepEqual(named.filter((one) => !isThere(one)), []);
});

test('the page for the first day names only checks of the report', () => {
  const checks = [...read('src/checks/real_checks_win.cpp').matchAll(/\{"([a-z0-9-]+)",/g)].map(([, name]) => name);
  const named = rows(read('docs/first-day-on-windows.md')).flatMap(([, , see]) => quoted(see ?? ''))
    .filter((name) => /^[a-z0-9]+(-[a-z]+)*$/.test(name));
  assert.ok(checks.length > 15 && named.length > 8, `${checks} ${named}`);
  assert.deepEqual(named.filter((name) => !checks.includes(name)), []);
});
