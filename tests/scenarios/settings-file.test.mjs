// The settings file is missing, damaged or cannot be written.
import assert from 'node:assert/strict';
import { readFile, stat, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { endedConnections } from '../../lab/harness/acts.mjs';
import { kServiceUrl } from '../../lab/harness/lab.mjs';
import { run, runOrFail } from '../../lab/harness/processes.mjs';
import {
  connect, damagedCopies, kDeviceSecret, logsAfter, occurrences, saveSettings, scenario,
} from './scenario.mjs';

scenario('without a settings file the program starts with defaults and an identity',
  { settings: null }, async (lab, program) => {
    await saveSettings(program);
    const settings = await lab.prefix.readSettings();
    assert.match(settings.engineerId, /^ENG-[1-9][0-9]{7}$/);
    assert.equal(settings.serverUrl, 'http://127.0.0.1:31080');
    assert.equal(settings.deviceSecret, kDeviceSecret);
    assert.equal(settings.discoveryModeEnabled, true);
    assert.deepEqual(await damagedCopies(lab), []);
  });

scenario('an empty settings file changes nothing', { settings: '' }, async (lab, program) => {
  await saveSettings(program);
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
    await saveSettings(program);
    const [copy, ...more] = await damagedCopies(lab);
    assert.deepEqual(more, []);
    assert.match(copy, /\d{8}/, 'the copy is named with the time');
    assert.equal(await readFile(path.join(lab.prefix.roaming, copy), 'utf8'), kBroken);
    assert.equal((await lab.prefix.readSettings()).deviceSecret, kDeviceSecret);
  });

/** As saved by an editor in UTF-16 with a byte order mark. */
function utf16(text, isBigEndian) {
  const bytes = Buffer.from(`\uFEFF${text}`, 'utf16le');
  return isBigEndian ? bytes.swap16() : bytes;
}

scenario('a settings file in UTF-16 is read', { start: false }, async (lab) => {
  const text = JSON.stringify({
    serverUrl: kServiceUrl, engineerId: 'ENG-12345678', siteProfiles: [{ name: '水厂', deviceSecret: 'KEY-1' }],
  });
  for (const isBigEndian of [false, true]) {
    await writeFile(lab.prefix.settingsFile, utf16(text, isBigEndian));
    const program = await lab.startProgram();
    assert.deepEqual(await program.options('#c-profiles'), ['水厂']);
    assert.equal(occurrences(await program.log(), '设置文件'), 0);
    await saveSettings(program);
    const { engineerId, siteProfiles } = await lab.prefix.readSettings();
    assert.equal(engineerId, 'ENG-12345678');
    assert.deepEqual(siteProfiles.map(({ deviceSecret }) => deviceSecret), ['KEY-1']);
    assert.deepEqual(await damagedCopies(lab), []);
    await program.kill();
  }
});

scenario('settings of wrong kinds are ignored one by one',
  { settings: { discoveryModeEnabled: 'true', deviceNumber: 5, testIp: '10.9.8.7', siteProfiles: {} } },
  async (lab, program) => {
    assert.equal(await program.page.evaluate('document.querySelector("#c-testip").value'), '10.9.8.7');
    assert.equal(await program.text('#c-discovery'), 'PLC发现模式：关');
    assert.equal(await program.card('设备'), '等待密钥');
    await connect(program);
  });

const kNotSaved = '警告：设置未能保存：';

scenario('a failed save costs no connection, and the next save makes up for it',
  { start: false }, async (lab) => {
    // Under Wine, root can write to a read-only file, but not to an immutable one.
    await runOrFail(['chattr', '+i', lab.prefix.settingsFile]);
    let program;
    try {
      const before = await stat(lab.prefix.settingsFile);
      program = await lab.startProgram();
      await connect(program);
      await program.waitForText('#c-statusline', /工程师端软件隧道已启动/);
      await program.click('#c-stop');
      await program.waitForText('#c-statusline', /远程调试会话已断开。/);
      assert.deepEqual(await endedConnections(lab.service), ['CONN-0001']);
      await saveSettings(program);
      const log = await program.log();
      assert.equal(occurrences(log, kNotSaved), 1, log);
      assert.match(log, new RegExp(`${kNotSaved}\\S`), 'with the reason');

      await program.type('#c-pname', '水厂');
      const grown = await logsAfter(program, new RegExp(kNotSaved), () => program.click('#c-save'));
      assert.match(grown, new RegExp(`档案已保存。\r\n\\[[0-9:]+\\] ${kNotSaved}\\S`));
      assert.equal((await stat(lab.prefix.settingsFile)).mtimeMs, before.mtimeMs);
    } finally {
      await run(['chattr', '-i', lab.prefix.settingsFile]);
    }
    await logsAfter(program, '局域网发现模式已关闭：仅支持已知 IP 访问。', () => program.click('#c-discovery'));
    const { deviceSecret, siteProfiles } = await lab.prefix.readSettings();
    assert.equal(deviceSecret, kDeviceSecret);
    assert.deepEqual(siteProfiles.map(({ name }) => name), ['水厂']);
    assert.deepEqual(await damagedCopies(lab), []);
  });

scenario('a settings file that cannot be written costs only the save', { start: false },
  async (lab) => {
    // Under Wine, root can write to a read-only file, but not to an immutable one.
    await runOrFail(['chattr', '+i', lab.prefix.settingsFile]);
    try {
      const before = await stat(lab.prefix.settingsFile);
      const program = await lab.startProgram();
      await saveSettings(program);
      assert.equal((await stat(lab.prefix.settingsFile)).mtimeMs, before.mtimeMs);
      assert.equal((await lab.prefix.readSettings()).serverUrl, kServiceUrl);
      assert.equal(await program.state(), '未连接');
      assert.equal(await program.closeWindow(), 0);
    } finally {
      await run(['chattr', '-i', lab.prefix.settingsFile]);
    }
  });
