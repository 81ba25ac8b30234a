// Small packets use UDP, large ones the WebSocket, as the service's record shows.
import assert from 'node:assert/strict';

import { kPlc, kTunnelAddress } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { packetDatagram } from '../../lab/standins/service/udp_datagrams.mjs';
import { describe, startTraffic } from '../../lab/harness/traffic.mjs';
import { connect, scenario } from './scenario.mjs';

const kIcmp = 1;
const kUdp = 17;
const kEchoPort = 7;
/** Traffic small enough for UDP, even if several of the stream's chunks share a segment. */
const kSmall = { udp: { sizes: [32, 256, 1302], intervalMs: 40 }, tcp: { chunkBytes: 16, intervalMs: 50 } };
const kFlowing = { bytes: 160 };
const kNoToken = '0'.repeat(16);
const kOtherToken = '0123456789abcdef';

const addressAt = (packet, offset) => packet.subarray(offset, offset + 4).join('.');
const sum = (bytes) => {
  let total = 0;
  for (let i = 0; i < bytes.length; i += 2) total += (bytes[i] << 8) | (bytes[i + 1] ?? 0);
  while (total > 0xffff) total = (total & 0xffff) + (total >> 16);
  return total;
};

/** The recorded packets of one protocol: [{direction, via, timeMs, bytes}]. */
async function packetsOf(lab, protocol) {
  return (await lab.service.packets()).map(({ hex, ...rest }) => ({ ...rest, bytes: Buffer.from(hex, 'hex') }))
    .filter(({ bytes }) => bytes[9] === protocol);
}

async function pingOfSize(lab, packetBytes) {
  const { code, stdout } = await lab.tool(['ping', '-n', '-c', '2', '-i', '0.2', '-W', '2', '-p', '5a',
    '-s', String(packetBytes - 28), '-M', 'want', kPlc]);
  assert.equal(code, 0, stdout);
}

const hexOf = (text) => Buffer.from([text.length >> 8, text.length & 255, ...Buffer.from(text)]).toString('hex');

/** Bytes and number of the hellos so far: two texts behind their lengths. */
async function checkHellos(lab, count) {
  const [request] = await lab.service.requests({ pathPrefix: '/api/connections/request' });
  const { engineerId } = JSON.parse(request.body);
  const hellos = await lab.service.hellos();
  assert.equal(hellos.length, count);
  for (const { hex } of hellos) assert.equal(hex, `544e523102${hexOf('CONN-0001')}${hexOf(engineerId)}`);
}

/** In both directions, packets of 1330 bytes used UDP and packets of 1331 the WebSocket. */
async function checkSizes(lab) {
  await lab.service.keepPackets(true);
  await pingOfSize(lab, 1330);
  await pingOfSize(lab, 1331);
  await lab.service.keepPackets(false);
  const packets = await packetsOf(lab, kIcmp);
  await lab.service.forgetPackets();
  const seen = packets.map(({ direction, via, bytes }) => `${bytes.length} ${direction} ${via}`);
  assert.deepEqual([...new Set(seen)].sort(), [
    '1330 fromClient udp', '1330 toClient udp', '1331 fromClient webSocket', '1331 toClient webSocket']);
  for (const { direction, bytes } of packets) {
    const [source, destination] = [addressAt(bytes, 12), addressAt(bytes, 16)];
    assert.deepEqual([source, destination],
      direction === 'fromClient' ? [kTunnelAddress, kPlc] : [kPlc, kTunnelAddress]);
    assert.equal(bytes.readUInt16BE(2), bytes.length);
    assert.equal(sum(bytes.subarray(0, 20)), 0xffff);
    assert.equal(sum(bytes.subarray(20)), 0xffff);
    assert.ok(bytes.subarray(44).every((byte) => byte === 0x5a), 'ping\'s own bytes');
  }
}

/** An answer that the client already received by UDP; accepting it again counts as a duplicate. */
async function recordedAnswer(lab, traffic) {
  await lab.service.keepPackets(true);
  await traffic.waitUntilFlowing(kFlowing);
  await lab.service.keepPackets(false);
  const packets = await packetsOf(lab, kUdp);
  await lab.service.forgetPackets();
  return packets.find(({ direction, via, bytes }) =>
    direction === 'toClient' && via === 'udp' && bytes.readUInt16BE(20) === kEchoPort).bytes;
}

/** Sends the client an answer in ways that it must refuse, then in two that it must accept. */
async function checkTokens(lab, traffic) {
  const answer = await recordedAnswer(lab, traffic);
  const packet = answer.toString('hex');
  const [{ token }] = await lab.service.udpEndpoints();
  const good = packetDatagram(token, answer);
  for (const wrong of [kNoToken, kOtherToken]) await lab.service.sendUdpPacket({ packet, token: wrong });
  const otherMagic = Buffer.from(good);
  otherMagic[0] ^= 1;
  const otherType = Buffer.from(good);
  otherType[4] = 5;
  const tooLong = Buffer.concat([good, Buffer.alloc(1401 - good.length)]);
  for (const bytes of [otherMagic, otherType, tooLong, good.subarray(0, 13), Buffer.alloc(0)]) {
    await lab.service.sendDatagram({ hex: bytes.toString('hex') });
  }
  await traffic.waitUntilFlowing(kFlowing);
  assert.equal((await traffic.report()).udp.duplicated, 0, 'none of these was taken');
  await lab.service.sendUdpPacket({ packet });
  await lab.service.sendToClient({ packet });
  await waitUntil('both good ones', async () => (await traffic.report()).udp.duplicated === 2);
}

scenario('1330 bytes use UDP and 1331 the WebSocket, and only packets with the token count',
  { site: true }, async (lab, program, t) => {
    await connect(program);
    await checkHellos(lab, 1);
    await checkSizes(lab);
    const before = await lab.service.counts();
    const traffic = await startTraffic(lab, kPlc, kSmall);
    await traffic.waitUntilFlowing(kFlowing);
    await checkTokens(lab, traffic);
    const report = await traffic.stop();
    t.diagnostic(describe(report));
    const after = await lab.service.counts();
    assert.equal(after.webSocketFromClient, before.webSocketFromClient, 'nothing small went over the WebSocket');
    assert.ok(after.udpFromClient > before.udpFromClient + report.udp.sent);
    assert.deepEqual([report.udp.lost, report.tcp.breaks], [0, []]);
    assert.equal(after.wrongToken, 0);
  });

scenario('invalid acknowledgements leave everything to the WebSocket', { site: true },
  async (lab, program, t) => {
    await lab.service.setUdp({ helloAnswer: ['short', 'long', 'wrongType', 'zeroToken', 'none'] });
    await connect(program);
    const attempts = await lab.service.hellos();
    assert.equal(attempts.length, 4);
    // One second each. Checked in total, because the service may record one late, so that the next seems early.
    const tookMs = attempts[3].timeMs - attempts[0].timeMs;
    assert.ok(tookMs > 2_400, `four attempts within ${tookMs} ms`);
    const traffic = await startTraffic(lab, kPlc);
    await traffic.waitUntilFlowing();
    assert.equal((await lab.service.counts()).udpFromClient, 0);

    await lab.service.setUdp({ helloAnswer: ['otherHelloType', 'wrongMagic', 'none', 'proper'] });
    const cutMs = await lab.service.cutRelay();
    await waitUntil('four more', async () => (await lab.service.hellos({ sinceMs: cutMs })).length === 4);
    await traffic.waitUntilFlowing();
    const { udpFromClient, udpToClient, wrongToken } = await lab.service.counts();
    assert.ok(udpFromClient > 0 && udpToClient > 0, 'by UDP after the first good acknowledgement');
    assert.equal(wrongToken, 0);
    await checkHellos(lab, 8);
    const report = await traffic.stop();
    t.diagnostic(`relay cut, four attempts: ${describe(report)}`);
    assert.deepEqual([report.tcp.connections, report.tcp.breaks, report.tcp.wrongBytes], [1, [], 0]);
  });

/** Waits for the n-th hello. */
async function waitForHello(lab, count) {
  return waitUntil(`hello ${count}`, async () => {
    const hellos = await lab.service.hellos();
    return hellos.length >= count && hellos[count - 1];
  }, 25_000);
}

async function waitForGrowth(lab, name, timeoutMs) {
  const before = (await lab.service.counts())[name];
  await waitUntil(`more ${name}`, async () => (await lab.service.counts())[name] > before, timeoutMs);
  return lab.service.nowMs();
}

const kSecond = 1000;

scenario('a hello every 15 s keeps the UDP path; 45 s without an answer end it until the next answer',
  { site: true }, async (lab, program, t) => {
    await connect(program);
    const traffic = await startTraffic(lab, kPlc, kSmall);
    const first = await waitForHello(lab, 1);
    const [{ token: oldToken }] = await lab.service.udpEndpoints();
    await lab.service.renewToken();
    const second = await waitForHello(lab, 2);
    await lab.service.setUdp({ helloAnswer: 'none' });
    const [{ token }] = await lab.service.udpEndpoints();
    assert.notEqual(token, oldToken);
    const packet = (await recordedAnswer(lab, traffic)).toString('hex');
    await lab.service.sendUdpPacket({ packet, token: oldToken });
    await traffic.waitUntilFlowing(kFlowing);
    assert.equal((await traffic.report()).udp.duplicated, 0, 'the old token counts no longer');
    await lab.service.sendUdpPacket({ packet });
    await waitUntil('the new one counts', async () => (await traffic.report()).udp.duplicated === 1);
    const { wrongToken, webSocketFromClient } = await lab.service.counts();
    assert.equal(webSocketFromClient, 0);
    t.diagnostic(`${wrongToken} packets still bore the old token`);
    const { from, connectionId } = (await lab.service.udpEndpoints())[0];
    assert.equal(connectionId, 'CONN-0001');

    const fellBackMs = await waitForGrowth(lab, 'webSocketFromClient', 60 * kSecond);
    const silentMs = fellBackMs - second.timeMs;
    t.diagnostic(`by WebSocket ${(silentMs / kSecond).toFixed(1)} s after the last acknowledgement`);
    assert.ok(silentMs > 44 * kSecond && silentMs < 60 * kSecond, `after ${silentMs} ms`);
    await lab.service.setUdp({ helloAnswer: 'proper' });
    await waitForGrowth(lab, 'udpFromClient', 25 * kSecond);
    await traffic.waitUntilFlowing(kFlowing);
    const { webSocketFromClient: whole } = await lab.service.counts();
    await traffic.waitUntilFlowing(kFlowing);
    assert.equal((await lab.service.counts()).webSocketFromClient, whole, 'all by UDP again');

    const hellos = await lab.service.hellos();
    for (const [index, { timeMs, from: source }] of hellos.entries()) {
      assert.equal(source, from, 'one socket throughout');
      const seconds = (timeMs - first.timeMs) / kSecond;
      assert.ok(Math.abs(seconds - 15 * index) < 0.2 + index, `hello ${index + 1} after ${seconds} s`);
    }
    assert.equal((await lab.service.relayAttempts()).length, 1, 'no reconnect');
    const report = await traffic.stop();
    t.diagnostic(describe(report));
    assert.equal((await lab.service.counts()).wrongToken, wrongToken);
    assert.ok(report.udp.lost <= wrongToken, 'nothing else was lost');
    assert.deepEqual(report.tcp.breaks, []);
  });
