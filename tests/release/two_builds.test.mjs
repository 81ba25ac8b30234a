// The same sources make the same program and package in any folder. Takes minutes: run by ./test release, which
// uses the first build for its other tests.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdirSync, readFileSync, rmSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { kBuild } from '../../lab/harness/paths.mjs';
import { kRepo, packageIn, sha256 } from './built.mjs';

const kSettings = ['-DVELMARINE_DRIVER=lab', '-DCMAKE_UNITY_BUILD=ON', '-DCMAKE_UNITY_BUILD_BATCH_SIZE=12',
  '-DVELMARINE_DOWNLOAD_URL=https://downloads.example.com/velmarine'];

// The two builds differ in all that must not matter: the folder, the time zone and, by minutes, the time.
const kBuilds = [
  { name: 'one', zone: 'UTC' },
  { name: 'another/with-a-much-longer-path', zone: 'Asia/Shanghai' },
];

/** Copies the files known to git, builds the package with the lab's driver there, and returns the build folder. */
function build({ name, zone }) {
  const folder = path.join(kBuild, 'two-builds', name);
  rmSync(folder, { recursive: true, force: true });
  mkdirSync(folder, { recursive: true });
  const { SOURCE_DATE_EPOCH: _, ...environment } = process.env;
  const inFolder = { cwd: folder, env: { ...environment, TZ: zone }, stdio: ['ignore', 'pipe', 'pipe'] };
  execFileSync('bash', ['-c', `git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents -t '${folder}'`], { cwd: kRepo });
  execFileSync('cmake', ['--preset', 'windows-release', ...kSettings], inFolder);
  execFileSync('cmake', ['--build', '--preset', 'windows-release', '--target', 'package'], inFolder);
  return path.join(folder, 'build/windows-release');
}

test('two builds in different folders are the same, byte for byte', () => {
  const [one, other] = kBuilds.map(build);
  for (const file of ['packaging/Velmarine.Client.exe', 'Velmarine.Client.debug', 'lab/driver/WinDivert.dll', 'packaging/bom.json',
    'packaging/user-guide.zh-CN.html']) {
    assert.equal(sha256(readFileSync(path.join(other, file))), sha256(readFileSync(path.join(one, file))), file);
  }
  assert.equal(path.basename(packageIn(other)), path.basename(packageIn(one)));
  assert.equal(sha256(readFileSync(packageIn(other))), sha256(readFileSync(packageIn(one))));
});
