// The bill of materials is valid by CycloneDX's published schema, matches the program, and is complete.
import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';
import { createRequire } from 'node:module';

import { linkedFiles, owner } from '../../packaging/linked_libraries.mjs';
import { configured, kDriverFolder, kPackedProgram, kReleaseBuild, kRepo, kVersion, packageIn, sha256, temporaryFolder, unpacked } from './built.mjs';

const { Spec, Validation } = createRequire(path.join(kRepo, 'lab/package.json'))('@cyclonedx/cyclonedx-library');
const kBomFile = path.join(kReleaseBuild, 'packaging/bom.json');
const kMap = path.join(kReleaseBuild, 'Velmarine.Client.map');
const kText = readFileSync(kBomFile, 'utf8');
const kBom = JSON.parse(kText);
const component = (name) => kBom.components.find((part) => part.name === name);

test('it is valid by the published schema of CycloneDX 1.5, which does detect a fault', async () => {
  const validator = new Validation.JsonStrictValidator(Spec.Version.v1dot5);
  assert.equal(await validator.validate(kText), null);
  assert.notEqual(await validator.validate(kText.replace('"device-driver"', '"driver"')), null);
});

test('it is the one in the package, with version and hash of the packed program', (t) => {
  assert.equal(readFileSync(path.join(unpacked(t, packageIn(kReleaseBuild)), 'bom.json'), 'utf8'), kText);
  const { name, version, hashes } = kBom.metadata.component;
  assert.deepEqual({ name, version }, { name: 'Velmarine.Client', version: kVersion });
  assert.deepEqual(hashes, [{ alg: 'SHA-256', content: sha256(readFileSync(kPackedProgram)) }]);
});

test('it lists the embedded driver files, a stand-in as such', () => {
  const isLab = configured('VELMARINE_DRIVER') === 'lab';
  for (const name of ['WinDivert.dll', 'WinDivert64.sys']) {
    assert.deepEqual(component(name).hashes, [{ alg: 'SHA-256', content: sha256(readFileSync(path.join(kDriverFolder, name))) }]);
    assert.equal(/not to be handed out/.test(component(name).description), isLab);
  }
});

test('every linked library has its package, version and licence', () => {
  const libraries = linkedFiles(readFileSync(kMap, 'utf8')).filter((file) => !file.startsWith(kReleaseBuild));
  assert.ok(libraries.some((file) => file.endsWith('/libstdc++.a')) && libraries.some((file) => file.endsWith('/crt2u.o')));
  const versions = new Set(libraries.map((file) => owner(file)).map((from) => `${from.package} ${from.version}`));
  assert.deepEqual([...versions].map((version) => version.split(' ')[0]).sort(),
    ['g++-mingw-w64-x86-64-posix', 'gcc-mingw-w64-x86-64-posix', 'mingw-w64-x86-64-dev']);
  const described = kBom.components.map(({ description }) => description).join('\n');
  for (const version of versions) assert.ok(described.includes(` ${version},`), version);
  assert.deepEqual(kBom.components.map(({ name }) => name),
    ['WinDivert.dll', 'WinDivert64.sys', 'libgcc', 'libssp', 'libstdc++', 'mingw-w64-crt', 'winpthreads']);
  for (const name of ['libgcc', 'libssp', 'libstdc++']) assert.equal(component(name).licenses[0].expression, 'GPL-3.0-or-later WITH GCC-exception-3.1');
});

test('THIRD-PARTY.md names every part', () => {
  const said = readFileSync(path.join(kRepo, 'THIRD-PARTY.md'), 'utf8');
  for (const { name } of kBom.components) assert.ok(said.includes(name), name);
});

/** Makes the bill of a build with the stand-in and the linker map `map`; returns the result. */
function make(t, map, environment = {}) {
  const folder = temporaryFolder(t);
  const out = path.join(folder, 'bom.json');
  writeFileSync(path.join(folder, 'map'), map);
  const { status, stderr } = spawnSync('node', [path.join(kRepo, 'packaging/make_bom.mjs'), `--program=${kPackedProgram}`,
    '--version=9.8', `--map=${path.join(folder, 'map')}`, `--driver=${kDriverFolder}`, '--release=2.2.2-A', `--out=${out}`],
  { encoding: 'utf8', env: { ...process.env, SOURCE_DATE_EPOCH: '', ...environment } });
  return { status, stderr, bom: status === 0 ? JSON.parse(readFileSync(out, 'utf8')) : null };
}

const kGcc = path.dirname(execFileSync('x86_64-w64-mingw32-gcc-posix', ['-print-libgcc-file-name'], { encoding: 'utf8' }).trim());

test('an unknown library fails the build', (t) => {
  const { status, stderr } = make(t, `${kGcc}/libgomp.a(barrier.o)\n`);
  assert.equal(status, 1);
  assert.match(stderr, /libgomp\.a is linked into the program; make_bom\.mjs does not know what it is/);
  assert.match(make(t, '/usr/local/lib/libmine.a(mine.o)\n').stderr, /libmine\.a/);
});

test('the published driver is listed with licence and source', (t) => {
  const { bom } = make(t, `${kGcc}/libgcc.a(_chkstk_ms.o)\n`);
  const [dll] = bom.components;
  assert.deepEqual([dll.name, dll.version, dll.purl], ['WinDivert.dll', '2.2.2-A', 'pkg:github/basil00/windivert@v2.2.2']);
  assert.deepEqual(dll.licenses, [{ expression: 'LGPL-3.0-or-later OR GPL-2.0-or-later' }]);
  assert.deepEqual(bom.components.map(({ name }) => name), ['WinDivert.dll', 'WinDivert64.sys', 'libgcc']);
});

test('its serial number depends on its content, and its time is the build\'s', (t) => {
  const map = `${kGcc}/libgcc.a(_chkstk_ms.o)\n`;
  const { bom } = make(t, map);
  assert.match(bom.serialNumber, /^urn:uuid:[0-9a-f]{8}-[0-9a-f]{4}-8[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}$/);
  assert.deepEqual(make(t, map).bom, bom);
  assert.notEqual(make(t, `${map}${kGcc}/libstdc++.a(locale.o)\n`).bom.serialNumber, bom.serialNumber);
  assert.equal(bom.metadata.timestamp, undefined);
  assert.equal(make(t, map, { SOURCE_DATE_EPOCH: '1700000000' }).bom.metadata.timestamp, '2023-11-14T22:13:20.000Z');
});
