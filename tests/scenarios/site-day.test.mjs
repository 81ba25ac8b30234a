// An engineer's day besides the connection: the service's data about a site, the profiles of many sites, and
// the test of a device.
import assert from 'node:assert/strict';
import { stat } from 'node:fs/promises';

import { kServiceUrl } from '../../lab/harness/lab.mjs';
import { kDirectRoute, kOverlappingRoute } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { connect, kDeviceSecret, logsAfter, occurrences, scenario } from './scenario.mjs';

const kResolve = '/api/devices/resolve';
const kResolving = '正在获取现场端网段...';
const kSaved = '档案已保存。';

const kPump = {
  deviceSecret: 'KEY-PUMP-1', deviceNumber: 'DEV-2041', deviceName: 'Pump A',
  sharedNetworks: [kDirectRoute, kOverlappingRoute],
};
const kWater = {
  deviceSecret: 'KEY-WATER-2', deviceNumber: 'DEV-3077', deviceName: '水厂 "东区"',
  sharedNetworks: ['172.20.8.0/24'],
};
const kPlant = {
  deviceSecret: 'KEY-PLANT-3', deviceNumber: 'DEV-4100', deviceName: 'Plant B',
  sharedNetworks: ['10.60.0.0/16', '10.61.4.0/22'],
};

// ---- 取网段

const fetchNetworks = (program, wanted) => logsAfter(program, wanted, () => program.click('#c-fetch'));

/** Clicks 取网段, which must fail with `line` and change nothing. */
async function resolveFails(lab, program, line) {
  const before = await lab.prefix.readSettings();
  const log = await fetchNetworks(program, line);
  assert.equal(occurrences(log, kResolving), 1, log);
  assert.deepEqual(await lab.prefix.readSettings(), before);
  assert.equal(await program.card('设备'), '等待密钥');
}

async function showsSite(program, { deviceSecret, deviceNumber, sharedNetworks }, name) {
  await program.waitForText('#s-cards', new RegExp(deviceNumber));
  assert.equal(await program.card('设备'), deviceNumber);
  assert.equal(await program.value('#c-secret'), deviceSecret);
  assert.deepEqual(await program.options('#c-target'), ['自动', ...sharedNetworks]);
  assert.equal(await program.value('#c-target'), sharedNetworks[0]);
  assert.equal(await program.value('#c-pname'), name);
}

async function failuresChangeNothing(lab, program) {
  await program.type('#c-secret', 'KEY-OF-NOBODY');
  await logsAfter(program, '局域网发现模式已开启：支持 PLC 广播扫描。', () => program.click('#c-discovery'));
  await resolveFails(lab, program, 'Resolve failed: 密钥无效');
  await lab.service.setReply({
    path: kResolve, status: 502, headers: { 'content-type': 'text/html' },
    body: '<html><body>Bad Gateway</body></html>',
  });
  await resolveFails(lab, program, 'Resolve failed: ');
  await lab.service.setReply({ path: kResolve, body: '{"success":true,' });
  await resolveFails(lab, program, 'Error: Invalid JSON.');
  await lab.service.stopListening();
  await resolveFails(lab, program, /Error: WinHttpReceiveResponse.*\r\n/);
  await lab.service.resumeListening();
  await lab.service.resetReplies();
}

scenario('取网段 fills in the target networks, the device card and the profile name, or explains its failure', {},
  async (lab, program) => {
    await lab.service.setDevices([kPump, kWater]);
    await failuresChangeNothing(lab, program);

    const since = await lab.service.nowMs();
    await program.type('#c-secret', kWater.deviceSecret);
    await fetchNetworks(program, '已获取现场端 DEV-3077 的共享网段。');
    await showsSite(program, kWater, kWater.deviceName);
    await program.waitForText('#c-statusline', '已获取现场端 DEV-3077 的共享网段。');
    const [request] = await lab.service.requests({ pathPrefix: kResolve, sinceMs: since });
    assert.equal(request.method, 'POST');
    assert.equal(request.body, '{"deviceSecret":"KEY-WATER-2"}');

    await program.type('#c-secret', kPump.deviceSecret);
    await program.type('#c-pname', '我的泵站');
    await fetchNetworks(program, '已获取现场端 DEV-2041 的共享网段。');
    await showsSite(program, kPump, '我的泵站');

    await lab.service.setDevices([{ ...kPump, deviceNumber: 'DEV-2042', sharedNetworks: [] }]);
    await fetchNetworks(program, '已获取现场端 DEV-2042 的共享网段。');
    await showsSite(program, { ...kPump, deviceNumber: 'DEV-2042' }, '我的泵站');
    assert.equal((await lab.service.requests({ pathPrefix: '/api/connections' })).length, 0);
  });

// ---- 存档

const saveProfile = (program, line = kSaved) => logsAfter(program, line, () => program.click('#c-save'));
const profiles = async (lab) => (await lab.prefix.readSettings()).siteProfiles;

async function showsProfiles(lab, program, names, selected = names[0]) {
  await program.page.waitFor(`document.querySelector('#c-profiles').value === ${JSON.stringify(selected)}`);
  assert.deepEqual(await program.options('#c-profiles'), names);
  assert.deepEqual((await profiles(lab)).map(({ name }) => name), names);
}

/** Fetches the service's data about a site and saves it under the service's name for it. */
async function saveSite(program, site) {
  await program.type('#c-pname', '');
  await program.type('#c-secret', site.deviceSecret);
  await fetchNetworks(program, `已获取现场端 ${site.deviceNumber} 的共享网段。`);
  // The log is written before the page is updated.
  await program.page.waitFor("document.querySelector('#c-pname').value !== ''");
  await saveProfile(program);
}

async function loadProfile(program, name) {
  await logsAfter(program, `已载入档案：${name}`, () => program.choose('#c-profiles', name));
}

async function savingNeedsNameAndKey(lab, program) {
  const before = await profiles(lab);
  for (const [name, key, line] of [
    ['', 'KEY-X', '档案未保存：请先填写档案名称。'], ['  ', 'KEY-X', '档案未保存：请先填写档案名称。'],
    ['新站', '', '档案未保存：接入密钥为空。'], ['新站', '  ', '档案未保存：接入密钥为空。'],
  ]) {
    await program.type('#c-pname', name);
    await program.type('#c-secret', key);
    const { mtimeMs } = await stat(lab.prefix.settingsFile);
    await saveProfile(program, line);
    assert.equal((await stat(lab.prefix.settingsFile)).mtimeMs, mtimeMs, 'nothing is written');
  }
  assert.deepEqual(await profiles(lab), before);
}

scenario('存档 keeps one profile per site, newest first, and choosing one loads it', {},
  async (lab, program) => {
    await lab.service.setDevices([kPump, kWater, kPlant]);
    for (const site of [kPump, kWater, kPlant]) await saveSite(program, site);
    await showsProfiles(lab, program, ['Plant B', '水厂 "东区"', 'Pump A']);
    assert.deepEqual((await profiles(lab))[1], {
      name: '水厂 "东区"', serverUrl: kServiceUrl, deviceNumber: 'DEV-3077', deviceSecret: 'KEY-WATER-2',
      targetNetwork: '172.20.8.0/24', sharedNetworks: ['172.20.8.0/24'],
    });

    await loadProfile(program, 'Pump A');
    await showsSite(program, kPump, 'Pump A');
    await program.type('#c-pname', 'PUMP a');
    await program.type('#c-secret', 'KEY-PUMP-NEW');
    await saveProfile(program);
    await showsProfiles(lab, program, ['PUMP a', 'Plant B', '水厂 "东区"']);
    assert.equal((await profiles(lab))[0].deviceSecret, 'KEY-PUMP-NEW');

    await loadProfile(program, '水厂 "东区"');
    await program.type('#c-pname', '老水厂');
    await program.type('#c-secret', 'key-water-2');
    await saveProfile(program);
    await showsProfiles(lab, program, ['老水厂', 'PUMP a', 'Plant B']);

    await savingNeedsNameAndKey(lab, program);
    await loadProfile(program, 'Plant B');
    await showsSite(program, kPlant, 'Plant B');
    assert.equal(await program.closeWindow(), 0);

    const next = await lab.startProgram();
    await showsProfiles(lab, next, ['老水厂', 'PUMP a', 'Plant B'], 'Plant B');
    await showsSite(next, kPlant, 'Plant B');
    await loadProfile(next, '老水厂');
    await showsSite(next, { ...kWater, deviceSecret: 'key-water-2' }, '老水厂');
    await connect(next);
    await next.waitForLog('工程师端软件隧道已启动：CONN-0001');
    const [request] = await lab.service.requests({ pathPrefix: '/api/connections/request' });
    assert.equal(JSON.parse(request.body).deviceNumber, 'DEV-3077');
    assert.equal(JSON.parse(request.body).deviceSecret, kDeviceSecret, 'what the page holds counts');
  });

scenario('连接 clicked directly after a choice requests the chosen site', {}, async (lab, program) => {
  await lab.service.setDevices([kPump, kWater]);
  for (const site of [kPump, kWater]) await saveSite(program, site);
  await program.choose('#c-profiles', kPump.deviceName);
  await program.click('#c-connect');
  const [request] = await waitUntil('the request', async () => {
    const seen = await lab.service.requests({ pathPrefix: '/api/connections/request' });
    return seen.length > 0 && seen;
  });
  const { deviceNumber, deviceSecret } = JSON.parse(request.body);
  assert.deepEqual([deviceNumber, deviceSecret], [kPump.deviceNumber, kPump.deviceSecret]);
});

scenario('the next morning begins at the keyboard: one key to the site in use, three to another', { start: false },
  async (lab) => {
    await lab.service.setDevices([kPump, kWater]);
    const evening = await lab.startProgram();
    for (const site of [kPump, kWater]) await saveSite(evening, site);
    assert.equal(await evening.closeWindow(), 0);

    const program = await lab.startProgram();
    await waitUntil('the first focus', async () =>
      (await program.page.evaluate('document.activeElement.id')) === 'c-connect');
    const connects = async (keys, site) => {
      const before = (await lab.service.requests({ pathPrefix: '/api/connections/request' })).length;
      for (const key of keys) await lab.display.key(key);
      const [request] = await waitUntil('the request', async () => {
        const seen = (await lab.service.requests({ pathPrefix: '/api/connections/request' })).slice(before);
        return seen.length > 0 && seen;
      });
      assert.equal(JSON.parse(request.body).deviceSecret, site.deviceSecret);
      await program.waitForText('#s-state', '在线');
    };
    await connects(['Return'], kWater);
    await logsAfter(program, /软件隧道已停止。/, () => program.click('#c-stop'));
    await program.page.evaluate('document.getElementById("c-connect").focus()');
    await connects(['shift+Tab', 'Down', 'Return'], kPump);
  });
