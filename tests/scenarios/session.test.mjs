// Connecting, disconnecting and closing in unusual order.
import assert from 'node:assert/strict';

import { kPlc } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { ping } from '../../lab/harness/tools.mjs';
import { clickConnect, connect, occurrences, scenario } from './scenario.mjs';

const requests = (lab, pathPrefix) => lab.service.requests({ pathPrefix });

scenario('a second action while one is running is dropped', {}, async (lab, program) => {
  await lab.service.setReply({ path: '/api/connections/request', delayMs: 3_000, times: 1 });
  await clickConnect(program);
  await program.waitForText('#c-statusline', '正在请求连接授权...');
  await program.click('#c-stop');
  await program.click('#c-connect');
  await program.waitForText('#s-state', '在线');
  assert.equal((await requests(lab, '/api/connections/request')).length, 1);
  const log = await program.log();
  assert.equal(occurrences(log, '正在请求连接授权...'), 1);
  assert.equal(occurrences(log, '正在停止软件隧道...'), 0);
});

scenario('closing the window while connected stops the tunnel without a report', { site: true },
  async (lab, program) => {
    await connect(program);
    assert.ok((await ping(lab, kPlc)).ok);
    assert.equal(await program.closeWindow(), 0);
    assert.equal((await requests(lab, '/api/connections/CONN-0001/disconnect')).length, 0);
    await waitUntil('the relay connection gone', async () => (await lab.service.relayConnections()) === 0);
    assert.match(await lab.driverLog(), /close/i);
  });

scenario('connecting twice ends the first connection before the second', { site: true },
  async (lab, program) => {
    await connect(program);
    await lab.service.setGrant({
      connectionId: 'CONN-0002', assignedAddress: '10.88.0.2', routes: ['192.168.77.0/24'],
    });
    await clickConnect(program);
    await program.waitForLog('工程师端软件隧道已启动：CONN-0002');
    const all = (await lab.service.requests({})).map(({ url }) => url);
    const ended = all.findIndex((url) => url.includes('CONN-0001/disconnect'));
    assert.ok(ended > all.indexOf('/api/connections/request'));
    assert.ok(ended < all.lastIndexOf('/api/connections/request'));
    assert.equal(await lab.service.relayConnections(), 1);
    const result = await ping(lab, kPlc);
    assert.ok(result.ok, result.error);
  });

scenario('disconnecting twice is harmless', {}, async (lab, program) => {
  await connect(program);
  await program.click('#c-stop');
  await program.waitForText('#c-statusline', /软件隧道已停止。/);
  await program.click('#c-stop');
  await program.waitForText('#c-statusline', /软件隧道运行中。/);
  assert.equal((await requests(lab, '/api/connections/CONN-0001/disconnect')).length, 1);
  assert.equal(await program.state(), '未连接');
});
