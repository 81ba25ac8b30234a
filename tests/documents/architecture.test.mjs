// docs/architecture.md agrees with the sources about tree, borders, threads, locks and messages.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { isFile, isFolder, kFiles, kSources, quoted, read, rows, section, sourcesWith } from './sources.mjs';

const kPage = 'docs/architecture.md';
const page = read(kPage);
/** This page, and the pages with the details of its subjects. */
const kDocuments = [kPage, ...['settings', 'lifecycle', 'update', 'check-report'].map((name) => `docs/${name}.md`)];
const unique = (list) => [...new Set(list)].sort();

const firstCells = (title) => rows(section(kPage, title)).map(([cell]) => cell);

test('the tree names every folder and command at the top, and no other', () => {
  const [tree] = /^## The tree\n\n((?: {4}.*\n)+)/m.exec(page).slice(1);
  const named = tree.split('\n').flatMap((line) => line.trim().split(/ {2,}/).slice(0, -1)).filter(Boolean).map((name) => name.replace(/\/$/, ''));
  const top = unique(kFiles.map((file) => file.split('/')[0]));
  const expected = top.filter((name) => !name.startsWith('.') && (isFolder(name) || /^[a-z]+$/.test(name)));
  assert.deepEqual(unique(named), expected);
});

test('the table of folders names each folder of src, in the order of the arrows', () => {
  const folders = unique(kSources.map((file) => file.split('/')[1]));
  const inTable = rows(section(kPage, 'Who calls whom')).map(([cell]) => quoted(cell)[0]);
  assert.deepEqual(unique(inTable), folders);
  const [arrows] = /^ {4}text {2}<-.*$/m.exec(section(kPage, 'Who calls whom'));
  assert.deepEqual(arrows.match(/[a-z]+/g), inTable);
});

test('the sources include only what the arrows allow', () => {
  const [arrows] = /^ {4}text {2}<-.*$/m.exec(section(kPage, 'Who calls whom'));
  const steps = arrows.split('<-').map((step) => step.match(/[a-z]+/g));
  const rank = new Map(steps.flatMap((names, i) => names.map((name) => [name, i])));
  for (const file of kSources) {
    const own = file.split('/')[1];
    for (const [, other] of read(file).matchAll(/^#include "([a-z]+)\//gm)) {
      assert.ok(other === own || rank.get(other) < rank.get(own), `${file} includes ${other}`);
    }
  }
});

test('every file of src that the pages name is there', () => {
  const folders = unique(kSources.map((file) => file.split('/')[1]));
  const named = kDocuments.flatMap((document) => quoted(read(document))).filter((text) => /^[a-z]+\/[a-z0-9_]+$/.test(text) && folders.includes(text.split('/')[0]));
  assert.ok(named.length > 2);
  const isThere = (name) => ['.h', '.cpp', '_win.h', '_win.cpp'].some((end) => isFile(`src/${name}${end}`));
  assert.deepEqual(named.filter((name) => !isThere(name)), []);
});

test('the table of threads names every place that starts one, and no other', () => {
  const starts = /\bStartDetached\(|\bstd::async\(|\bstd::thread\((?!\))|\bthreads_\.emplace_back\(/;
  const places = sourcesWith(starts).filter((file) => file.endsWith('.cpp') && !file.startsWith('platform/detached_thread'));
  const named = rows(section(kPage, 'Threads')).flatMap(([, place]) => quoted(place ?? ''));
  assert.deepEqual(unique(named), unique(places));
});

test('the table of locks names every class that has one, and no other', () => {
  // The class of which it is a member, or the function that owns it.
  const owners = kSources.flatMap((file) => {
    const text = read(file);
    return [...text.matchAll(/^ +(static )?(?:mutable )?(?:(?:platform::)?Mutex|std::(?:recursive_)?mutex) \w+;/gm)]
      .map(({ index, 1: isLocal }) => [...text.slice(0, index)
        .matchAll(isLocal ? /^\S.*?\b(\w+)\(/gm : /^(?:class|struct)(?: CAPABILITY\([^)]*\))? (\w+)/gm)].at(-1)[1]);
  });
  const named = firstCells('Locks').map((cell) => quoted(cell)[0]);
  assert.deepEqual(unique(named), unique(owners.filter((name) => name !== 'Mutex')));
});

test('every message and timer of the window stands in the table of messages, by its name', () => {
  const header = read('src/shell/window_messages.h');
  const known = unique([...header.matchAll(/UINT (k\w+) = WM_APP \+ \d+|UINT_PTR (k\w+Timer) = \d+/g)].map(([, message, timer]) => message ?? timer));
  assert.deepEqual(unique(firstCells("The window's own messages").map((cell) => quoted(cell)[0])), known);
  for (const document of kDocuments) {
    const text = read(document);
    assert.doesNotMatch(text, /WM_APP\s?\+/, document);
    const used = quoted(text).filter((name) => /^k[A-Z]\w+$/.test(name));
    const isThere = (name) => known.includes(name) || sourcesWith(new RegExp(`\\b${name}\\b`)).length > 0;
    assert.deepEqual(used.filter((name) => !isThere(name)), [], document);
  }
});

test('every function, class and constant that the pages name is in the sources', () => {
  const all = [...kSources, ...kFiles.filter((file) => /^(webui|lab|tests)\/.*\.(js|mjs|in|h|cpp)$/.test(file))].map(read).join('\n');
  const named = unique(kDocuments.flatMap((document) => quoted(read(document))).map((text) => text.replace(/\(\)$/, '')).filter((text) => /^[A-Z]\w+(::\w+)*$/.test(text)));
  assert.ok(named.length > 40);
  const isThere = (name) => name.split('::').every((part) => new RegExp(`\\b${part}\\b`).test(all));
  assert.deepEqual(named.filter((name) => !isThere(name)), []);
});
