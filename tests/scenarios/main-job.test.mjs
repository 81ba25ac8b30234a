// The program's main job: ordinary tools reach the site's controller in one connection, over a direct route
// and over one that overlaps the engineer's own network.
import assert from 'node:assert/strict';

import { kPlc, kTunnelAddress } from '../../lab/harness/network.mjs';
import { download, iperf, modbus, ping } from '../../lab/harness/tools.mjs';
import { connect, kDeviceSecret, scenario } from './scenario.mjs';

const kOverlappingPlc = '172.31.0.10';

async function works(result) {
  const { ok, error, figures } = await result;
  assert.ok(ok, error);
  return figures;
}

async function useAllTools(lab, address) {
  await works(ping(lab, address));
  await works(download(lab, address));
  await works(modbus(lab, address));
  await works(iperf(lab, address, { seconds: 1 }));
  await works(iperf(lab, address, { seconds: 1, reverse: true }));
}

/** The summed counters of the driver's log lines. */
function driverCount(log, name) {
  return [...log.matchAll(new RegExp(`\\b${name}=(\\d+)`, 'g'))]
    .reduce((sum, [, count]) => sum + Number(count), 0);
}

scenario('a controller is reached directly and through NAT, then the connection ends in order',
  { site: true }, async (lab, program) => {
    await connect(program);
    const [request] = await lab.service.requests({ pathPrefix: '/api/connections/request' });
    const body = JSON.parse(request.body);
    assert.match(body.engineerId, /^ENG-[1-9][0-9]{7}$/);
    assert.deepEqual(body, {
      deviceNumber: '', deviceSecret: kDeviceSecret, targetNetwork: 'ALL', engineerId: body.engineerId,
      clientPublicKey: '',
    });
    assert.equal(request.headers['user-agent'], 'Velmarine.Native/0.2');
    assert.equal(await program.card('组网 IP'), kTunnelAddress);
    assert.equal(await program.card('NAT访问IP'),
      'NAT模式IP 172.31.0.0/24 -> 现场真实 10.10.0.0/24\n直连网段 192.168.77.0/24');

    await useAllTools(lab, kPlc);
    await useAllTools(lab, kOverlappingPlc);
    const settings = await lab.prefix.readSettings();
    assert.equal(settings.connectionId, 'CONN-0001');
    assert.equal(settings.accessRoutesText, '172.31.0.0/24\r\n192.168.77.0/24');

    await program.click('#c-stop');
    await program.waitForText('#s-state', '未连接');
    await program.waitForText('#c-statusline',
      '软件隧道已停止。\r\n远程调试会话已断开。\r\n已移除系统代理旁路：192.168.77.*;10.10.0.*');
    const [report] = await lab.service.requests({ pathPrefix: '/api/connections/CONN-0001/disconnect' });
    assert.deepEqual(JSON.parse(report.body),
      { engineerId: body.engineerId, reason: '本地客户端断开连接' });
    assert.equal((await lab.prefix.readSettings()).connectionId, '');
    assert.equal((await ping(lab, kPlc, 1)).ok, false, 'nothing is carried any more');

    const log = await lab.driverLog();
    assert.ok(driverCount(log, 'received') > 1000, log);
    for (const fault of ['wrongChecksum', 'wrongInterface', 'lost']) {
      assert.equal(driverCount(log, fault), 0, `${fault}\n${log}`);
    }
  });

scenario('addresses outside the routes are left alone', { site: true }, async (lab, program) => {
  await connect(program);
  assert.equal((await ping(lab, '192.168.78.10', 1)).ok, false);
  assert.equal((await ping(lab, '10.10.0.1', 2)).ok, true, 'the own network works as before');
  assert.equal((await lab.service.counts()).fromClient, 0);
});
