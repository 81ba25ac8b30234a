// winget's manifests of the package: valid, of one version, and matching the ZIP file.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { existsSync, readdirSync, readFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { test } from 'node:test';

import { kReleaseBuild, kRepo, kVersion, packageIn, sha256, temporaryFolder, unpacked } from './built.mjs';
import { kSchemas } from './winget_schema.mjs';

const require = createRequire(path.join(kRepo, 'lab/package.json'));
const Ajv = require('ajv').default;
const { parse } = require('yaml');
const kZip = packageIn(kReleaseBuild);
const ajv = new Ajv({ strictTypes: false, allErrors: true });

const make = (out, url) => spawnSync('cmake', [`-DZIP=${kZip}`, `-DVERSION=${kVersion}`, `-DDOWNLOAD_URL=${url}`, `-DOUT=${out}`,
  '-P', path.join(kRepo, 'packaging/make_winget.cmake')], { encoding: 'utf8' });

/** The manifests of this build's package, by type. */
function manifests(t, url = 'https://downloads.example.com/velmarine') {
  const out = temporaryFolder(t);
  assert.equal(make(out, url).status, 0);
  const folder = path.join(out, kVersion);
  const all = readdirSync(folder).map((name) => [name, parse(readFileSync(path.join(folder, name), 'utf8'))]);
  assert.deepEqual(all.map(([name]) => name).sort(), ['Velmarine.Client.installer.yaml', 'Velmarine.Client.locale.en-US.yaml',
    'Velmarine.Client.locale.zh-CN.yaml', 'Velmarine.Client.yaml']);
  return Object.fromEntries(all.map(([, manifest]) => [manifest.ManifestType, manifest]));
}

function faults(manifest) {
  const validate = ajv.compile(kSchemas[manifest.ManifestType]);
  validate(manifest);
  return (validate.errors ?? []).map(({ instancePath, message }) => `${instancePath} ${message}`);
}

test('every manifest is valid by winget\'s schema', (t) => {
  const all = manifests(t);
  assert.deepEqual(Object.keys(all).sort(), Object.keys(kSchemas).sort());
  for (const manifest of Object.values(all)) assert.deepEqual(faults(manifest), []);
});

test('and invalid manifests are detected', (t) => {
  const { installer, defaultLocale } = manifests(t);
  const [one] = installer.Installers;
  assert.notDeepEqual(faults({ ...installer, PackageIdentifier: 'Velmarine' }), []);
  assert.notDeepEqual(faults({ ...installer, PackageVersion: 1.0 }), []);
  assert.notDeepEqual(faults({ ...installer, ElevationRequirement: 'required' }), []);
  assert.notDeepEqual(faults({ ...installer, Installers: [{ ...one, InstallerSha256: 'ab' }] }), []);
  assert.notDeepEqual(faults({ ...installer, Installers: [] }), []);
  assert.notDeepEqual(faults({ ...defaultLocale, ShortDescription: 'x'.repeat(257) }), []);
  assert.notDeepEqual(faults({ ...defaultLocale, Sort: 'x' }), []);
});

test('all have the package\'s name and version, Chinese first', (t) => {
  const all = manifests(t);
  for (const { PackageIdentifier, PackageVersion } of Object.values(all)) {
    assert.deepEqual([PackageIdentifier, PackageVersion], ['Velmarine.Client', kVersion]);
  }
  assert.equal(all.version.DefaultLocale, all.defaultLocale.PackageLocale);
  assert.deepEqual([all.defaultLocale.PackageLocale, all.locale.PackageLocale], ['zh-CN', 'en-US']);
});

test('the installer matches the ZIP file\'s name and hash, and the program is at the stated place in it', (t) => {
  const { installer } = manifests(t, 'https://downloads.example.com/velmarine/');
  const [{ InstallerUrl, InstallerSha256, Architecture }] = installer.Installers;
  assert.equal(InstallerUrl, `https://downloads.example.com/velmarine/${path.basename(kZip)}`);
  assert.equal(InstallerSha256.toLowerCase(), sha256(readFileSync(kZip)));
  assert.equal(Architecture, 'x64');
  const folder = unpacked(t, kZip);
  const [{ RelativeFilePath }] = installer.NestedInstallerFiles;
  assert.ok(existsSync(path.join(path.dirname(folder), ...RelativeFilePath.split('\\'))), RelativeFilePath);
});

test('the build writes the same manifests with the address, and none without it', (t) => {
  const url = /^VELMARINE_DOWNLOAD_URL:\w+=(.*)$/m.exec(readFileSync(path.join(kReleaseBuild, 'CMakeCache.txt'), 'utf8'))[1];
  const folder = path.join(kReleaseBuild, 'winget', kVersion);
  assert.equal(existsSync(folder), url !== '');
  if (url === '') return;
  const out = temporaryFolder(t);
  make(out, url);
  for (const name of readdirSync(folder)) {
    assert.equal(readFileSync(path.join(folder, name), 'utf8'), readFileSync(path.join(out, kVersion, name), 'utf8'));
  }
});

test('an address that winget would refuse fails the build', (t) => {
  const { status, stderr } = make(temporaryFolder(t), 'ftp://downloads.example.com');
  assert.notEqual(status, 0);
  assert.match(stderr, /winget takes http\s+and https/);
});
