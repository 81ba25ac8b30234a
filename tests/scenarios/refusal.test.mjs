// The service refuses a connection: the program repeats the request every five seconds until it is granted.
import assert from 'node:assert/strict';
import { stat } from 'node:fs/promises';

import { waitUntil } from '../../lab/harness/program.mjs';
import { clickConnect, occurrences, scenario } from './scenario.mjs';

const kRetryLine = '授权未恢复，将每 5 秒自动重试连接。';
/** The beginning of the explaining line, by the service's code. */
const kHints = {
  DEVICE_NOT_BOUND: '这台设备还没有绑定，', TRAFFIC_QUOTA_EXCEEDED: '这台设备的流量用完了。',
  CONCURRENT_LIMIT_EXCEEDED: '同时连接的人数到了上限。', DEVICE_OFFLINE: '现场设备离线。',
  DEVICE_RELAY_OFFLINE: '现场设备开着，但没有连到中继。',
};

const connectRequests = (lab) => lab.service.requests({ pathPrefix: '/api/connections/request' });

/** Refuses `times` requests with `code`, connects, and checks the times of the requests. */
async function refuseThenGrant(lab, program, code, times) {
  const earlier = (await connectRequests(lab)).length;
  await lab.service.refuseNext({ code, message: `refused: ${code}`, times });
  await clickConnect(program);
  await program.waitForLog(new RegExp(`refused: ${code}`));
  await program.waitForText('#s-state', '在线', 8_000 + 6_000 * times);
  const requests = (await connectRequests(lab)).slice(earlier);
  assert.equal(requests.length, times + 1);
  for (let i = 1; i < requests.length; i += 1) {
    const gap = requests[i].timeMs - requests[i - 1].timeMs;
    // The service records a request only when its process gets to run.
    assert.ok(gap > 4_000 && gap < 7_000, `${code}: retry ${i} came after ${gap} ms`);
  }
}

for (const [index, code] of Object.keys(kHints).entries()) {
  const times = index === 0 ? 3 : 1;
  scenario(`a refusal with ${code} is retried every 5 s until it is granted`, {},
    async (lab, program) => {
      await refuseThenGrant(lab, program, code, times);
      assert.equal(occurrences(await program.log(), kRetryLine), 1, 'the retry is armed once');
      const hint = `提示：${kHints[code]}`;
      assert.equal(occurrences(await program.log(), hint), 1, 'explained once, however often it is retried');
      const texts = (await program.pageLog()).map(({ text }) => text);
      const at = texts.findIndex((text) => text.startsWith(hint));
      assert.match(texts[at - 1], new RegExp(`refused: ${code}$`));
      assert.equal(texts[at + 1], kRetryLine);
      const granted = (await connectRequests(lab)).length;
      await new Promise((resolve) => { setTimeout(resolve, 6_500); });
      assert.equal((await connectRequests(lab)).length, granted, 'no request after the grant');
    });
}

scenario('a repeated refusal is logged once', {}, async (lab, program) => {
  await lab.service.refuseNext({ code: 'DEVICE_OFFLINE', message: 'offline', times: 10 });
  await clickConnect(program);
  await program.waitForLog(kRetryLine);
  const { mtimeMs } = await stat(lab.prefix.settingsFile);
  assert.equal((await lab.prefix.readSettings()).heartbeatMessage, 'DEVICE_OFFLINE');
  await waitUntil('three more results', async () =>
    occurrences(await program.log(), 'Connection authorization failed: offline') === 4, 20_000);
  assert.equal((await connectRequests(lab)).length, 4);
  assert.equal((await stat(lab.prefix.settingsFile)).mtimeMs, mtimeMs);
});

scenario('a refusal with another code is not retried', {}, async (lab, program) => {
  await lab.service.refuseNext({ code: 'WRONG_SECRET', message: '密钥错误', times: 1 });
  await clickConnect(program);
  await program.waitForLog('Connection authorization failed: 密钥错误');
  await new Promise((resolve) => { setTimeout(resolve, 6_500); });
  assert.equal((await connectRequests(lab)).length, 1);
  assert.equal(occurrences(await program.log(), kRetryLine), 0);
  assert.doesNotMatch(await program.log(), /密钥错误\r\n\[[\d:]+\] 提示：/);
});

scenario('a refusal code is recognised in any letter case, and the retry is shown as a warning', {},
  async (lab, program) => {
    await lab.service.refuseNext({ code: 'device_offline', message: 'offline', times: 1 });
    await clickConnect(program);
    await program.waitForLog(kRetryLine);
    const lines = await program.pageLog();
    assert.ok(lines.some(({ text, cls }) => text === kRetryLine && /\bwn\b/.test(cls)));
    await program.waitForText('#s-state', '在线');
  });
