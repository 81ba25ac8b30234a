// The built program's file: its protections, and the libraries it loads.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { test } from 'node:test';

import { kProgramFile } from '../harness/paths.mjs';

const kTools = 'x86_64-w64-mingw32-';
const kHeaders = execFileSync(`${kTools}objdump`, ['-p', kProgramFile], { encoding: 'utf8', maxBuffer: 1 << 26 });

test('the program has a random 64-bit address, data that cannot execute, and a guarded stack', () => {
  for (const flag of ['HIGH_ENTROPY_VA', 'DYNAMIC_BASE', 'NX_COMPAT']) assert.match(kHeaders, new RegExp(`\\b${flag}\\b`));
  assert.match(kHeaders, /Entry 5 [0-9a-f]*[1-9a-f][0-9a-f]* [0-9a-f]*[1-9a-f][0-9a-f]* Base Relocation/, 'it can be moved');
  const symbols = execFileSync(`${kTools}nm`, [kProgramFile], { encoding: 'utf8', maxBuffer: 1 << 28 });
  assert.match(symbols, / T __stack_chk_fail\n/);
});

// Windows always loads these from its own folder, because they are known DLLs; comctl32 comes from the component
// store named in the manifest.
const kSafe = ['advapi32', 'comctl32', 'gdi32', 'kernel32', 'msvcrt', 'ole32', 'shell32', 'user32', 'ws2_32'];

test('Windows itself loads no library that could be planted beside the program', () => {
  const libraries = [...kHeaders.matchAll(/DLL Name: (\S+)\.dll/gi)].map(([, name]) => name.toLowerCase());
  assert.ok(libraries.length > 5);
  assert.deepEqual(libraries.filter((name) => !kSafe.includes(name)), []);
});
