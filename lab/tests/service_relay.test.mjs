// The lab's relay: the packets it carries, its protocol checks, and its scripted faults.
import assert from 'node:assert/strict';
import { once } from 'node:events';

import { Opcode, frame } from '../standins/service/faults.mjs';
import {
  each, kPacket, kPacketHex, kRelayPath, until, upgradeRequest, WebSocket,
} from './service_harness.mjs';

/** kPacket with another destination. */
const packetFor = (...address) => Buffer.concat([kPacket.subarray(0, 16), Buffer.from(address)]);

each('carries packets between the client and the site', async ({ service, site, relayClient }) => {
  const client = await relayClient();
  const arrived = once(site, 'message');
  client.send(kPacket);
  const [bytes, from] = await arrived;
  assert.deepEqual(bytes, kPacket);
  const answered = once(client, 'message');
  site.send(kPacket, from.port, '127.0.0.1');
  assert.deepEqual(await answered, [kPacket, true]);
  const [{ connectionId, engineerId }] = service.relayClients();
  assert.deepEqual([connectionId, engineerId], ['C ONN', 'ENG-12345678']);
  assert.deepEqual(service.counts(), {
    fromClient: 1, toClient: 1, bytesFromClient: 20, bytesToClient: 20, dropped: 0,
    udpFromClient: 0, udpToClient: 0, webSocketFromClient: 1, webSocketToClient: 1, wrongToken: 0,
  });
});

each('sends a packet to the connection with its destination address', async ({ service, site, relayClient }) => {
  for (const [connectionId, assignedAddress] of [['A', '10.88.0.2/24'], ['B', '10.88.0.3']]) {
    service.setGrant({ connectionId, assignedAddress, routes: ['10.0.0.0/8'] });
  }
  const seen = [];
  for (const id of ['A', 'B']) {
    const client = await relayClient(`/api/relay/client/${id}?engineerId=E`);
    client.on('message', (packet) => seen.push([id, packet.at(-1)]));
    client.send(kPacket);
  }
  const [, from] = await once(site, 'message');
  const unwanted = [packetFor(10, 88, 0, 4), Buffer.from('60'.repeat(40), 'hex'), Buffer.from([0x45])];
  for (const packet of [...unwanted, packetFor(10, 88, 0, 3), packetFor(10, 88, 0, 2)]) {
    site.send(packet, from.port, '127.0.0.1');
  }
  await until(() => seen.length === 2);
  assert.deepEqual(seen.sort(), [['A', 2], ['B', 3]]);
  assert.equal(service.counts().dropped, unwanted.length);
});

each('prefers the newest of two connections with one address', async ({ service, site, relayClient }) => {
  const old = await relayClient();
  old.on('message', () => assert.fail('the old connection got the packet'));
  const young = await relayClient();
  young.send(kPacket);
  const [, from] = await once(site, 'message');
  const answered = once(young, 'message');
  site.send(kPacket, from.port, '127.0.0.1');
  await answered;
  assert.equal(service.relayConnections(), 2);
});

each('keeps packets on request', async ({ service, relayClient }) => {
  const client = await relayClient();
  client.send(kPacket);
  await until(() => service.counts().fromClient === 1);
  assert.deepEqual(service.packets(), []);
  service.keepPackets(true);
  client.send(kPacket);
  await until(() => service.counts().fromClient === 2);
  assert.deepEqual(service.packets().map(({ direction, via, hex }) => [direction, via, hex]),
    [['fromClient', 'webSocket', kPacketHex]]);
  service.forgetPackets();
  assert.deepEqual(service.packets(), []);
});

each('does not accept a text message as a packet', async ({ service, relayClient }) => {
  const client = await relayClient();
  client.send('text');
  client.send(kPacket);
  await until(() => service.counts().fromClient === 1);
  assert.equal(service.counts().bytesFromClient, kPacket.length);
});

each('refuses upgrades with the given status and at any other path', async ({ service, port, relayClient }) => {
  const statusOf = async (path) => {
    const client = new WebSocket(`ws://127.0.0.1:${port}${path}`);
    client.on('error', () => {});
    const [, response] = await once(client, 'unexpected-response');
    return response.statusCode;
  };
  assert.equal(await statusOf('/api/relay/client/C1'), 404);
  assert.equal(await statusOf('/api/relay/client/?engineerId=E'), 404);
  assert.equal(await statusOf('/api/relay/client/C1?engineerId='), 404);
  for (const status of [200, 404, 500]) {
    service.refuseUpgrade({ status });
    assert.equal(await statusOf(kRelayPath), status);
  }
  service.acceptUpgrades();
  await relayClient();
  assert.deepEqual(service.relayAttempts().map(({ status }) => status), [404, 404, 404, 200, 404, 500, 101]);
  const [last] = service.relayAttempts().slice(-1);
  assert.equal(last.url, kRelayPath);
  assert.equal(last.headers['sec-websocket-extensions'], undefined);
});

each('cuts all connections or those of one id, without a close frame', async ({ service, relayClient }) => {
  const clients = [];
  for (const id of ['A', 'B', 'C']) clients.push(await relayClient(`/api/relay/client/${id}?engineerId=E`));
  const codes = clients.map((client) => once(client, 'close').then(([code]) => code));
  const cutMs = service.cutRelay({ connectionId: 'B' });
  assert.equal(await codes[1], 1006);
  assert.ok(cutMs > 0);
  assert.deepEqual(service.relayClients().map(({ connectionId }) => connectionId), ['A', 'C']);
  service.cutRelay();
  assert.deepEqual(await Promise.all(codes), [1006, 1006, 1006]);
  await until(() => service.relayConnections() === 0);
});

each('refuses relay connections while it does not listen', async ({ service, port, relayClient }) => {
  const closed = once(await relayClient(), 'close');
  await service.stopListening();
  assert.equal((await closed)[0], 1006);
  const [error] = await once(new WebSocket(`ws://127.0.0.1:${port}${kRelayPath}`), 'error');
  assert.equal(error.code, 'ECONNREFUSED');
  await service.resumeListening();
  await relayClient();
});

each('pings within every 3 s, and neither pings nor carries packets when silent',
  async ({ service, site, relayClient }) => {
    const opened = performance.now();
    const client = await relayClient();
    await once(client, 'ping');
    assert.ok(performance.now() - opened < 4_000);
    service.setSilent(true);
    let heard = 0;
    for (const event of ['ping', 'message']) client.on(event, () => { heard += 1; });
    site.on('message', () => { heard += 1; });
    service.sendToClient({ packet: kPacketHex });
    client.send(kPacket);
    await until(() => service.counts().fromClient === 1);
    await new Promise((resolve) => { setTimeout(resolve, 3_300); });  // enough for one ping
    assert.equal(heard, 0);
    assert.equal(service.counts().dropped, 1);
    service.setSilent(false);
    await once(client, 'ping');
  });

each('writes fragments with pings in between that a strict reader accepts as one message',
  async ({ service, relayClient }) => {
    const client = await relayClient();
    let pings = 0;
    client.on('ping', () => { pings += 1; });
    const message = once(client, 'message');
    service.writeFault({ name: 'fragmentsWithPings', packet: kPacketHex });
    assert.deepEqual(await message, [kPacket, true]);
    assert.equal(pings, 2);
  });

for (const [name, bytes, isBinary] of [
  ['textFrame', 12, false], ['largestMessage', 4194304, true], ['emptyMessage', 0, true],
]) {
  each(`writes a message that a strict reader accepts: ${name}`, async ({ service, relayClient }) => {
    const client = await relayClient(kRelayPath, { maxPayload: 4 << 20 });
    const message = once(client, 'message');
    service.writeFault({ name, packet: kPacketHex });
    const [data, wasBinary] = await message;
    assert.deepEqual([data.length, wasBinary], [bytes, isBinary]);
  });
}

for (const [name, reason] of [
  ['maskedFrame', /MASK must be clear/], ['tooLargeMessage', /Max payload size exceeded/],
  ['unknownOpcode', /invalid opcode 11/], ['hugeLength', /Unsupported WebSocket frame/],
  ['garbage', /RSV/], ['httpReply', /RSV/],
]) {
  each(`writes a fault that ends a strict reader: ${name}`, async ({ service, relayClient }) => {
    const client = await relayClient(kRelayPath, { maxPayload: 4 << 20 });
    const closed = new Promise((resolve) => { client.on('close', resolve); });
    client.on('message', () => assert.fail('a message'));
    const error = new Promise((resolve) => { client.on('error', resolve); });
    service.writeFault({ name, packet: kPacketHex });
    assert.match((await error).message, reason);
    await closed;
  });
}

for (const [name, code] of [['closeFrame', 1000], ['closeInTheMiddle', 1000], ['cutInTheMiddle', 1006]]) {
  each(`ends a connection before a message is whole: ${name}`, async ({ service, relayClient }) => {
    const client = await relayClient();
    client.on('message', () => assert.fail('a message'));
    const closed = once(client, 'close');
    service.writeFault({ name, packet: kPacketHex });
    assert.equal((await closed)[0], code);
  });
}

each('reports an unknown fault, an unknown handshake or a missing connection', async ({ service, relayClient }) => {
  assert.throws(() => service.writeFault({ name: 'garbage' }), /no relay connection/);
  await relayClient();
  assert.throws(() => service.writeFault({ name: 'no such' }), /no fault no such/);
  assert.throws(() => service.refuseUpgrade({ handshake: 'no such' }), /no handshake no such/);
});

const kBreaches = [
  ['a frame without mask', frame(Opcode.binary, kPacket), /MASK must be set/],
  ['an unknown opcode', frame(5, kPacket, { mask: true }), /invalid opcode 5/],
  ['a continuation of nothing', frame(Opcode.continuation, kPacket, { mask: true }), /invalid opcode 0/],
  ['a long ping', frame(Opcode.ping, Buffer.alloc(126), { mask: true }), /invalid payload length 126/],
  ['a reserved bit', Buffer.from([0xc2, 0x80, 1, 2, 3, 4]), /RSV1 must be clear/],
];
for (const [what, bytes, reason] of kBreaches) {
  each(`records a protocol error of the client: ${what}`, async ({ service, rawClient }) => {
    const socket = rawClient();
    await once(socket, 'data');
    socket.write(bytes);
    await until(() => service.protocolErrors().length === 1);
    assert.match(service.protocolErrors()[0].message, reason);
    assert.equal(service.counts().fromClient, 0);
  });
}

each('accepts every form of frame length from the client', async ({ service, rawClient }) => {
  const socket = rawClient();
  await once(socket, 'data');
  for (const length of [0, 1, 125, 126, 65535, 65536]) {
    socket.write(frame(Opcode.binary, Buffer.alloc(length, 7), { mask: true }));
  }
  await until(() => service.counts().fromClient === 6);
  assert.equal(service.counts().bytesFromClient, 0 + 1 + 125 + 126 + 65535 + 65536);
  assert.deepEqual(service.protocolErrors(), []);
});

each('sends the handshake response and a first frame in one piece', async ({ service, rawClient }) => {
  service.sendWithHandshake({ packet: kPacketHex });
  const [bytes] = await once(rawClient(), 'data');
  const end = bytes.indexOf('\r\n\r\n') + 4;
  assert.match(bytes.subarray(0, end).toString(), /^HTTP\/1\.1 101 /);
  assert.deepEqual(bytes.subarray(end), frame(Opcode.binary, kPacket));
  const [next] = await once(rawClient(), 'data');
  assert.ok(next.toString('latin1').endsWith('\r\n\r\n'), 'only once');
});

const kHandshakeCases = [
  ['oversizedHeader', (bytes) => bytes.length > 16384 && !bytes.includes('\r\n\r\n')],
  ['garbage', (bytes) => bytes.equals(Buffer.from('220 mail.example ready\r\n\r\n'))],
  ['cut', (bytes, isClosed) => isClosed && bytes.length === 0],
];
for (const [handshake, isRight] of kHandshakeCases) {
  each(`answers an upgrade wrongly: ${handshake}`, async ({ service, rawClient }) => {
    service.refuseUpgrade({ handshake });
    const socket = rawClient();
    let bytes = Buffer.alloc(0);
    socket.on('data', (part) => { bytes = Buffer.concat([bytes, part]); });
    await until(() => isRight(bytes, socket.destroyed));
    assert.equal(service.relayConnections(), 0);
  });
}

each('leaves an upgrade unanswered', async ({ service, rawClient, post }) => {
  service.refuseUpgrade({ handshake: 'silent' });
  const socket = rawClient();
  socket.on('data', () => assert.fail('an answer'));
  await until(() => service.relayAttempts().length === 1);
  await post('/api/devices/resolve');
  assert.equal(socket.destroyed, false);
  assert.ok(upgradeRequest(kRelayPath).startsWith(`GET ${service.relayAttempts()[0].url} `));
});
