// Writes the program's CycloneDX 1.5 bill of materials. The same program gives the same text: the serial number is
// derived from the contents, and the time is SOURCE_DATE_EPOCH or absent.
// Usage: node make_bom.mjs --program=FILE --version=V --map=FILE --driver=FOLDER --release=NAME --out=FILE
import { createHash } from 'node:crypto';
import { readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { parseArgs } from 'node:util';

import { owner, systemLibraries } from './linked_libraries.mjs';

const text = { type: 'string' };
const { values: args } = parseArgs({
  options: { program: text, version: text, map: text, driver: text, release: text, out: text },
});

const sha256 = (bytes) => createHash('sha256').update(bytes).digest('hex');
const hashesOf = (file) => [{ alg: 'SHA-256', content: sha256(readFileSync(file)) }];

// Descriptions of the files in Debian's cross-compiling packages, by source package and file name; the first
// match applies.
const kGcc = { source: 'gcc-mingw-w64', licence: { expression: 'GPL-3.0-or-later WITH GCC-exception-3.1' } };
const kMingw = { source: 'mingw-w64' };
const kParts = [
  { ...kGcc, files: /^libstdc\+\+\.a$/, name: 'libstdc++' },
  { ...kGcc, files: /^(libgcc(_eh)?\.a|crt(begin|end)\.o)$/, name: 'libgcc' },
  { ...kGcc, files: /^libssp\.a$/, name: 'libssp' },
  { ...kMingw, files: /^lib(win)?pthread\.a$/, name: 'winpthreads', licence: { expression: 'MIT AND BSD-3-Clause' } },
  { ...kMingw, files: /^(lib\w+\.a|crt\w+\.o)$/, name: 'mingw-w64-crt', licence: { license: { id: 'ZPL-2.1' } } },
];

/** The runtime libraries in the program, each with its Debian packages. */
function runtimeParts() {
  const parts = new Map();
  for (const file of systemLibraries(args.map, path.dirname(args.map))) {
    const from = owner(file);
    const part = kParts.find(({ files, source }) => source === from.source && files.test(path.basename(file)));
    if (!part) throw new Error(`${file} is linked into the program; make_bom.mjs does not know what it is.`);
    const packages = parts.get(part) ?? new Map();
    parts.set(part, packages.set(from.package, from));
  }
  return [...parts].map(([part, packages]) => runtimePart(part, [...packages.values()]))
    .sort((a, b) => (a.name < b.name ? -1 : 1));
}

function runtimePart({ name, licence }, packages) {
  const [first] = packages.sort((a, b) => (a.package < b.package ? -1 : 1));
  const place = `${encodeURIComponent(first.package)}@${encodeURIComponent(first.version)}`;
  const names = packages.map((from) => `${from.package} ${from.version}`).join(' and ');
  return {
    type: 'library', 'bom-ref': name, name, version: first.version,
    description: `Linked in, from Debian's ${names}, built from the source ${first.source} ${first.sourceVersion}`,
    licenses: [licence], purl: `pkg:deb/debian/${place}?arch=${first.architecture}`,
  };
}

/** The driver's two files, embedded as resources. */
function driverParts() {
  const isLab = args.release === 'lab';
  return ['WinDivert.dll', 'WinDivert64.sys'].map((name) => ({
    type: name.endsWith('.sys') ? 'device-driver' : 'library', 'bom-ref': name, name, version: args.release,
    hashes: hashesOf(path.join(args.driver, name)),
    ...(isLab ? { description: "The test lab's stand-in, not to be handed out" } : publishedDriver()),
  }));
}

function publishedDriver() {
  const tag = `v${args.release.replace(/-.*/, '')}`;
  return {
    author: 'basil00', description: 'Carried as a published release file, unmodified',
    licenses: [{ expression: 'LGPL-3.0-or-later OR GPL-2.0-or-later' }], purl: `pkg:github/basil00/windivert@${tag}`,
    externalReferences: [
      { type: 'vcs', url: `https://github.com/basil00/WinDivert/tree/${tag}` },
      { type: 'distribution', url: `https://github.com/basil00/WinDivert/releases/tag/${tag}` },
    ],
  };
}

/** A UUID of version 8 (RFC 9562, section 5.8), derived from the contents alone. */
function serialNumber(contents) {
  const hex = [...sha256(JSON.stringify(contents)).slice(0, 32)];
  hex[12] = '8';
  hex[16] = '89ab'[parseInt(hex[16], 16) % 4];
  return `urn:uuid:${hex.join('').replace(/^(.{8})(.{4})(.{4})(.{4})(.{12})$/, '$1-$2-$3-$4-$5')}`;
}

const epoch = process.env.SOURCE_DATE_EPOCH;
const kProgram = 'Velmarine.Client';
const components = [...driverParts(), ...runtimeParts()];
const contents = {
  version: 1,
  metadata: {
    ...(epoch ? { timestamp: new Date(Number(epoch) * 1000).toISOString() } : {}),
    component: {
      type: 'application', 'bom-ref': kProgram, name: kProgram, version: args.version, hashes: hashesOf(args.program),
      licenses: [{ license: { name: 'All rights reserved; see LICENSE.txt' } }],
    },
  },
  components,
  dependencies: [{ ref: kProgram, dependsOn: components.map((part) => part['bom-ref']) }],
};
const bom = { bomFormat: 'CycloneDX', specVersion: '1.5', serialNumber: serialNumber(contents), ...contents };
writeFileSync(args.out, `${JSON.stringify(bom, null, 2)}\n`);
