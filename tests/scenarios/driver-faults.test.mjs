// The packet driver is missing or refuses.
import assert from 'node:assert/strict';
import { rm } from 'node:fs/promises';
import path from 'node:path';

import { clickConnect, connect, scenario } from './scenario.mjs';

/** The start failed with `line`; nothing runs, and the service was informed. */
async function startFails(lab, program, line) {
  await clickConnect(program);
  await program.waitForLog(line);
  assert.equal(await program.state(), '未连接');
  assert.equal(await lab.service.relayConnections(), 0);
  const reports = await lab.service.requests({ pathPrefix: '/api/connections/CONN-0001/disconnect' });
  assert.equal(JSON.parse(reports.at(-1).body).reason, '本地隧道启动失败');
}

scenario('a blocked driver is reported with the system\'s code, its meaning and its cure',
  { env: { LAB_WINDIVERT_OPEN_ERROR: '577' } }, async (lab, program) => {
    await startFails(lab, program, /Error: WinDivertOpen failed for filter: outbound .*\r\n错误 577：系统不接受驱动文件的数字签名/);
    await program.waitForText('#c-statusline', /错误 577：/);
  });

scenario('another program\'s leftover driver is stopped, and the driver opened again',
  { env: { LAB_WINDIVERT_OPEN_ERROR: '1058', LAB_WINDIVERT_FAIL_OPEN: '1' } }, async (lab, program) => {
    await connect(program);
    assert.equal((await lab.driverLog()).match(/^open .*error=1058/gm).length, 1);
  });

scenario('a driver that refuses the filter fails the start',
  { env: { LAB_WINDIVERT_OPEN_ERROR: '87' } }, async (lab, program) => {
    await startFails(lab, program, 'Error: WinDivertOpen failed for filter: outbound and ip and !impostor');
  });

for (const [discoveryModeEnabled, most] of [[false, 124], [true, 123]]) {
  scenario(`${most + 1} routes fail the start, ${most} work, discovery mode ${discoveryModeEnabled ? 'on' : 'off'}`,
    { settings: { discoveryModeEnabled } }, async (lab, program) => {
      const grant = (count) => lab.service.setGrant({
        connectionId: 'CONN-0001', assignedAddress: '10.88.0.2',
        routes: Array.from({ length: count }, (_, i) => `10.${100 + (i >> 8)}.${i & 255}.0/24`),
      });
      await grant(most + 1);
      await startFails(lab, program, 'Error: WinDivertOpen failed for filter: ');
      await grant(most);
      await connect(program);
    });
}

scenario('missing driver files fail the start and come back with the next run', {},
  async (lab, program) => {
    const library = path.join(lab.prefix.runtimeFolder, 'WinDivert.dll');
    await rm(library);
    await startFails(lab, program, 'Error: WinDivert.dll was not found in the runtime cache.');
    await program.closeWindow();
    const next = await lab.startProgram();
    await connect(next);
  });
