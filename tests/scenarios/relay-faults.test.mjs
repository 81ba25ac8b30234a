// The relay refuses the connection or loses it.
import assert from 'node:assert/strict';

import { kPlc } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { ping } from '../../lab/harness/tools.mjs';
import { clickConnect, connect, occurrences, scenario } from './scenario.mjs';

scenario('a relay that answers 200 fails the start, which is reported', {}, async (lab, program) => {
  await lab.service.refuseUpgrade({ status: 200 });
  await clickConnect(program);
  await program.waitForLog('Error: WebSocket HTTP upgrade failed, status 200');
  await program.waitForLog('提示：回答的是网页，不是中继：');
  assert.equal(await program.state(), '未连接');
  const [report] = await lab.service.requests({ pathPrefix: '/api/connections/CONN-0001/disconnect' });
  assert.equal(JSON.parse(report.body).reason, '本地隧道启动失败');
});

scenario('a lost relay is retried after 1, 2, 4, 8, 10 and 10 s', { site: true, timeoutMs: 240_000 },
  async (lab, program) => {
    await connect(program);
    assert.ok((await ping(lab, kPlc)).ok, 'ping before the cut');
    await lab.service.refuseUpgrade({ status: 503 });
    const cutMs = await lab.service.cutRelay();
    await program.waitForText('#s-detail', '软件隧道正在自动重连');
    assert.equal(await program.state(), '未连接');
    const attempts = await waitUntil('six attempts', async () => {
      const list = await lab.service.relayAttempts({ sinceMs: cutMs });
      return list.length >= 6 && list;
    }, 60_000);
    await lab.service.acceptUpgrades();
    const log = await program.log();
    assert.equal(occurrences(log, '提示：中继正在维护，'), 1, `explained once for six attempts: ${log}`);
    const times = [cutMs, ...attempts.map(({ timeMs }) => timeMs)];
    for (const [index, wait] of [1, 2, 4, 8, 10, 10].entries()) {
      const gap = (times[index + 1] - times[index]) / 1000;
      assert.ok(gap > wait - 0.3 && gap < wait + 2.5, `attempt ${index + 1} came after ${gap} s`);
    }
    await program.waitForText('#s-state', '在线', 20_000);
    const after = await ping(lab, kPlc);
    assert.ok(after.ok, `ping after the return: ${after.error}`);
  });
