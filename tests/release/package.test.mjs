// The published ZIP file: its content, its checksums, and that packing the same files again gives the same
// bytes.
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { cpSync, readFileSync, utimesSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { filesBelow, kPackedProgram, kReleaseBuild, kRepo, kVersion, packageIn, sha256, temporaryFolder, unpacked } from './built.mjs';

const kZip = packageIn(kReleaseBuild);

test('the package contains the program, its documents and the licences required by its parts', (t) => {
  const folder = unpacked(t, kZip);
  assert.deepEqual(filesBelow(folder), [
    'LICENSE.txt', 'SHA256SUMS', 'THIRD-PARTY.md', 'Velmarine.Client.exe', 'bom.json', 'licences/GCC.txt', 'licences/GPL-2.txt',
    'licences/GPL-3.txt', 'licences/LGPL-3.txt', 'licences/mingw-w64.txt', 'user-guide.zh-CN.html']);
  assert.ok(path.basename(folder).startsWith(`Velmarine.Client-${kVersion}-x64`));
  assert.deepEqual(readFileSync(path.join(folder, 'Velmarine.Client.exe')), readFileSync(kPackedProgram));
});

test('each licence is the whole text', (t) => {
  const folder = path.join(unpacked(t, kZip), 'licences');
  const texts = {
    'GPL-2.txt': [/GNU GENERAL PUBLIC LICENSE\s+Version 2/, /END OF TERMS AND CONDITIONS/],
    'GPL-3.txt': [/GNU GENERAL PUBLIC LICENSE\s+Version 3/, /END OF TERMS AND CONDITIONS/],
    'LGPL-3.txt': [/GNU LESSER GENERAL PUBLIC LICENSE\s+Version 3/, /6\. Revised Versions/],
    'GCC.txt': [/GCC RUNTIME LIBRARY EXCEPTION\s+Version 3\.1/, /- libssp/, /- libstdc\+\+-v3/],
    'mingw-w64.txt': [/License: ZPL-2\.1/, /mingw-w64-libraries\/winpthreads/, /License: expat/, /License: BSD-3-clause-Lockless/],
  };
  for (const [name, patterns] of Object.entries(texts)) {
    const text = readFileSync(path.join(folder, name), 'utf8');
    for (const pattern of patterns) assert.match(text, pattern, name);
  }
});

test('SHA256SUMS lists every other file of the package, and sha256sum confirms them', (t) => {
  const folder = unpacked(t, kZip);
  const sums = readFileSync(path.join(folder, 'SHA256SUMS'), 'utf8').trimEnd().split('\n').map((line) => line.slice(66));
  assert.deepEqual(sums, filesBelow(folder).filter((name) => name !== 'SHA256SUMS'));
  const check = () => spawnSync('sha256sum', ['-c', 'SHA256SUMS'], { cwd: folder, encoding: 'utf8' });
  assert.equal(check().status, 0);
  writeFileSync(path.join(folder, 'THIRD-PARTY.md'), 'altered');
  assert.match(check().stdout, /^THIRD-PARTY\.md: FAILED$/m);
});

/** Packs two small files, and returns the hash of the ZIP file. */
function packed(t, { reversed, time, umask, zone }) {
  const folder = temporaryFolder(t);
  const names = reversed ? ['b', 'a/c'] : ['a/c', 'b'];
  for (const name of names) {
    const file = path.join(folder, path.basename(name));
    writeFileSync(file, `contents of ${name}`);
    utimesSync(file, time, time);
  }
  writeFileSync(path.join(folder, 'list'), names.map((name) => `${name} ${path.join(folder, path.basename(name))}\n`).join(''));
  cpSync(path.join(kRepo, 'packaging/make_zip.sh'), path.join(folder, 'make_zip.sh'));
  execFileSync('bash', ['-c', `umask ${umask}; ./make_zip.sh list folder out.zip`], { cwd: folder, env: { ...process.env, TZ: zone } });
  return sha256(readFileSync(path.join(folder, 'out.zip')));
}

test('packing does not depend on order, file times, permissions or time zone', (t) => {
  const one = packed(t, { reversed: false, time: 1e9, umask: '022', zone: 'UTC' });
  assert.equal(packed(t, { reversed: true, time: 1.5e9, umask: '077', zone: 'Asia/Shanghai' }), one);
});

test('a missing file of the package is an error', (t) => {
  const folder = temporaryFolder(t);
  writeFileSync(path.join(folder, 'list'), `name ${folder}/absent\n`);
  const { status, stderr } = spawnSync(path.join(kRepo, 'packaging/make_zip.sh'), ['list', 'folder', 'out.zip'], { cwd: folder, encoding: 'utf8' });
  assert.equal(status, 1);
  assert.match(stderr, /absent is missing/);
});
