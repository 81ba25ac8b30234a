// A signed package: the signature is valid, checksums and bill of materials are the signed program's, and it
// still starts. Signs as a test publisher, without a timestamp server. Reconfigures the build folder
// RELEASE_BUILD and restores it: run by ./test release.
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { copyFileSync, readFileSync } from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { configured, kPackedProgram, kReleaseBuild, kRepo, packageIn, sha256, temporaryFolder, unpacked } from './built.mjs';

const kZip = packageIn(kReleaseBuild);
const unsigned = sha256(readFileSync(kZip));
let keys;

const configure = (...settings) => spawnSync('cmake', ['-S', configured('CMAKE_HOME_DIRECTORY'), '-B', kReleaseBuild, ...settings], { encoding: 'utf8' });

/** Rebuilds the package, signed with that key and certificate, or unsigned if they are empty. */
function packageWith(key, certificate) {
  const { status, stderr } = configure(`-DVELMARINE_SIGN_KEY=${key}`, `-DVELMARINE_SIGN_CERTIFICATE=${certificate}`);
  assert.equal(status, 0, stderr);
  execFileSync('cmake', ['--build', kReleaseBuild, '--target', 'package'], { stdio: 'pipe' });
}

before((t) => {
  keys = temporaryFolder(t);
  execFileSync(path.join(kRepo, 'lab/standins/update/make_keys.sh'), [keys]);
  packageWith(path.join(keys, 'publisher.key'), path.join(keys, 'publisher.pem'));
});

after(() => packageWith('', ''));

const verify = (program, authority) => spawnSync('osslsigncode', ['verify', '-CAfile', authority, '-in', program], { encoding: 'utf8' });

test('the program in the package is signed by the publisher, whose certificate is trusted', (t) => {
  const program = path.join(unpacked(t, kZip), 'Velmarine.Client.exe');
  const { status, stdout } = verify(program, path.join(keys, 'authority.pem'));
  assert.equal(status, 0, stdout);
  assert.match(stdout, /CN ?= ?Lab publisher/);
  assert.notEqual(verify(program, path.join(keys, 'unknown.pem')).status, 0);
});

test('an altered byte breaks the signature', (t) => {
  const altered = path.join(temporaryFolder(t), 'altered.exe');
  copyFileSync(kPackedProgram, altered);
  execFileSync('dd', [`of=${altered}`, 'bs=1', 'seek=5000', 'conv=notrunc'], { input: 'x', stdio: ['pipe', 'ignore', 'ignore'] });
  assert.notEqual(verify(altered, path.join(keys, 'authority.pem')).status, 0);
});

test('checksums and bill of materials are the signed program\'s', (t) => {
  assert.notEqual(sha256(readFileSync(kZip)), unsigned);
  const folder = unpacked(t, kZip);
  execFileSync('sha256sum', ['-c', '--quiet', 'SHA256SUMS'], { cwd: folder });
  const bom = JSON.parse(readFileSync(path.join(folder, 'bom.json'), 'utf8'));
  assert.equal(bom.metadata.component.hashes[0].content, sha256(readFileSync(path.join(folder, 'Velmarine.Client.exe'))));
});

test('the signed program starts', (t) => {
  const folder = unpacked(t, kZip);
  // Without a replacement it ends with the exit code for that.
  const { status } = spawnSync('node', [path.join(kRepo, 'lab/run/under_wine.mjs'), '/usr/lib/wine/wine64', 'Velmarine.Client.exe',
    '--apply-update', '0', 'C:\\none.exe', 'C:\\program.exe'], { cwd: folder, timeout: 120_000 });
  const kNoSource = 2;
  assert.equal(status, kNoSource);
});

test('a key without its certificate fails the configuration', () => {
  const { status, stderr } = configure('-DVELMARINE_SIGN_CERTIFICATE=');
  assert.notEqual(status, 0);
  assert.match(stderr, /VELMARINE_SIGN_KEY is set/);
});
