// The central service answers wrongly or not at all.
import assert from 'node:assert/strict';

import { clickConnect, connect, occurrences, scenario } from './scenario.mjs';

const kRequest = '/api/connections/request';

/** Clicks 连接, waits for the log line and its explanation, and checks that the window stays usable. */
async function failsWith(lab, program, line, hint) {
  await clickConnect(program);
  await program.waitForLog(line);
  await program.waitForLog(`提示：${hint}`);
  assert.equal(await program.state(), '未连接');
  assert.equal(await lab.prefix.readSettings().then((settings) => settings.connectionId), '');
}

async function worksAfterwards(lab, program) {
  await lab.service.resetReplies();
  await connect(program);
}

scenario('a reply without routes is an error and the next attempt works', {}, async (lab, program) => {
  await lab.service.setReply({
    path: kRequest,
    body: JSON.stringify({ success: true, data: { connectionId: 'c1', assignedAddress: '10.88.0.2' } }),
  });
  await failsWith(lab, program,
    'Error: Connection authorization response is missing connectionId, assignedAddress, or routes.',
    '中心服务给出的连接不能用。');
  const reports = await lab.service.requests({ pathPrefix: '/api/connections/c1' });
  assert.equal(reports.length, 0, 'there was no connection to report');
  await worksAfterwards(lab, program);
});

scenario('a service that is down is an error and the next attempt works', {}, async (lab, program) => {
  await lab.service.stopListening();
  await failsWith(lab, program, 'Error: WinHttpReceiveResponse', '连不上中心服务。');
  await program.click('#c-desktop');
  await program.waitForLog('远程桌面失败：WinHttpReceiveResponse');
  await clickConnect(program);
  const log = await program.log();
  assert.equal(occurrences(log, '提示：连不上中心服务。'), 1, 'once for all of them');
  await lab.service.resumeListening();
  await worksAfterwards(lab, program);
});

scenario('an HTML error page is a failed authorisation', {}, async (lab, program) => {
  await lab.service.setReply({
    path: kRequest, status: 502, headers: { 'content-type': 'text/html' },
    body: '<html><body>Bad Gateway</body></html>',
  });
  await failsWith(lab, program, 'Connection authorization failed: ', '回答里没有原因，');
  await worksAfterwards(lab, program);
});

scenario('a malformed JSON reply is an error', {}, async (lab, program) => {
  await lab.service.setReply({ path: kRequest, body: '{"success":true,' });
  await failsWith(lab, program, 'Error: Invalid JSON.', '中心服务的回答残缺，');
});

scenario('a text of the service is never explained as a local failure', {}, async (lab, program) => {
  const message = 'Error: WinHttpReceiveResponse: 12029 Invalid JSON.';
  await lab.service.setReply({ path: kRequest, body: JSON.stringify({ success: false, code: 'X', message }) });
  await clickConnect(program);
  await program.waitForLog(`Connection authorization failed: ${message}`);
  await program.click('#c-test');
  await program.waitForLog('通讯延迟');
  assert.doesNotMatch(await program.log(), /提示：(连不上|中心服务|回答)/);
});

scenario('a reply of a million opening brackets is an error', {}, async (lab, program) => {
  await lab.service.setReply({ path: kRequest, body: '['.repeat(1_000_000) });
  await failsWith(lab, program, 'Error: Invalid JSON.', '中心服务的回答残缺，');
  await worksAfterwards(lab, program);
});

scenario('unusable routes fail the start and are reported', {}, async (lab, program) => {
  await lab.service.setGrant({
    connectionId: 'CONN-BAD', assignedAddress: '10.88.0.2', routes: ['nonsense', '10.0.0.0/33'],
  });
  await failsWith(lab, program, 'Error: No valid target routes were configured.',
    '中心服务没有给出可用的网段。');
  const [report] = await lab.service.requests({ pathPrefix: '/api/connections/CONN-BAD/disconnect' });
  assert.equal(JSON.parse(report.body).reason, '本地隧道启动失败');
});
