// The lab's service: what it records, what it can be made to answer, and how strictly it judges.
import assert from 'node:assert/strict';
import dgram from 'node:dgram';
import { once } from 'node:events';
import { createRequire } from 'node:module';
import net from 'node:net';
import { after, before, beforeEach, test } from 'node:test';

import { Opcode, frame } from '../../lab/service/faults.mjs';
import { LabService } from '../../lab/service/service.mjs';

const { WebSocket } = createRequire(new URL('../../lab/package.json', import.meta.url))('ws');
const kRelayPath = '/api/relay/client/C%20ONN?engineerId=ENG-12345678';
const kPacket = Buffer.from('450000140000000040010000' + '0a580002' + 'c0a84d0a', 'hex');

let site;
let service;
let port;

before(async () => {
  site = dgram.createSocket('udp4').bind(0, '127.0.0.1');
  await once(site, 'listening');
});
after(() => site.close());

beforeEach(async () => {
  service = new LabService();
  ({ port } = await service.listen({ site: { host: '127.0.0.1', port: site.address().port } }));
});

const post = (path, body) => fetch(`http://127.0.0.1:${port}${path}`, { method: 'POST', body });

async function until(probe) {
  for (let i = 0; i < 200; i += 1) {
    if (await probe()) return;
    await new Promise((resolve) => { setTimeout(resolve, 10); });
  }
  assert.fail(`never: ${probe}`);
}

async function relayClient() {
  const client = new WebSocket(`ws://127.0.0.1:${port}${kRelayPath}`, { perMessageDeflate: false });
  await once(client, 'open');
  return client;
}

function each(name, body) {
  test(name, { timeout: 10_000 }, async () => {
    try {
      await body();
    } finally {
      await service.close();
    }
  });
}

each('grants a connection and records the request', async () => {
  const reply = await (await post('/api/connections/request', '{"a":1}')).json();
  assert.equal(reply.success, true);
  assert.deepEqual(reply.data.routes, ['192.168.77.0/24']);
  const [request] = service.requests({ pathPrefix: '/api/connections' });
  assert.equal(request.body, '{"a":1}');
  assert.equal(request.method, 'POST');
});

each('refuses as often as told, then grants', async () => {
  service.refuseNext({ code: 'DEVICE_OFFLINE', message: 'offline', times: 2 });
  const codes = [];
  for (let i = 0; i < 3; i += 1) {
    codes.push((await (await post('/api/connections/request', '')).json()).code);
  }
  assert.deepEqual(codes, ['DEVICE_OFFLINE', 'DEVICE_OFFLINE', '']);
});

each('answers with scripted status, body and delay', async () => {
  service.setReply({ path: '/api/devices', status: 502, body: '<html>', delayMs: 120 });
  const started = performance.now();
  const reply = await post('/api/devices/resolve', '');
  assert.equal(reply.status, 502);
  assert.equal(await reply.text(), '<html>');
  assert.ok(performance.now() - started > 110);
  service.resetReplies();
  assert.equal((await post('/api/devices/resolve', '')).status, 200);
});

each('cuts a connection, truncates a body and writes raw bytes', async () => {
  service.setReply({ path: '/cut', cut: true });
  service.setReply({ path: '/short', body: '0123456789', truncateTo: 4 });
  service.setReply({ path: '/raw', raw: 'nothing like HTTP\r\n' });
  await assert.rejects(post('/cut', ''));
  await assert.rejects(async () => (await post('/short', '')).text());
  await assert.rejects(post('/raw', ''));
});

each('stops and resumes listening on the same port', async () => {
  await service.stopListening();
  await assert.rejects(post('/api/devices/resolve', ''));
  await service.resumeListening();
  assert.equal((await post('/api/devices/resolve', '')).status, 200);
});

each('carries packets between the client and the site', async () => {
  const client = await relayClient();
  const arrived = once(site, 'message');
  client.send(kPacket);
  const [bytes, from] = await arrived;
  assert.deepEqual(bytes, kPacket);
  const answered = once(client, 'message');
  site.send(kPacket, from.port, '127.0.0.1');
  const [message, isBinary] = await answered;
  assert.deepEqual(message, kPacket);
  assert.equal(isBinary, true);
  assert.deepEqual(service.relayClients().map(({ connectionId, engineerId }) => [connectionId, engineerId]),
    [['C ONN', 'ENG-12345678']]);
  assert.equal(service.counts().fromClient, 1);
  assert.equal(service.counts().toClient, 1);
});

each('refuses upgrades with the status asked for and at any other path', async () => {
  const statusOf = async (path) => {
    const client = new WebSocket(`ws://127.0.0.1:${port}${path}`);
    client.on('error', () => {});
    const [, response] = await once(client, 'unexpected-response');
    return response.statusCode;
  };
  assert.equal(await statusOf('/api/relay/client/C1'), 404);
  service.refuseUpgrade({ status: 200 });
  assert.equal(await statusOf(kRelayPath), 200);
  service.acceptUpgrades();
  (await relayClient()).terminate();
  assert.deepEqual(service.relayAttempts().map(({ status }) => status), [404, 200, 101]);
});

each('cuts the relay and goes silent', async () => {
  const client = await relayClient();
  client.on('error', () => {});
  service.setSilent(true);
  service.sendToClient({ packet: kPacket.toString('hex') });
  assert.equal(service.counts().dropped, 1);
  const closed = once(client, 'close');
  service.cutRelay();
  assert.equal((await closed)[0], 1006);
  await until(() => service.relayConnections() === 0);
});

each('writes fragments with pings between that a strict reader takes as one message', async () => {
  const client = await relayClient();
  let pings = 0;
  client.on('ping', () => { pings += 1; });
  const message = once(client, 'message');
  service.writeFault({ name: 'fragmentsWithPings', packet: kPacket.toString('hex') });
  assert.deepEqual((await message)[0], kPacket);
  assert.equal(pings, 2);
});

for (const name of ['maskedFrame', 'closeInTheMiddle', 'garbage']) {
  each(`writes a fault that ends a strict reader: ${name}`, async () => {
    const client = await relayClient();
    client.on('error', () => {});
    const closed = new Promise((resolve) => { client.on('close', resolve); });
    service.writeFault({ name, packet: kPacket.toString('hex') });
    await closed;
  });
}

each('records a client frame without mask as a protocol error', async () => {
  const socket = net.connect(port, '127.0.0.1');
  socket.on('error', () => {});
  socket.write(`GET ${kRelayPath} HTTP/1.1\r\nHost: x\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n` +
    'Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n');
  await once(socket, 'data');
  socket.write(frame(Opcode.binary, kPacket));
  await until(() => service.protocolErrors().length === 1);
  assert.match(service.protocolErrors()[0].message, /MASK/);
  socket.destroy();
});

each('answers a handshake with an oversized header', async () => {
  service.refuseUpgrade({ handshake: 'oversizedHeader' });
  const socket = net.connect(port, '127.0.0.1');
  socket.write(`GET ${kRelayPath} HTTP/1.1\r\nHost: x\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n` +
    'Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n');
  let bytes = 0;
  socket.on('data', (data) => { bytes += data.length; });
  await until(() => bytes > 16384);
  socket.destroy();
});
