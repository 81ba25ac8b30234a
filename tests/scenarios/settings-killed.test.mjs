// The program is killed while it saves profiles, as by the task manager or a power cut. The next run has every profile
// that the log reported as saved.
import assert from 'node:assert/strict';
import { setTimeout as sleep } from 'node:timers/promises';

import { Random } from '../../lab/harness/random.mjs';
import { occurrences, scenario } from './scenario.mjs';

const kKills = 10;
const kSaved = '档案已保存。';
const kLongestMs = 400;

const seed = Number(process.env.VELMARINE_SEED ?? Math.floor(Math.random() * 1e6));

/** Runs in the page: saves profiles one after the other until the program is killed. */
async function saveInPage(run) {
  const find = (selector) => document.querySelector(selector);
  for (let number = 0; ; number += 1) {
    find('#c-pname').value = `站${run}-${number}`;
    find('#c-secret').value = `KEY-${run}-${number}`;
    find('#c-save').click();
    await new Promise((done) => { setTimeout(done, 4); });
  }
}

scenario(`a run killed while saving loses nothing that was saved (seed ${seed})`, {}, async (lab, first, t) => {
  const random = new Random(seed);
  const names = [];
  let program = first;
  for (let run = 0; run < kKills; run += 1) {
    await program.page.evaluate(`void (${saveInPage})(${run})`);
    await program.waitForLog(kSaved);
    const afterMs = random.integer(0, kLongestMs);
    await sleep(afterMs);
    await program.kill();
    const count = occurrences(await program.log(), `${kSaved}\r\n`);
    for (let number = 0; number < count; number += 1) names.push(`站${run}-${number}`);
    t.diagnostic(`run ${run} killed ${afterMs} ms after its first profile: ${count} saved`);

    program = await lab.startProgram();
    const listed = new Set(await program.options('#c-profiles'));
    assert.deepEqual(names.filter((name) => !listed.has(name)), [], await program.log());
  }
});
