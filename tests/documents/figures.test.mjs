// Figures in the documents agree with the commands that count them.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { test } from 'node:test';

import { kFiles, kRoot, quoted, read, rows, section } from './sources.mjs';

/** The deviation at which the page must be updated. */
const kTolerance = 0.1;

test('the counts in docs/testing.md are approximately right', () => {
  const counts = rows(section('docs/testing.md', 'How much')).filter((row) => row.length === 3);
  assert.ok(counts.length >= 6);
  for (const [what, figure, command] of counts) {
    const counted = Number(execFileSync('bash', ['-c', quoted(command.replaceAll('\\|', '|'))[0]], { cwd: kRoot, encoding: 'utf8' }));
    const said = Number(figure);
    assert.ok(Math.abs(counted - said) <= said * kTolerance, `${what}: the page says ${said}, the command ${counted}`);
  }
});

test('every fuzz target has a row that describes it', () => {
  const targets = kFiles.map((file) => /^fuzz\/(\w+)_fuzz\.cpp$/.exec(file)?.[1]).filter(Boolean);
  const table = section('docs/testing.md', 'Fuzzing');
  const named = rows(table.slice(table.indexOf('| target |'))).flatMap(([cell]) => quoted(cell));
  assert.deepEqual([...new Set(named)].sort(), targets.sort());
});

test('the documents name every build option of a deployment', () => {
  const variables = [...read('CMakeLists.txt').matchAll(/^set\((VELMARINE_\w+) /gm)].map(([, name]) => name)
    .filter((name) => name !== 'VELMARINE_SANITIZE');
  const documents = kFiles.filter((file) => file.endsWith('.md')).map(read).join('\n');
  assert.deepEqual(variables.filter((name) => !documents.includes(name)), []);
});

test('the version of the newest entry in CHANGELOG.md is the one that is built', () => {
  const [, version] = /VELMARINE_VERSION "([\d.]+)"/.exec(read('CMakeLists.txt'));
  const [, newest] = /^## ([\d.]+)/m.exec(read('CHANGELOG.md'));
  assert.equal(newest, version);
});
