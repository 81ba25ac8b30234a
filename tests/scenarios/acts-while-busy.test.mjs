// The engineer's actions while a job runs, step by step; two-at-once.test.mjs repeats them at random.
import assert from 'node:assert/strict';

import { endedConnections } from '../../lab/harness/acts.mjs';
import { kServiceUrl } from '../../lab/harness/lab.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { clickConnect, connect, kDeviceSecret, logsAfter, scenario } from './scenario.mjs';

const kRequest = '/api/connections/request';
const kSilent = '192.168.77.99';  // unused, so that a test of it takes long

const profile = (name, deviceSecret) => ({
  name, serverUrl: kServiceUrl, deviceNumber: '', deviceSecret, targetNetwork: 'ALL', sharedNetworks: [],
});
const kSites = { siteProfiles: [profile('水厂', 'KEY-WATER-2'), profile('泵站', 'KEY-PUMP-1')] };

/** Clicks 连接 and returns once the service has the request, whose answer waits for releaseReplies(). */
async function connectUntilHeld(lab, program) {
  await lab.service.setReply({ path: kRequest, hold: true, times: 1 });
  const sinceMs = await lab.service.nowMs();
  await clickConnect(program);
  await waitUntil('the request', async () =>
    (await lab.service.requests({ pathPrefix: kRequest, sinceMs })).length > 0);
}

const load = (program, name) =>
  logsAfter(program, `已载入档案：${name}`, () => program.choose('#c-profiles', name));

const names = async (lab) => (await lab.prefix.readSettings()).siteProfiles.map(({ name }) => name);

/** Page and file contain this profile, and the file also contains `results`. */
async function holdsProfile(lab, program, [name, key], results) {
  assert.equal(await program.value('#c-pname'), name);
  assert.equal(await program.value('#c-secret'), key);
  const settings = await lab.prefix.readSettings();
  assert.equal(settings.deviceSecret, key);
  assert.equal(settings.profileName, name);
  for (const [member, wanted] of Object.entries(results)) assert.match(settings[member], wanted);
}

scenario('a profile saved during a connection request survives closing the window at once', {},
  async (lab, program) => {
    await connectUntilHeld(lab, program);
    await program.type('#c-pname', '新站');
    await logsAfter(program, '档案已保存。', () => program.click('#c-save'));
    const exit = program.closeWindow();
    await waitUntil('the page gone', async () => (await lab.bridge.pages()).length === 0);
    await lab.service.releaseReplies();
    assert.equal(await exit, 0);
    assert.deepEqual(await names(lab), ['新站']);

    // Closing cancelled the request: the service must end a grant that nobody received.
    const next = await lab.startProgram();
    assert.deepEqual(await next.options('#c-profiles'), ['新站']);
    await logsAfter(next, /软件隧道运行中。/, () => next.click('#c-stop'));  // the result's first line
    assert.deepEqual(await endedConnections(lab.service), []);
    assert.deepEqual(await names(lab), ['新站']);
  });

scenario("a profile loaded while a job runs is kept, and so are the job's results",
  { settings: kSites }, async (lab, program) => {
    await connectUntilHeld(lab, program);
    await load(program, '水厂');
    await lab.service.releaseReplies();
    await program.waitForText('#s-state', '在线');
    await program.waitForText('#c-statusline', /工程师端软件隧道已启动/);
    await holdsProfile(lab, program, ['水厂', 'KEY-WATER-2'], { connectionId: /^CONN-0001$/ });
    assert.equal(await program.card('组网 IP'), '10.88.0.2');

    await program.type('#c-testip', kSilent);
    await logsAfter(program, '正在测试通讯延迟...', () => program.click('#c-test'));
    await load(program, '泵站');
    assert.equal(await program.statusLine(), '正在测试通讯延迟...', 'the test still runs');
    await program.waitForText('#c-statusline', `通讯延迟测试超时：${kSilent}`);
    await holdsProfile(lab, program, ['泵站', 'KEY-PUMP-1'],
      { connectionId: /^CONN-0001$/, latencyText: /^超时$/, testIp: /^192\.168\.77\.99$/ });
    assert.equal(await program.state(), '在线');
    assert.deepEqual(await endedConnections(lab.service), []);
  });

const kReplaced = '警告：一条消息含有页面无法接受的字符，已替换后重新发送。';

for (const character of ['\u0001', '\u0000']) {
  const code = character.codePointAt(0).toString(16).padStart(4, '0').toUpperCase();
  scenario(`a text of the service with U+${code} reaches the page, which keeps working`, {}, async (lab, program) => {
    await lab.service.refuseNext({ code: 'WRONG_SECRET', message: `密钥${character}错误` });
    await clickConnect(program);
    const shown = await program.waitForText('#c-statusline', /^\s*Connection authorization failed: 密钥.?错误$/);
    assert.equal(shown.includes(character), false);
    await program.page.waitFor('!document.body.hasAttribute("data-job")');
    const log = await program.waitForLog(kReplaced);
    assert.equal(log.split(kReplaced).length, 2, log);

    await program.click('#c-discovery');
    await program.waitForText('#c-discovery', 'PLC发现模式：开');
    await waitUntil('the card', async () => await program.card('PLC发现模式') === 'PLC发现模式已开启');
    const lines = (await program.pageLog()).map(({ text }) => text);
    assert.ok(lines.some((text) => /Connection authorization failed: 密钥.?错误$/.test(text)), lines.join('\n'));
    await connect(program);
    await program.page.waitFor('!document.body.hasAttribute("data-job")');
    assert.equal(await program.value('#c-secret'), kDeviceSecret);
  });
}
