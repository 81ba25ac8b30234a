// OPC UA through node-opcua on both sides. The server's answer to GetEndpoints contains its own address, which a
// strict client compares with the typed one: with NAT they differ.
import { once } from 'node:events';
import { createRequire } from 'node:module';
import path from 'node:path';

import { mustBe, timed, within } from './support/requests.mjs';
import { startEach } from './support/sharing.mjs';

const require = createRequire(new URL('../package.json', import.meta.url));
const client = require('node-opcua-client');
const server = require('node-opcua-server');
const { OPCUACertificateManager } = require('node-opcua-certificate-manager');

client.setLogLevel(client.LogLevel.Error);  // the errors contain all that matters

export const title = 'OPC UA';
export const settingNeeded = 'endpointMustExist: false';

const kPort = 4840;
const kFolder = 'ns=1;s=Controller';
/** Each use writes its own variable, because an earlier use's write may arrive late, over its old connection. */
const kSetpoints = 50;
const setpoint = (number) => `Setpoint${number % kSetpoints}`;
const kWatched = 'ns=1;s=Watched';
const kNames = [...Array.from({ length: kSetpoints }, (_, number) => setpoint(number)), 'Watched'];
const kPublishingMs = 50;

const certificates = (folder) =>
  new OPCUACertificateManager({ rootFolder: folder, automaticallyAcceptUnknownCertificate: true });

async function startServer(address, folder) {
  const one = new server.OPCUAServer({
    host: address, hostname: address, port: kPort,
    serverCertificateManager: certificates(path.join(folder, `opc-ua-${address}`)),
    userCertificateManager: certificates(path.join(folder, `opc-ua-${address}-users`)),
  });
  await one.initialize();
  const space = one.engine.addressSpace.getOwnNamespace();
  const parent = space.addFolder(one.engine.addressSpace.rootFolder.objects,
    { browseName: 'Controller', nodeId: kFolder });
  for (const name of kNames) {
    space.addVariable({
      componentOf: parent, browseName: name, nodeId: `ns=1;s=${name}`, dataType: 'Double',
      minimumSamplingInterval: 0, value: { dataType: 'Double', value: 0 },
    });
  }
  await one.start();
  return one;
}

/** One server per address, with that address in its endpoints. */
export async function serve({ addresses, folder }) {
  return startEach(addresses, (address) => startServer(address, folder), (one) => one.shutdown(0));
}

/** Calls `body` with a session; returns {connectMs, ...result of body}. */
async function withSession({ address, timeoutMs, folder, setting }, body) {
  const one = client.OPCUAClient.create({
    ...(setting ? { endpointMustExist: false } : {}),
    clientCertificateManager: certificates(path.join(folder, 'opc-ua-client')),
    connectionStrategy: { maxRetry: 0 },
    transportTimeout: timeoutMs, defaultTransactionTimeout: timeoutMs,
  });
  const url = `opc.tcp://${address}:${kPort}`;
  const started = performance.now();
  try {
    await within(2 * timeoutMs, 'OPC UA connect', one.connect(url));
    const named = [...new Set((await one.getEndpoints()).map(({ endpointUrl }) => endpointUrl))].join(' ');
    const session = await within(timeoutMs, 'OPC UA session', one.createSession()).catch((error) => {
      throw new Error(`${error.message} (typed ${url}, the server names ${named})`);
    });
    const connectMs = performance.now() - started;
    const result = await body(session);
    await session.close();
    return { connectMs, ...result, notes: { typed: url, serverNames: named } };
  } finally {
    await within(timeoutMs, 'OPC UA disconnect', one.disconnect()).catch(() => {});
  }
}

async function write(session, nodeId, value) {
  const status = await session.write({
    nodeId, attributeId: client.AttributeIds.Value,
    value: { value: { dataType: client.DataType.Double, value } },
  });
  mustBe(`OPC UA write of ${nodeId}`, status.name, 'Good');
}

async function read(session, nodeId, wanted) {
  const answer = await session.read({ nodeId, attributeId: client.AttributeIds.Value });
  mustBe(`OPC UA read of ${nodeId}`, answer.statusCode.name, 'Good');
  mustBe(`OPC UA value of ${nodeId}`, answer.value.value, wanted);
}

async function browse(session) {
  const { references } = await session.browse(kFolder);
  mustBe('OPC UA names', references.map(({ browseName }) => browseName.name).join(' '), kNames.join(' '));
}

let uses = 0;

/** In turn: writes, reads back and browses. */
export async function use(options) {
  const nodeId = `ns=1;s=${setpoint(uses++)}`;
  return withSession(options, async (session) => ({
    requestMs: await timed(options.rounds, async (index) => {
      const value = Math.floor(index / 3) + 0.25;
      if (index % 3 === 0) await write(session, nodeId, value);
      if (index % 3 === 1) await read(session, nodeId, value);
      if (index % 3 === 2) await browse(session);
    }),
  }));
}

/** Measures the time from each write to the subscription's report of the value. */
async function useSubscription(options) {
  return withSession(options, async (session) => {
    const subscription = await session.createSubscription2({
      requestedPublishingInterval: kPublishingMs, requestedLifetimeCount: 1000,
      requestedMaxKeepAliveCount: 20, publishingEnabled: true, maxNotificationsPerPublish: 100, priority: 1,
    });
    const item = await subscription.monitor({ nodeId: kWatched, attributeId: client.AttributeIds.Value },
      { samplingInterval: 0, queueSize: 10, discardOldest: true }, client.TimestampsToReturn.Both);
    const next = (what) => within(options.timeoutMs, what, once(item, 'changed'));
    const [first] = await next('OPC UA first notification');
    const base = first.value.value;
    const requestMs = await timed(options.rounds, async (index) => {
      const reported = next('OPC UA notification');
      await Promise.all([write(session, kWatched, base + index + 1), reported]);
      mustBe('OPC UA notification', (await reported)[0].value.value, base + index + 1);
    });
    await subscription.terminate();
    return { requestMs };
  });
}

export const variants = [{ title: 'OPC UA subscription', use: useSubscription, settingNeeded }];
