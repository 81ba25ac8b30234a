// A profile with another service and other networks is loaded while connected: the connection is unaffected, and its end
// is reported to the service that granted it.
import assert from 'node:assert/strict';

import { endedConnections } from '../../lab/harness/acts.mjs';
import { kGrant, kServicePort, kServiceUrl } from '../../lab/harness/lab.mjs';
import { kCloud, kCloudToSite } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { connect, kDeviceSecret, logsAfter, scenario } from './scenario.mjs';

const kHome = `${kCloud}:${kServicePort}`;
const kOther = `${kCloudToSite}:${kServicePort}`;  // the same service at its other address
const kBefore = 'localhost;10.60.*';
const kGranted = '192.168.77.*;10.10.0.*';
const kStopping = '正在停止软件隧道';

const kSettings = {
  siteProfiles: [
    {
      name: '别处', serverUrl: `http://${kOther}`, deviceNumber: 'DEV-9', deviceSecret: 'KEY-9',
      targetNetwork: 'ALL', sharedNetworks: ['10.60.0.0/16'],
    },
    {
      name: '本站', serverUrl: kServiceUrl, deviceNumber: 'DEV-1', deviceSecret: kDeviceSecret,
      targetNetwork: 'ALL', sharedNetworks: [],
    },
  ],
};

const proxyOverride = (lab) => lab.prefix.proxyOverride({ namespace: lab.network.engineer });

const load = (program, name) =>
  logsAfter(program, `已载入档案：${name}`, () => program.choose('#c-profiles', name));

async function disconnect(program) {
  // From the log, because the result of a connection that replaced another one contains these words too.
  await logsAfter(program, new RegExp(`${kStopping}[^]*远程调试会话已断开。`), () => program.click('#c-stop'));
  await program.waitForText('#c-statusline', /远程调试会话已断开。/);
}

/** Connects through the service's first address, then loads the profile of another. */
async function connectThenLoad(lab, program) {
  await lab.service.setGrant(kGrant, { numbered: true });
  await lab.network.routeEngineerByCable('10.20.0.0/24');
  await lab.prefix.setProxyOverride(kBefore, { namespace: lab.network.engineer });
  await connect(program);
  await program.waitForText('#c-statusline', /工程师端软件隧道已启动/);
  assert.equal(await proxyOverride(lab), `${kBefore};${kGranted}`);
  await load(program, '别处');
}

/** The service's requests about connections: {host, path, engineerId}. */
async function requests(lab) {
  return (await lab.service.requests({ method: 'POST', pathPrefix: '/api/connections/' }))
    .map(({ headers, url, body }) => ({ host: headers.host, path: url, engineerId: JSON.parse(body).engineerId }));
}

/** The first connection was ended where it was granted, by the engineer who had asked for it. */
async function endedWhereGranted(lab) {
  const [request, ended] = await requests(lab);
  const [id] = await lab.service.granted();
  assert.match(request.engineerId, /^ENG-\d{8}$/);
  assert.deepEqual(ended, { ...request, host: kHome, path: `/api/connections/${id}/disconnect` });
  assert.equal(request.host, kHome);
}

scenario('断开 ends the connection where it was granted, whatever profile was loaded', { settings: kSettings },
  async (lab, program) => {
    await connectThenLoad(lab, program);
    assert.equal(await program.state(), '在线');
    assert.equal(await program.value('#c-secret'), 'KEY-9');
    await disconnect(program);
    await endedWhereGranted(lab);
    assert.equal(await proxyOverride(lab), kBefore, 'an entry like one of the profile’s networks stays');
    assert.deepEqual(await endedConnections(lab.service), await lab.service.granted());

    const { serverUrl, deviceSecret } = await lab.prefix.readSettings();
    assert.deepEqual([serverUrl, deviceSecret], [`http://${kOther}`, 'KEY-9'], 'the profile is still in use');
  });

scenario('断开 of the next run ends the connection where it was granted', { settings: kSettings },
  async (lab, program) => {
    await connectThenLoad(lab, program);
    await program.kill();
    const next = await lab.startProgram();
    assert.equal(await next.value('#c-secret'), 'KEY-9');
    await disconnect(next);
    await endedWhereGranted(lab);
    assert.equal(await proxyOverride(lab), kBefore);
    assert.deepEqual(await endedConnections(lab.service), await lab.service.granted());
  });

scenario('连接 ends the old connection where it was granted and asks the new service', { settings: kSettings },
  async (lab, program) => {
    await connectThenLoad(lab, program);
    // From the log, because the page still shows the first connection's text for a moment.
    await logsAfter(program, /工程师端软件隧道已启动/, () => program.click('#c-connect'));
    assert.equal(await program.state(), '在线');
    await endedWhereGranted(lab);
    const [, , asked, ...more] = await requests(lab);
    assert.deepEqual(more, []);
    assert.equal(asked.host, kOther);
    assert.equal(asked.path, '/api/connections/request');
    const [, second] = await lab.service.granted();
    const [{ headers, url }] = (await lab.service.relayAttempts()).slice(-1);
    assert.equal(headers.host.split(':')[0], kCloudToSite);
    assert.ok(url.includes(second), url);
    assert.equal(await proxyOverride(lab), `${kBefore};${kGranted}`);

    // Back to the first service: the second connection is ended at its own service.
    await load(program, '本站');
    await disconnect(program);
    const last = (await requests(lab)).at(-1);
    assert.deepEqual([last.host, last.path], [kOther, `/api/connections/${second}/disconnect`]);
    await waitUntil('the list as before', async () => await proxyOverride(lab) === kBefore);
    assert.deepEqual(await endedConnections(lab.service), await lab.service.granted());
  });
