// The lab's relay over UDP: hellos, acknowledgements, tokens, and the path of packets.
import assert from 'node:assert/strict';
import { once } from 'node:events';

import { hello, packetDatagram } from '../standins/service/udp_datagrams.mjs';
import { each, kPacket, kPacketHex, until } from './service_harness.mjs';

const kHello = hello('C ONN', 'ENG-12345678');
const kOtherToken = 'ffffffffffffffff';
/** kPacket, padded to `bytes`. */
const packetOf = (bytes) => Buffer.concat([kPacket, Buffer.alloc(bytes - kPacket.length)]);

/** Sends a hello and returns the token of the answer. */
async function sayHello(client, bytes = kHello) {
  const before = client.heard.length;
  client.send(bytes);
  await until(() => client.heard.length > before);
  return client.heard.at(-1).subarray(6).toString('hex');
}

/** A client with a WebSocket and an acknowledged UDP endpoint, and the source of the site's packets. */
async function bothWays({ relayClient, udpClient, site }) {
  const webSocket = await relayClient();
  const messages = [];
  webSocket.on('message', (bytes) => messages.push(bytes));
  const udp = await udpClient();
  const token = await sayHello(udp);
  const arrived = once(site, 'message');
  udp.send(packetDatagram(token, kPacket));
  const [bytes, { port }] = await arrived;
  assert.deepEqual(bytes, kPacket);
  return { webSocket, messages, udp, token, fromSite: (packet) => site.send(packet, port, '127.0.0.1') };
}

each('acknowledges a hello with 14 bytes, its type and a token', async ({ service, udpClient }) => {
  const client = await udpClient();
  assert.equal(kHello.toString('hex'),
    `544e52310200${'05'}${Buffer.from('C ONN').toString('hex')}000c${Buffer.from('ENG-12345678').toString('hex')}`);
  const token = await sayHello(client);
  assert.equal(client.heard[0].length, 14);
  assert.equal(client.heard[0].subarray(0, 6).toString('hex'), '544e52310302');
  assert.notEqual(token, '0'.repeat(16));
  const [{ from, connectionId, engineerId, hex, isAnswered, timeMs }] = service.hellos();
  assert.deepEqual({ from, connectionId, engineerId, hex, isAnswered }, {
    from: client.from, connectionId: 'C ONN', engineerId: 'ENG-12345678', hex: kHello.toString('hex'), isAnswered: true,
  });
  assert.deepEqual(service.hellos({ sinceMs: timeMs + 0.001 }), []);
  assert.equal(service.udpEndpoints()[0].token, token);
});

each('keeps the token for an endpoint, renews it on demand and for another port', async ({ service, udpClient }) => {
  const client = await udpClient();
  const first = await sayHello(client);
  assert.equal(await sayHello(client), first);
  service.renewToken();
  const second = await sayHello(client);
  assert.notEqual(second, first);
  assert.equal(await sayHello(client), second);
  const moved = await udpClient();
  assert.notEqual(await sayHello(moved), second);
  assert.deepEqual(service.udpEndpoints().map(({ from }) => from), [moved.from]);
});

each('carries packets both ways by UDP', async (bench) => {
  const { udp, token, messages, fromSite } = await bothWays(bench);
  bench.service.keepPackets(true);
  fromSite(kPacket);
  await until(() => udp.heard.length === 2);
  assert.deepEqual(udp.heard[1], packetDatagram(token, kPacket));
  assert.equal(messages.length, 0);
  assert.deepEqual(bench.service.packets().map(({ via, direction, hex }) => [via, direction, hex]),
    [['udp', 'toClient', kPacketHex]]);
  const { udpFromClient, udpToClient, webSocketFromClient, webSocketToClient } = bench.service.counts();
  assert.deepEqual([udpFromClient, udpToClient, webSocketFromClient, webSocketToClient], [1, 1, 0, 0]);
});

each('sends packets of up to 1330 bytes by UDP and larger ones by WebSocket', async (bench) => {
  const { udp, messages, fromSite } = await bothWays(bench);
  fromSite(packetOf(1330));
  fromSite(packetOf(1331));
  await until(() => udp.heard.length === 2 && messages.length === 1);
  assert.equal(udp.heard[1].length, 1343);
  assert.equal(messages[0].length, 1331);
});

each('sends by UDP only to a client that also has a WebSocket', async (bench) => {
  const { webSocket, udp, fromSite } = await bothWays(bench);
  webSocket.terminate();
  await until(() => bench.service.relayConnections() === 0);
  fromSite(kPacket);
  await until(() => bench.service.counts().dropped === 1);
  assert.equal(udp.heard.length, 1);
});

each('sends by WebSocket when the last hello is more than 45 s old', async (bench) => {
  const { udp, messages, fromSite } = await bothWays(bench);
  const { now } = performance;
  try {
    for (const [ageMs, byUdp, byWebSocket] of [[44_000, 2, 0], [46_000, 2, 1]]) {
      performance.now = () => now.call(performance) + ageMs;
      fromSite(kPacket);
      await until(() => udp.heard.length === byUdp && messages.length === byWebSocket);
    }
  } finally {
    performance.now = now;
  }
});

each('uses the WebSocket if sending by UDP is off', async (bench) => {
  const { udp, token, messages, fromSite } = await bothWays(bench);
  bench.service.setUdp({ sendPackets: 'never' });
  fromSite(kPacket);
  await until(() => messages.length === 1);
  bench.service.setUdp({ carryPackets: false });
  bench.site.on('message', () => assert.fail('a packet went on'));
  udp.send(packetDatagram(token, kPacket));
  await until(() => bench.service.counts().udpFromClient === 2);
});

each('sends by the path of the client\'s newest small packet, on request', async (bench) => {
  const { webSocket, udp, messages, fromSite } = await bothWays(bench);
  const { service } = bench;
  service.setUdp({ sendPackets: 'likeClient' });
  service.renewToken();
  const token = await sayHello(udp);
  fromSite(kPacket);
  await until(() => messages.length === 1);
  udp.send(packetDatagram(token, kPacket));
  await until(() => service.counts().udpFromClient === 2);
  fromSite(kPacket);
  await until(() => udp.heard.length === 3);
  assert.equal(await sayHello(udp), token);
  webSocket.send(packetOf(1331));
  await until(() => service.counts().webSocketFromClient === 1);
  fromSite(kPacket);
  await until(() => udp.heard.length === 5);
  webSocket.send(packetOf(1330));
  await until(() => service.counts().webSocketFromClient === 2);
  fromSite(kPacket);
  await until(() => messages.length === 2);
  assert.equal(udp.heard.length, 5);
});

each('drops and records packets with another token, or from another port', async (bench) => {
  const { service, udpClient } = bench;
  const { udp, token } = await bothWays(bench);
  bench.site.on('message', () => assert.fail('a packet went on'));
  const stranger = await udpClient();
  for (const [client, wrong] of [[udp, '0'.repeat(16)], [udp, kOtherToken], [stranger, token]]) {
    client.send(packetDatagram(wrong, kPacket));
  }
  await until(() => service.counts().wrongToken === 3);
  assert.deepEqual(service.wrongTokens().map(({ from, token: wrong, bytes }) => [from, wrong, bytes]),
    [[udp.from, '0'.repeat(16), 20], [udp.from, kOtherToken, 20], [stranger.from, token, 20]]);
  assert.equal(service.counts().udpFromClient, 1);
  service.renewToken();
  await sayHello(udp);
  udp.send(packetDatagram(token, kPacket));
  await until(() => service.counts().wrongToken === 4);
  assert.deepEqual(service.protocolErrors(), []);
});

each('sends raw datagrams and packets with any token to the newest client', async ({ service, udpClient }) => {
  assert.throws(() => service.sendDatagram({ hex: '00' }), /said hello/);
  const client = await udpClient();
  const token = await sayHello(client);
  service.sendDatagram({ hex: '544e523103' });
  service.sendUdpPacket({ packet: kPacketHex });
  service.sendUdpPacket({ packet: kPacketHex, token: kOtherToken });
  await until(() => client.heard.length === 4);
  assert.deepEqual(client.heard.slice(1).map((bytes) => bytes.toString('hex')),
    ['544e523103', `544e523104${token}${kPacketHex}`, `544e523104${kOtherToken}${kPacketHex}`]);
});

each('keeps raw datagrams only on request', async ({ service, udpClient }) => {
  const client = await udpClient();
  await sayHello(client);
  assert.deepEqual(service.datagrams(), []);
  service.keepDatagrams(true);
  await sayHello(client);
  assert.deepEqual(service.datagrams().map(({ direction, from, hex }) => [direction, from, hex]),
    [['fromClient', client.from, kHello.toString('hex')], ['toClient', client.from, client.heard[1].toString('hex')]]);
});

const text = (value) => [value.length >> 8, value.length & 255, ...Buffer.from(value)];
const helloOf = (...bytes) => Buffer.from([...Buffer.from('TNR1\x02'), ...bytes]);
const kMalformed = [
  ['nothing', Buffer.alloc(0), /0 bytes without the magic/],
  ['another magic', Buffer.from('TNR2\x02'), /without the magic/],
  ['a magic alone', Buffer.from('TNR1'), /without the magic/],
  ['hello type 1', Buffer.from('TNR1\x01'), /type 1/],
  ['an acknowledgement', Buffer.concat([Buffer.from('TNR1\x03\x02'), Buffer.alloc(8, 1)]), /type 3/],
  ['no length', helloOf(), /before the connection id's length/],
  ['half a length', helloOf(0), /before the connection id's length/],
  ['a text too long', helloOf(0, 3, 65, 66), /within the connection id/],
  ['one text', helloOf(...text('A')), /before the engineer id's length/],
  ['a second text too long', helloOf(...text('A'), 0, 2, 66), /within the engineer id/],
  ['a byte too many', helloOf(...text('A'), ...text('B'), 0), /1 bytes after its texts/],
  ['an empty text', helloOf(...text(''), ...text('B')), /empty connection id/],
  ['untrimmed text', helloOf(...text('A'), ...text('B ')), /engineer id is not trimmed/],
  ['broken UTF-8', helloOf(0, 1, 0xff, ...text('B')), /connection id is not UTF-8/],
  ['a packet of no bytes', packetDatagram(kOtherToken, Buffer.alloc(0)), /without a packet/],
  ['a packet that is too large', packetDatagram(kOtherToken, Buffer.alloc(1331)), /1331 bytes/],
];
for (const [what, bytes, reason] of kMalformed) {
  each(`records a datagram that no client may send: ${what}`, async ({ service, udpClient }) => {
    const client = await udpClient();
    client.send(bytes);
    await until(() => service.protocolErrors().length === 1);
    assert.match(service.protocolErrors()[0].message, reason);
    assert.match(service.protocolErrors()[0].message, /^UDP: /);
    await sayHello(client);
    assert.equal(client.heard.length, 1, 'no other answer');
  });
}

const kAnswers = [
  ['short', /^544e52310302[0-9a-f]{14}$/], ['long', /^544e52310302[0-9a-f]{16}00$/],
  ['wrongType', /^544e52310502[0-9a-f]{16}$/], ['wrongMagic', /^544e52320302[0-9a-f]{16}$/],
  ['zeroToken', /^544e523103020{16}$/], ['otherHelloType', /^544e52310301[0-9a-f]{16}$/],
];
for (const [helloAnswer, pattern] of kAnswers) {
  each(`answers a hello wrongly, without creating an endpoint: ${helloAnswer}`, async ({ service, udpClient }) => {
    service.setUdp({ helloAnswer });
    const client = await udpClient();
    await sayHello(client);
    assert.match(client.heard[0].toString('hex'), pattern);
    assert.deepEqual(service.udpEndpoints(), []);
    service.setUdp({ helloAnswer: 'proper' });
    await sayHello(client);
    assert.equal(service.udpEndpoints().length, 1);
  });
}

for (const [what, change] of [
  ['on request', (service) => service.setUdp({ helloAnswer: 'none' })],
  ['while silent', (service) => service.setSilent(true)],
]) {
  each(`leaves hellos unanswered ${what}, and records them`, async ({ service, udpClient, post }) => {
    change(service);
    const client = await udpClient();
    client.send(kHello);
    await until(() => service.hellos().length === 1);
    await post('/api/devices/resolve');
    assert.equal(service.hellos()[0].isAnswered, false);
    assert.equal(client.heard.length, 0);
  });
}

each('answers hellos with a list of answers, the last one for good', async ({ service, udpClient }) => {
  service.setUdp({ helloAnswer: ['short', 'none', 'long', 'proper'] });
  const client = await udpClient();
  for (let sent = 1; sent <= 5; sent += 1) {
    client.send(kHello);
    await until(() => service.hellos().length === sent);
  }
  await until(() => client.heard.length === 4);
  assert.deepEqual(client.heard.map(({ length }) => length), [13, 15, 14, 14]);
  assert.deepEqual(service.hellos().map(({ isAnswered }) => isAnswered), [true, false, true, true, true]);
});

each('reports an unknown answer or an unknown option', async ({ service }) => {
  assert.throws(() => service.setUdp({ helloAnswer: 'no such' }), /no answer no such/);
  assert.throws(() => service.setUdp({ helloAnswer: ['proper', 'no such'] }), /no answer no such/);
  assert.throws(() => service.setUdp({ sendPackets: 'sometimes' }), /sent sometimes/);
  assert.throws(() => service.setUdp({ noSuch: true }), /no way noSuch/);
});
