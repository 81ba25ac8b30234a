// A report made while the client runs, from its system menu and from the command line, without effect on the connection.
import assert from 'node:assert/strict';
import { readFile, rm } from 'node:fs/promises';

import { waitUntil } from '../../lab/harness/program.mjs';
import { readReport, runCheck } from './check_report.mjs';
import { connect, kDeviceSecret, occurrences, scenario } from './scenario.mjs';

const kController = '192.168.77.10';
const kReportItem = 0x0e10;
const kSysCommand = 0x0112;
const kWritten = '诊断报告已写入：';

/** Pings the controller ten times a second while `body` runs, and for at least `seconds`: every ping is answered. */
async function whilePinging(lab, seconds, body) {
  const pings = lab.tool(['ping', '-n', '-i', '0.1', '-c', String(seconds * 10), '-W', '2', kController]);
  await body();
  const { stdout } = await pings;
  assert.match(stdout, / 0% packet loss/, stdout);
}

async function requestsDuring(lab, body) {
  const before = (await lab.service.requests()).length;
  await body();
  return (await lab.service.requests()).slice(before).map(({ method, url }) => `${method} ${url.replace(/=.*/, '=')}`).sort();
}

scenario('the menu item writes a report during a connection, which continues', { site: true }, async (lab, program) => {
  await connect(program);
  let report;
  const asked = await requestsDuring(lab, () => whilePinging(lab, 10, async () => {
    await lab.desktop.sendToWindow(kSysCommand, kReportItem, 2);  // the second click finds a report in progress
    const log = await program.waitForLog(kWritten, 40_000);
    const file = lab.prefix.unixPath(new RegExp(`${kWritten}(.*)\r\n`).exec(log)[1]);
    report = readReport(await readFile(file));
    await rm(file);
  }));
  assert.equal(occurrences(await program.log(), kWritten), 1);
  assert.deepEqual(asked, ['GET /', 'GET /api/updates/client?currentVersion=']);
  for (const id of ['running', 'settings', 'driver-files', 'driver-open', 'driver-checksums', 'service-udp']) {
    assert.equal(report.verdicts[id], '正常', `${id}\n${report.part(id)}`);
  }
  assert.match(report.part('running'), /由正在运行的客户端做的诊断/);
  assert.match(report.text, /\[\d\d:\d\d:\d\d\] 客户端启动中\r\n/, 'the log of this run');
  for (const secret of [kDeviceSecret, 'CONN-0001', (await lab.prefix.readSettings()).engineerId]) {
    assert.ok(!report.text.includes(secret), secret);
  }
  assert.equal(await program.state(), '在线');

  await lab.desktop.sendToWindow(kSysCommand, kReportItem);
  const again = await waitUntil('a second report', async () => {
    const log = await program.log();
    return occurrences(log, kWritten) === 2 ? log : null;
  }, 40_000);
  await rm(lab.prefix.unixPath(new RegExp(`.*${kWritten}(.*)\r\n`, 's').exec(again)[1]));
});

scenario('the command line writes a report beside a running client, whose connection continues', { site: true },
  async (lab, program) => {
    await connect(program);
    await whilePinging(lab, 10, async () => {
      const report = await runCheck(lab, { env: { LAB_WINDIVERT_PORT: '7012', LAB_WINDIVERT_PEER: '7011' } });
      assert.equal(report.verdicts.running, '提示');
      assert.match(report.part('running'), /客户端正在运行/);
      assert.equal(report.verdicts['driver-open'], '正常', report.part('driver-open'));
      assert.equal(report.verdicts.settings, '正常', 'a connection and entries that are in use');
    });
    assert.equal(await program.state(), '在线');
    assert.equal(await program.closeWindow(), 0);
  });
