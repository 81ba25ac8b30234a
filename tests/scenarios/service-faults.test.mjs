// The central service answers wrongly or not at all.
import assert from 'node:assert/strict';

import { clickConnect, connect, scenario } from './scenario.mjs';

const kRequest = '/api/connections/request';

/** Clicks 连接, waits for the log line, and checks that the window is usable afterwards. */
async function failsWith(lab, program, line) {
  await clickConnect(program);
  await program.waitForLog(line);
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
    'Error: Connection authorization response is missing connectionId, assignedAddress, or routes.');
  const reports = await lab.service.requests({ pathPrefix: '/api/connections/c1' });
  assert.equal(reports.length, 0, 'there was no connection to report');
  await worksAfterwards(lab, program);
});

scenario('a service that is down is an error and the next attempt works', {}, async (lab, program) => {
  await lab.service.stopListening();
  await failsWith(lab, program, 'Error: WinHttpReceiveResponse');
  await lab.service.resumeListening();
  await worksAfterwards(lab, program);
});

scenario('an HTML error page is a failed authorisation', {}, async (lab, program) => {
  await lab.service.setReply({
    path: kRequest, status: 502, headers: { 'content-type': 'text/html' },
    body: '<html><body>Bad Gateway</body></html>',
  });
  await failsWith(lab, program, 'Connection authorization failed: ');
  await worksAfterwards(lab, program);
});

scenario('a malformed JSON reply is an error', {}, async (lab, program) => {
  await lab.service.setReply({ path: kRequest, body: '{"success":true,' });
  await failsWith(lab, program, 'Error: Invalid JSON.');
});

scenario('a reply of a million opening brackets is an error', {}, async (lab, program) => {
  await lab.service.setReply({ path: kRequest, body: '['.repeat(1_000_000) });
  await failsWith(lab, program, 'Error: Invalid JSON.');
  await worksAfterwards(lab, program);
});

scenario('routes that cannot be used end the start and are reported', {}, async (lab, program) => {
  await lab.service.setGrant({
    connectionId: 'CONN-BAD', assignedAddress: '10.88.0.2', routes: ['nonsense', '10.0.0.0/33'],
  });
  await failsWith(lab, program, 'Error: No valid target routes were configured.');
  const [report] = await lab.service.requests({ pathPrefix: '/api/connections/CONN-BAD/disconnect' });
  assert.equal(JSON.parse(report.body).reason, '本地隧道启动失败');
});
