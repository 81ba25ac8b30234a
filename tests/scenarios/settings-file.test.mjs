// The settings file is missing, damaged or cannot be written.
import assert from 'node:assert/strict';
import { readdir, readFile, stat } from 'node:fs/promises';
import path from 'node:path';

import { kServiceUrl } from '../../lab/lab.mjs';
import { run, runOrFail } from '../../lab/processes.mjs';
import { connect, kDeviceSecret, occurrences, scenario } from './scenario.mjs';

/** Makes the program save: the discovery switch does. */
async function save(lab, program) {
  await program.type('#c-secret', kDeviceSecret);
  await program.click('#c-discovery');
  await program.waitForLog('局域网发现模式已开启：支持 PLC 广播扫描。');
}

async function damagedCopies(lab) {
  const names = await readdir(lab.prefix.roaming);
  return names.filter((name) => name !== 'Client.settings.json');
}

scenario('without a settings file the program starts with defaults and an identity',
  { settings: null }, async (lab, program) => {
    await save(lab, program);
    const settings = await lab.prefix.readSettings();
    assert.match(settings.engineerId, /^ENG-[1-9][0-9]{7}$/);
    assert.equal(settings.serverUrl, 'http://127.0.0.1:31080');
    assert.equal(settings.deviceSecret, kDeviceSecret);
    assert.equal(settings.discoveryModeEnabled, true);
    assert.deepEqual(await damagedCopies(lab), []);
  });

scenario('an empty settings file changes nothing', { settings: '' }, async (lab, program) => {
  await save(lab, program);
  const settings = await lab.prefix.readSettings();
  assert.equal(settings.serverUrl, 'http://127.0.0.1:31080');
  assert.equal(settings.deviceSecret, kDeviceSecret);
});

const kBroken = '{"serverUrl":"http://10.10.0.1:31080","siteProfiles":[{"name":"水厂"';
scenario('a damaged settings file is kept beside the new one', { settings: kBroken },
  async (lab, program) => {
    const log = await program.log();
    assert.equal(occurrences(log, '设置文件'), 1, log);
    assert.deepEqual(await damagedCopies(lab), [], 'nothing is moved before the first save');
    assert.equal(await readFile(lab.prefix.settingsFile, 'utf8'), kBroken);
    await save(lab, program);
    const [copy, ...more] = await damagedCopies(lab);
    assert.deepEqual(more, []);
    assert.match(copy, /\d{8}/, 'the copy is named with the time');
    assert.equal(await readFile(path.join(lab.prefix.roaming, copy), 'utf8'), kBroken);
    assert.equal((await lab.prefix.readSettings()).deviceSecret, kDeviceSecret);
  });

scenario('settings of wrong kinds are ignored one by one',
  { settings: { discoveryModeEnabled: 'true', deviceNumber: 5, testIp: '10.9.8.7', siteProfiles: {} } },
  async (lab, program) => {
    assert.equal(await program.page.evaluate('document.querySelector("#c-testip").value'), '10.9.8.7');
    assert.equal(await program.text('#c-discovery'), 'PLC发现模式：关');
    assert.equal(await program.card('设备'), '等待密钥');
    await connect(program);
  });

scenario('a settings file that cannot be written loses the save and nothing else', { start: false },
  async (lab) => {
    // Wine lets root write to a file that is marked read-only; nothing writes to an immutable one.
    await runOrFail(['chattr', '+i', lab.prefix.settingsFile]);
    try {
      const before = await stat(lab.prefix.settingsFile);
      const program = await lab.startProgram();
      await save(lab, program);
      assert.equal((await stat(lab.prefix.settingsFile)).mtimeMs, before.mtimeMs);
      assert.equal((await lab.prefix.readSettings()).serverUrl, kServiceUrl);
      assert.equal(await program.state(), '未连接');
      assert.equal(await program.closeWindow(), 0);
    } finally {
      await run(['chattr', '-i', lab.prefix.settingsFile]);
    }
  });
