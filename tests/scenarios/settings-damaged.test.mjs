// The settings file is damaged in many ways, with and without the copy of the last save beside it.
import assert from 'node:assert/strict';
import { readFile, rm, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { kServiceUrl } from '../../lab/harness/lab.mjs';
import { run, runOrFail } from '../../lab/harness/processes.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { Random } from '../../lab/harness/random.mjs';
import { damagedCopies, logsAfter, occurrences, saveSettings, scenario } from './scenario.mjs';

const kRestored = '警告：设置文件无法读取，已恢复上次保存的设置；原文件将在首次保存前另行保留。';
const kRestoredFromEmpty = '警告：设置文件为空，已恢复上次保存的设置。';
const kDefaults = '警告：设置文件无法读取，已使用默认设置；原文件将在首次保存前另行保留。';
const kKept = '警告：无法读取的设置文件已另行保留：';
const kNotSaved = '警告：设置未能保存：';

const seed = Number(process.env.VELMARINE_SEED ?? Math.floor(Math.random() * 1e6));
const random = new Random(seed);

const profile = (name, deviceSecret) => ({
  name, serverUrl: kServiceUrl, deviceNumber: '', deviceSecret, targetNetwork: 'ALL', sharedNetworks: [],
});
const kSettings = {
  serverUrl: kServiceUrl, deviceNumber: 'DEV-1', engineerId: 'ENG-12345678', testIp: '192.168.77.10',
  discoveryModeEnabled: false, siteProfiles: [profile('水厂', 'KEY-1'), profile('泵站', 'KEY-2')],
};
const kNames = kSettings.siteProfiles.map(({ name }) => name);
const kWhole = Buffer.from(`${JSON.stringify(kSettings, null, 2)}\n`);

const atProfile = kWhole.indexOf('{', kWhole.indexOf('siteProfiles'));
const cutFront = random.integer(1, atProfile - 1);
const cutEnd = random.integer(1, kWhole.length - 3);
const kDamages = {
  'zero bytes alone': Buffer.alloc(kWhole.length),
  'a stray letter in front': Buffer.concat([Buffer.from('q'), kWhole]),
  'a comment in front': Buffer.concat([Buffer.from('// 备份\n'), kWhole]),
  'the front lost up to a profile': kWhole.subarray(atProfile),
  [`the first ${cutFront} bytes lost`]: kWhole.subarray(cutFront),
  [`all but the first ${cutEnd} bytes lost`]: kWhole.subarray(0, cutEnd),
};
const kWithoutCopy = ['zero bytes alone', 'a stray letter in front', 'the front lost up to a profile'];

/** Starts the program with only these files, after its predecessor was killed; `last` may be missing. */
async function startOn(lab, bytes, last = null) {
  if (lab.program) await lab.program.kill();
  await rm(lab.prefix.roaming, { recursive: true, force: true });
  await lab.writeSettings({});
  await writeFile(lab.prefix.settingsFile, bytes);
  if (last !== null) await writeFile(lab.prefix.lastSettingsFile, last);
  const program = await lab.startProgram();
  assert.deepEqual(await damagedCopies(lab), [], 'nothing is written before the first save');
  assert.deepEqual(await readFile(lab.prefix.settingsFile), bytes);
  return program;
}

/** The log's only line about the file is `line`. */
async function says(program, line) {
  const log = await program.log();
  assert.equal(occurrences(log, '设置文件'), 1, log);
  assert.ok(log.includes(`${line}\r\n`), log);
}

/** The first save has kept `bytes` under another name and reports it. */
async function keepsAside(lab, program, bytes) {
  await saveSettings(program);
  const [copy, ...more] = await damagedCopies(lab);
  assert.deepEqual(more, []);
  assert.match(copy, /^Client\.settings\.damaged-\d{8}_\d{6}\.json$/);
  assert.deepEqual(await readFile(path.join(lab.prefix.roaming, copy)), bytes);
  // Logged right after the line that saveSettings waited for.
  await waitUntil('the line about the copy', async () => (await program.log()).includes(kKept));
  const log = await program.log();
  assert.equal(occurrences(log, kKept), 1, log);
  assert.match(log, new RegExp(`${kKept}.*\\\\${copy}\r\n`));
}

async function holdsWhatWasSaved(lab, program) {
  assert.deepEqual(await program.options('#c-profiles'), kNames);
  const { engineerId, testIp, siteProfiles } = await lab.prefix.readSettings();
  assert.equal(engineerId, kSettings.engineerId);
  assert.equal(testIp, kSettings.testIp);
  assert.deepEqual(siteProfiles, kSettings.siteProfiles);
}

scenario(`the last save replaces a damaged settings file (seed ${seed})`, { start: false },
  async (lab, _, t) => {
    for (const [name, bytes] of Object.entries(kDamages)) {
      await t.test(name, async () => {
        const program = await startOn(lab, bytes, kWhole);
        await says(program, kRestored);
        assert.deepEqual(await program.options('#c-profiles'), kNames);
        await keepsAside(lab, program, bytes);
        await holdsWhatWasSaved(lab, program);
        assert.deepEqual(await readFile(lab.prefix.lastSettingsFile), await readFile(lab.prefix.settingsFile));
      });
    }
    await t.test('an empty file', async () => {
      const program = await startOn(lab, Buffer.alloc(0), kWhole);
      await says(program, kRestoredFromEmpty);
      await saveSettings(program);
      await holdsWhatWasSaved(lab, program);
      assert.deepEqual(await damagedCopies(lab), []);
    });
  });

scenario('a damaged settings file is kept if nothing can replace it', { start: false },
  async (lab, _, t) => {
    for (const name of kWithoutCopy) {
      await t.test(name, async () => {
        const program = await startOn(lab, kDamages[name]);
        await says(program, kDefaults);
        await keepsAside(lab, program, kDamages[name]);
        assert.match((await lab.prefix.readSettings()).engineerId, /^ENG-[1-9][0-9]{7}$/);
      });
    }
    await t.test('a copy that is damaged, too', async () => {
      const bytes = kDamages['a comment in front'];
      const program = await startOn(lab, bytes, kWhole.subarray(0, 40));
      await says(program, kDefaults);
      await keepsAside(lab, program, bytes);
    });
  });

scenario('a damaged settings file is not overwritten before it is kept', { start: false }, async (lab) => {
  const bytes = kDamages['the front lost up to a profile'];
  const program = await startOn(lab, bytes, kWhole);
  await runOrFail(['chattr', '+i', lab.prefix.roaming]);  // no file can be created there
  try {
    await logsAfter(program, new RegExp(kNotSaved), () => saveSettings(program));
    assert.deepEqual(await readFile(lab.prefix.settingsFile), bytes);
    assert.deepEqual(await damagedCopies(lab), []);
  } finally {
    await run(['chattr', '-i', lab.prefix.roaming]);
  }
  await program.click('#c-discovery');
  await program.waitForLog('局域网发现模式已关闭：仅支持已知 IP 访问。');
  await keepsAside(lab, program, bytes);
  await holdsWhatWasSaved(lab, program);
});
