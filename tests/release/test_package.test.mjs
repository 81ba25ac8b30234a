// The tests packed for Windows: unpacked into a folder with blanks and Chinese letters, one command runs all of
// them there, except those named in tests/wine_only.txt.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdirSync, readFileSync, renameSync, statSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { before, test } from 'node:test';

import { kBuild, kLabSuffix } from '../../lab/harness/paths.mjs';
import { filesBelow, kRepo, temporaryFolder, unpacked } from './built.mjs';

const kZip = path.join(kBuild, 'windows/Velmarine.Client-tests.zip');
const kLeftOut = readFileSync(path.join(kRepo, 'tests/wine_only.txt'), 'utf8').split('\n')
  .filter((line) => line !== '' && !line.startsWith('#')).map((line) => line.split(' '));
const kPrograms = ['checks', 'diag', 'packet_allocations', 'page', 'platform', 'remote', 'service', 'settings', 'shell', 'text', 'tunnel', 'update', 'webview'];

/** Runs a Windows command line in `folder`, in the tests' own Wine. */
const inWine = (folder, ...command) => spawnSync('node', [path.join(kRepo, 'lab/run/under_wine.mjs'), '/usr/lib/wine/wine64', ...command],
  { cwd: folder, encoding: 'utf8', timeout: 580_000 });

let folder;
before((t) => {
  folder = path.join(temporaryFolder(t), '测试 of the 客户端');
  renameSync(unpacked(t, kZip), folder);
});

test('every excluded test exists and has a reason', () => {
  for (const program of new Set(kLeftOut.map(([name]) => name))) {
    const { stdout } = inWine(folder, `tests\\${program}.exe`, '--gtest_list_tests');
    const suites = new Set([...stdout.matchAll(/^(\w+\.)\r?$/gm)].map(([, name]) => name));
    assert.ok(suites.size > 3, program);
    for (const [, filter, ...reason] of kLeftOut.filter(([name]) => name === program)) {
      const [suite, name] = filter.split(/(?<=\.)/);
      assert.ok(suites.has(suite), filter);
      assert.ok(name === '*' || new RegExp(`^  ${name}\r?$`, 'm').test(stdout), filter);
      assert.ok(reason.length > 0, filter);
    }
  }
});

/** Each failed test's whole output, and the last line. */
const failuresIn = (results) => [...results.matchAll(/^\[ RUN {6}\] (?:(?!^\[ RUN)[^])*?^\[  FAILED  \].*$/gm), results.slice(-200)].join('\n');

/** Registry keys that Windows' own library writes when it first verifies a signature: empty stores and its policy. */
const isOfTheSystem = (key) => /^\[Software\\\\Microsoft\\\\(SystemCertificates|Windows\\\\CurrentVersion\\\\Wintrust)\\\\/.test(key);

/** The user's data in this Wine: files, except temporary ones, and registry values. */
function userState() {
  const prefix = path.join(kBuild, `lab-unit${kLabSuffix}/prefix`);
  const users = path.join(prefix, 'drive_c/users');
  const files = filesBelow(users).filter((name) => !/\/Temp\//.test(name)).map((name) => [name, statSync(path.join(users, name)).mtimeMs]);
  const values = readFileSync(path.join(prefix, 'user.reg'), 'latin1').split('\n\n').map((key) => key.split('\n')
    .filter((line) => !line.startsWith('#')).map((line) => line.replace(/^(\[.*\]) \d+$/, '$1')).join('\n')).filter((key) => !isOfTheSystem(key));
  return { files, values };
}

test('run-tests.cmd runs all programs in their folder, and ends with one summary line', () => {
  const before = userState();
  const { status } = inWine(folder, 'cmd', '/c', 'run-tests.cmd');
  assert.deepEqual(userState(), before, "what is the user's own stays as it was");
  const results = readFileSync(path.join(folder, 'results.txt'), 'latin1');
  const ran = [...results.matchAll(/^==== (\w+)_test/gm)].map(([, name]) => name);
  assert.deepEqual(ran.sort(), kPrograms);
  assert.equal(results.trimEnd().split('\r\n').at(-1), `${kPrograms.length} programs passed, 0 failed`, failuresIn(results));
  assert.equal(status, 0);
  assert.equal(results.match(/\[  PASSED  \] \d+ tests?\./g).length, kPrograms.length);
  for (const [, filter] of kLeftOut) assert.ok(!results.includes(`[ RUN      ] ${filter.replace('*', '')}`), filter);
});

test('a failing program is named at the end, and shows in the exit code', (t) => {
  const small = path.join(temporaryFolder(t), '少 few');
  mkdirSync(path.join(small, 'tests'), { recursive: true });
  for (const name of ['run-tests.cmd', 'wine_only.txt']) writeFileSync(path.join(small, name), readFileSync(path.join(folder, name)));
  writeFileSync(path.join(small, 'tests/text_test.exe'), readFileSync(path.join(folder, 'tests/text_test.exe')));
  // An invalid program cannot be started, like one with a missing library.
  writeFileSync(path.join(small, 'tests/broken_test.exe'), 'no program');
  const { status } = inWine(small, 'cmd', '/c', 'run-tests.cmd');
  const lines = readFileSync(path.join(small, 'results.txt'), 'latin1').trimEnd().split('\r\n');
  assert.equal(lines.at(-1), '1 programs passed, 1 failed: broken_test');
  assert.equal(status, 1);
});
