// The report about faults of the service, the clock, the proxies or the networks.
import assert from 'node:assert/strict';

import { kServiceUrl } from '../../lab/harness/lab.mjs';
import { run, runOrFail } from '../../lab/harness/processes.mjs';
import { kWine } from '../../lab/harness/wine.mjs';
import { runCheck } from './check_report.mjs';
import { scenario } from './scenario.mjs';

const kInternetSettings = 'HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings';
const kUsePac = 4;
const kUseProxy = 2;

/** The registry value of the user's proxy: a head, then texts with their lengths. */
function connectionSettings({ proxy = '', bypass = '', script = '' }) {
  const number = (value) => { const bytes = Buffer.alloc(4); bytes.writeUInt32LE(value); return bytes; };
  const flags = 1 | (proxy ? kUseProxy : 0) | (script ? kUsePac : 0);
  const texts = [proxy, bypass, script].flatMap((text) => [number(text.length), Buffer.from(text, 'latin1')]);
  return Buffer.concat([number(0x46), number(0), number(flags), ...texts, Buffer.alloc(32)]).toString('hex');
}

scenario('a service that is stopped, replaced by a web page, silent or without UDP is reported',
  { start: false, timeoutMs: 300_000 }, async (lab) => {
    await lab.faults.blockUdp();
    const noUdp = await runCheck(lab);
    await lab.faults.clear();
    assert.equal(noUdp.verdicts['service-udp'], '提示');
    assert.match(noUdp.part('service-udp'), /UDP 没有回答/);
    assert.equal(noUdp.verdicts['service-tcp'], '正常');

    await lab.service.setReply({ path: '/', headers: { date: 'Thu, 01 Jan 2026 00:00:00 GMT' }, body: '{}' });
    await lab.service.setReply({ path: '/api/updates/client', headers: { 'content-type': 'text/html' },
      body: '<html><body>Sign in</body></html>' });
    const page = await runCheck(lab);
    await lab.service.resetReplies();
    assert.equal(page.verdicts['service-reply'], '异常');
    assert.match(page.part('service-reply'), /回答的是一个网页/);
    assert.equal(page.verdicts.clock, '异常');
    assert.match(page.part('clock'), /本机时钟比服务快 \d+ 秒/);

    lab.pauseService();
    const silent = await runCheck(lab);
    lab.continueService();
    assert.equal(silent.verdicts['service-tcp'], '正常', 'the kernel takes it');
    assert.equal(silent.verdicts['service-reply'], '异常');
    assert.ok(silent.seconds < 35, `${silent.seconds} s`);

    await lab.service.stopListening();
    const stopped = await runCheck(lab);
    await lab.service.resumeListening();
    assert.equal(stopped.verdicts['service-tcp'], '异常');
    assert.match(stopped.part('service-tcp'), /TCP 连不上中心服务：错误 /);

    await lab.faults.dropTcp();
    const blocked = await runCheck(lab);
    await lab.faults.clear();
    assert.equal(blocked.verdicts['service-tcp'], '异常');
    assert.match(blocked.part('service-tcp'), /4 秒内没有回应/);
  });

scenario('networks within the substitutes, overlapping sites and proxies are reported', { start: false, settings: {
  siteProfiles: [{ name: 'a', serverUrl: kServiceUrl, deviceNumber: '', deviceSecret: 'x-secret-1', targetNetwork: 'ALL', sharedNetworks: ['172.31.9.0/24'] }],
} }, async (lab) => {
  const options = { namespace: lab.network.engineer, env: lab.prefix.env };
  await runOrFail(['ip', 'link', 'add', 'probe0', 'type', 'veth', 'peer', 'name', 'probe1'], options);
  await runOrFail(['ip', 'address', 'add', '172.31.9.1/24', 'dev', 'probe0'], options);
  for (const device of ['probe0', 'probe1']) await runOrFail(['ip', 'link', 'set', device, 'up'], options);
  await runOrFail([kWine, 'reg.exe', 'add', `${kInternetSettings}\\Connections`, '/v', 'DefaultConnectionSettings', '/t',
    'REG_BINARY', '/d', connectionSettings({ proxy: 'proxy.example:3128' }), '/f'], options);
  await lab.prefix.setProxyOverride('10.1.2.*;<local>', { namespace: lab.network.engineer });
  let report;
  try {
    report = await runCheck(lab);
  } finally {
    await run([kWine, 'reg.exe', 'delete', `${kInternetSettings}\\Connections`, '/v', 'DefaultConnectionSettings', '/f'], options);
    await lab.prefix.setProxyOverride(null, { namespace: lab.network.engineer });
  }
  assert.equal(report.verdicts.networks, '异常');
  assert.match(report.part('networks'), /172\.31\.9\.0\/24 占用了 172\.31\.0\.0\/16/);
  assert.match(report.part('networks'), /档案中的网段 172\.31\.9\.0\/24 与本机网段 172\.31\.9\.0\/24 重叠/);
  assert.equal(report.verdicts.proxy, '提示');
  assert.match(report.part('proxy'), /设置了用户代理 proxy\.example:3128/);
  assert.match(report.part('proxy'), /代理旁路名单：10\.1\.2\.\*;<local>/);
});
