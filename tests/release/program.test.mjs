// The published program's file: its libraries, its resources, and the absence of build information.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { configured, kDriverFolder, kPackedProgram, kReleaseBuild, kRepo, kSymbols, kVersion, temporaryFolder } from './built.mjs';
import { PeFile } from './pe_file.mjs';

const program = new PeFile(readFileSync(kPackedProgram));
const kIcon = 3;
const kRawData = 10;
const kIconGroup = 14;
const kVersionInfo = 16;
const kManifest = 24;

// An acceptable download over a site's line: it has 2.4 MB with the lab's driver, and the published one adds
// about 0.1.
const kMaxBytes = 3_000_000;

// Windows 10's own libraries: the first are loaded before any code of the program runs, always from Windows'
// folder; the others at their first call.
const kKnown = ['advapi32', 'comctl32', 'gdi32', 'kernel32', 'msvcrt', 'ole32', 'shell32', 'user32', 'ws2_32'];
const kDelayed = ['bcrypt', 'crypt32', 'dwmapi', 'iphlpapi', 'winhttp', 'wintrust', 'wtsapi32'];

test('it loads only libraries of Windows 10', () => {
  assert.deepEqual(program.imports.sort(), kKnown.map((name) => `${name}.dll`));
  const { offset } = program.sections.find(({ name }) => name === '.rsrc');
  const named = new Set([...program.bytes.toString('latin1', 0, offset).matchAll(/([\w.-]+\.dll)\0/gi)].map(([, name]) => name.toLowerCase()));
  assert.deepEqual([...named].sort(), [...kKnown, ...kDelayed].sort().map((name) => `${name}.dll`));
});

test('it contains the build\'s driver files and page', (t) => {
  assert.deepEqual(program.resource(kRawData, 201), readFileSync(path.join(kDriverFolder, 'WinDivert.dll')));
  assert.deepEqual(program.resource(kRawData, 202), readFileSync(path.join(kDriverFolder, 'WinDivert64.sys')));
  const page = path.join(temporaryFolder(t), 'app.html');
  execFileSync('cmake', [`-DOUT=${page}`, '-P', path.join(kRepo, 'webui/join.cmake')]);
  assert.deepEqual(program.resource(kRawData, 210), readFileSync(page));
});

/** An icon group and its pictures, as the original .ico file. */
function iconFile(group) {
  const count = group.readUInt16LE(4);
  const head = Buffer.alloc(6 + 16 * count);
  group.copy(head, 0, 0, 6);
  const pictures = [];
  let offset = head.length;
  for (let i = 0; i < count; i++) {
    const picture = program.resource(kIcon, group.readUInt16LE(6 + 14 * i + 12));
    group.copy(head, 6 + 16 * i, 6 + 14 * i, 6 + 14 * i + 12);
    head.writeUInt32LE(offset, 6 + 16 * i + 12);
    offset += picture.length;
    pictures.push(picture);
  }
  return Buffer.concat([head, ...pictures]);
}

test('its icon is the sources\' icon, in all sizes', () => {
  assert.deepEqual(iconFile(program.resource(kIconGroup, 301)), readFileSync(path.join(kRepo, 'resources/velmarine.ico')));
});

const numbersOf = (version) => [...version.split('.').map(Number), 0, 0, 0].slice(0, 4);

test('its manifest requests administrator rights, sharp text on every monitor, and version 6 of the controls', () => {
  const manifest = program.resource(kManifest, 1).toString('utf8');
  assert.match(manifest, /<requestedExecutionLevel level="requireAdministrator" uiAccess="false"\/>/);
  assert.match(manifest, />PerMonitorV2<\/dpiAwareness>/);
  assert.match(manifest, /name="Microsoft\.Windows\.Common-Controls" version="6\.0\.0\.0"/);
  assert.match(manifest, /<supportedOS Id="\{8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a\}"\/>/, 'Windows 10 and later');
  assert.ok(manifest.includes(`name="Velmarine.Client" version="${numbersOf(kVersion).join('.')}"`));
});

test('its version resource has the build\'s version, in Chinese', () => {
  const info = program.resource(kVersionInfo, 1);
  const fixed = info.indexOf(Buffer.from([0xbd, 0x04, 0xef, 0xfe]));
  assert.ok(fixed > 0);
  const numbers = [10, 8, 14, 12].map((at) => info.readUInt16LE(fixed + at));
  assert.deepEqual(numbers, numbersOf(kVersion));
  const said = info.toString('utf16le');
  const value = (name) => new RegExp(`${name}\0+([^\0]*)\0`).exec(said)?.[1];
  assert.equal(value('FileVersion'), kVersion);
  assert.equal(value('ProductVersion'), kVersion);
  assert.equal(value('OriginalFilename'), 'Velmarine.Client.exe');
  assert.ok(said.includes('080404B0'));
});

test('it has a random 64-bit address, data that cannot execute, and a guarded stack', () => {
  const kFlags = { highEntropyVa: 0x20, dynamicBase: 0x40, nxCompat: 0x100 };
  for (const [name, flag] of Object.entries(kFlags)) assert.ok(program.flags & flag, name);
  assert.ok(program.directory(5).size > 0, 'relocations');
  assert.match(execFileSync('x86_64-w64-mingw32-nm', [kSymbols], { encoding: 'utf8', maxBuffer: 1 << 28 }), / T __stack_chk_fail\n/);
});

test('it has neither symbols nor debugging information, nor the time of its build', () => {
  assert.deepEqual(program.sections.map(({ name }) => name).filter((name) => !/^\.(text|data|rdata|pdata|xdata|bss|idata|CRT|tls|rsrc|reloc)$/.test(name)), []);
  assert.equal(program.symbols, 0);
  assert.equal(program.timestamp, 0);
});

test('it does not contain the folder of its build', () => {
  for (const encoding of ['latin1', 'utf16le']) {
    const said = program.bytes.toString(encoding);
    for (const folder of [kRepo, kReleaseBuild, configured('CMAKE_HOME_DIRECTORY')]) assert.ok(!said.includes(folder), folder);
  }
});

test('the symbols beside it belong to it: they name its entry point and its source lines', () => {
  const [, start] = /^start address 0x([0-9a-f]+)$/m.exec(execFileSync('x86_64-w64-mingw32-objdump', ['-f', kPackedProgram], { encoding: 'utf8' }));
  const symbols = execFileSync('x86_64-w64-mingw32-nm', [kSymbols], { encoding: 'utf8', maxBuffer: 1 << 28 });
  assert.match(symbols, new RegExp(`^${start} T WinMainCRTStartup$`, 'm'));
  const [, address] = /^([0-9a-f]+) T _ZN5shell/m.exec(symbols);
  assert.match(execFileSync('x86_64-w64-mingw32-addr2line', ['-e', kSymbols, address], { encoding: 'utf8' }), /src\/shell\/\w+\.cpp:\d+/);
});

test('it is small enough for a slow line', () => assert.ok(program.bytes.length < kMaxBytes));
