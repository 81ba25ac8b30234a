// The subject of the release tests: a build folder (RELEASE_BUILD, by default the lab's) in which the target
// `package` was built.
import { execFileSync } from 'node:child_process';
import { createHash } from 'node:crypto';
import { mkdtempSync, readdirSync, readFileSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';

import { kBuild, kRepo } from '../../lab/harness/paths.mjs';

export { kRepo };
export const kReleaseBuild = path.resolve(process.env.RELEASE_BUILD ?? path.join(kBuild, 'windows'));

/** A value of the build's configuration. */
export function configured(name) {
  const cache = readFileSync(path.join(kReleaseBuild, 'CMakeCache.txt'), 'utf8');
  return new RegExp(`^${name}:\\w+=(.*)$`, 'm').exec(cache)?.[1];
}

export const kVersion = configured('VELMARINE_VERSION');
export const kPackedProgram = path.join(kReleaseBuild, 'packaging/Velmarine.Client.exe');
export const kSymbols = path.join(kReleaseBuild, 'Velmarine.Client.debug');

/** The folder of the embedded driver files. */
export const kDriverFolder = configured('VELMARINE_DRIVER') === 'lab' ? path.join(kReleaseBuild, 'lab/driver') : configured('VELMARINE_DRIVER_DIR');

/** The ZIP file in a build folder. */
export function packageIn(build) {
  const names = readdirSync(build).filter((name) => /^Velmarine\.Client-[\d.]+-x64(-lab)?\.zip$/.test(name));
  if (names.length !== 1) throw new Error(`${build} holds ${names.length} packages.`);
  return path.join(build, names[0]);
}

export const sha256 = (bytes) => createHash('sha256').update(bytes).digest('hex');

/** Unpacks `zip` into a new folder, removed after the test, and returns the one folder in it. */
export function unpacked(t, zip) {
  const folder = temporaryFolder(t);
  execFileSync('cmake', ['-E', 'tar', 'xf', zip], { cwd: folder });
  const [name, ...more] = readdirSync(folder);
  if (more.length > 0) throw new Error(`${zip} has more than one folder at its top.`);
  return path.join(folder, name);
}

/** A folder that is removed after the test. */
export function temporaryFolder(t) {
  const folder = mkdtempSync(path.join(tmpdir(), 'velmarine-release-'));
  t.after(() => rmSync(folder, { recursive: true, force: true }));
  return folder;
}

/** All files below `folder`, as names with slashes, sorted. */
export function filesBelow(folder) {
  return readdirSync(folder, { recursive: true, withFileTypes: true }).filter((entry) => entry.isFile())
    .map((entry) => path.relative(folder, path.join(entry.parentPath ?? entry.path, entry.name))).sort();
}
