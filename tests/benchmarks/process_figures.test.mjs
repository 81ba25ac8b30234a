// The figures of a process that the benchmarks read from the kernel.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { test } from 'node:test';

import {
  cpuMsOf, memoryOf, parseCpuMs, parseMemory, parseSleeps, watchWakeUps, wokenBetween,
} from '../../benchmarks/program/process_figures.mjs';

const kMemory = `00400000-7ffd8d3f0000 ---p 00000000 00:00 0                              [rollup]
Rss:               60568 kB
Pss:               42312 kB
Pss_Dirty:         30368 kB
Pss_Anon:          30368 kB
Shared_Clean:      25196 kB
Private_Clean:      5004 kB
Private_Dirty:     30369 kB
Private_Hugetlb:       0 kB
`;

test('memory is what is private, clean or dirty', () => {
  assert.deepEqual(parseMemory(kMemory), { privateKib: 35373, pssKib: 42312 });
});

test('a text without the lines is refused', () => {
  for (const line of ['Pss', 'Private_Clean', 'Private_Dirty']) {
    assert.throws(() => parseMemory(kMemory.replace(`${line}:`, 'Other:')), new RegExp(line));
  }
  assert.throws(() => parseSleeps('Name:\tnode\n'), /voluntary/);
});

test('sleeps are the voluntary switches alone', () => {
  assert.equal(parseSleeps('Threads:\t3\nvoluntary_ctxt_switches:\t42\nnonvoluntary_ctxt_switches:\t7\n'), 42);
  assert.equal(parseSleeps('nonvoluntary_ctxt_switches:\t7\nvoluntary_ctxt_switches:\t0\n'), 0);
});

test('processor time is read behind a name that looks like the end of one', () => {
  assert.equal(parseCpuMs('12 (a) b) S 1 2 3 4 5 6 7 8 9 10 150 25 0 0 20 0 3 0'), 1750);
});

test('threads that slept, and those that are new, have woken', () => {
  const earlier = new Map([['1', 5], ['2', 9], ['3', 1]]);
  const later = new Map([['1', 5], ['2', 12], ['4', 2]]);
  assert.deepEqual(wokenBetween(earlier, later), [['2', 3], ['4', 2]]);
});

test('a program that wakes ten times a second is seen to', { timeout: 20_000 }, async (t) => {
  const wakes = spawn(process.execPath, ['-e', 'setInterval(() => {}, 100); console.log(1)'], { stdio: ['ignore', 'pipe', 'ignore'] });
  const sleeps = spawn('sleep', ['60'], { stdio: 'ignore' });
  t.after(() => { wakes.kill('SIGKILL'); sleeps.kill('SIGKILL'); });
  await once(wakes.stdout, 'data');
  const [often, never] = await watchWakeUps([wakes.pid, sleeps.pid], 2);
  assert.ok(often.byThread[wakes.pid] >= 12 && often.byThread[wakes.pid] <= 30, JSON.stringify(often));
  assert.equal(never.wakeUps, 0);
  assert.ok((await memoryOf(wakes.pid)).privateKib > (await memoryOf(sleeps.pid)).privateKib);
  assert.ok(await cpuMsOf(wakes.pid) > 0);
});
