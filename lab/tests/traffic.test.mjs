// The traffic of scenarios and its report about a path that loses, repeats, delays or breaks.
import assert from 'node:assert/strict';
import dgram from 'node:dgram';
import { once } from 'node:events';
import net from 'node:net';
import { tmpdir } from 'node:os';
import { test } from 'node:test';

import { startEcho } from '../standins/plc/echo.mjs';
import { Processes } from '../harness/processes.mjs';
import { datagramNumber, describe, startTraffic } from '../harness/traffic.mjs';
import { until } from './service_harness.mjs';

const kHost = '127.0.0.1';

/** A test with traffic to loopback; `start(port, options)` calls startTraffic(). */
function each(name, body) {
  test(name, { timeout: 30_000 }, async (t) => {
    const processes = new Processes();
    t.after(() => processes.stopAll());
    const lab = { processes, network: {}, artifacts: tmpdir() };
    await body((port, options) => startTraffic(lab, kHost, { port, waitMs: 500, ...options }), t);
  });
}

/** A datagram echo whose answers are controlled by `answer(number, send)`. */
async function udpEcho(t, answer) {
  const socket = dgram.createSocket('udp4').bind(0, kHost);
  await once(socket, 'listening');
  t.after(() => socket.close());
  socket.on('message', (bytes, from) =>
    answer(bytes.readUInt32BE(4), (reply = bytes) => socket.send(reply, from.port, from.address)));
  return socket.address().port;
}

/** A TCP server that calls `serve(socket)` for each connection. */
async function tcpServer(t, serve) {
  const sockets = new Set();
  const server = net.createServer((socket) => {
    sockets.add(socket);
    socket.on('error', () => {});
    serve(socket);
  }).listen(0, kHost);
  await once(server, 'listening');
  t.after(() => { for (const socket of sockets) socket.destroy(); server.close(); });
  return server.address().port;
}

each('nothing is lost on a good path', async (start, t) => {
  const echo = await startEcho({ port: 0, host: kHost });
  t.after(() => echo.close());
  const traffic = await start(echo.port, { udp: { intervalMs: 2, sizes: [8, 1302, 1400] } });
  const waitedMs = await traffic.waitUntilFlowing({ datagrams: 30 });
  assert.ok(waitedMs >= 50, `${waitedMs} ms for 30 datagrams`);
  const { udp, tcp } = await traffic.stop();
  assert.ok(udp.sent >= 30);
  assert.equal(udp.received, udp.sent);
  assert.deepEqual({ ...udp, sent: 0, received: 0, answeredSince: 0 }, {
    sent: 0, received: 0, duplicated: 0, reordered: 0, late: 0, wrong: 0, lost: 0, answeredSince: 0,
    longestGapMs: 0, gaps: [],
  });
  assert.ok(tcp.bytes >= 2048);
  assert.deepEqual([tcp.connections, tcp.breaks, tcp.outOfOrder, tcp.wrongBytes], [1, [], 0, 0]);
  assert.match(describe({ udp, tcp }), /^udp: 0 of \d+ lost in 0 gaps.*; tcp: \d+ bytes, 0 breaks, /);
});

each('lost, doubled, reordered and false datagrams are counted', async (start, t) => {
  let sendLater;
  const port = await udpEcho(t, (number, send) => {
    if (number >= 10 && number < 15) return;
    if (number === 20) return void (sendLater = send);
    send();
    if (number === 21) sendLater();
    if (number === 30) send();
    if (number === 40) send(Buffer.from('not from here'));
  });
  const traffic = await start(port, { udp: { intervalMs: 5, count: 60 }, tcp: false });
  await until(async () => (await traffic.report()).udp.sent === 60);
  const { udp, tcp } = await traffic.stop();
  assert.equal(tcp, undefined);
  assert.equal(udp.lost, 5);
  assert.equal(udp.gaps.length, 1);
  const [gap] = udp.gaps;
  assert.deepEqual([gap.from, gap.lost], [10, 5]);
  assert.ok(gap.toMs - gap.fromMs >= 20 && gap.fromMs >= 40, JSON.stringify(gap));
  assert.equal(udp.longestGapMs, gap.toMs - gap.fromMs);
  assert.deepEqual([udp.received, udp.duplicated, udp.reordered, udp.wrong], [55, 1, 1, 1]);
});

each('datagrams that may still be answered are not lost yet', async (start, t) => {
  const port = await udpEcho(t, () => {});
  const traffic = await start(port, { udp: { intervalMs: 5, count: 4, batch: 4 }, tcp: false });
  await until(async () => (await traffic.report()).udp.sent === 4);
  assert.equal((await traffic.report({ lateMs: 60_000 })).udp.lost, 0);
  const { udp } = await traffic.stop();
  assert.deepEqual([udp.lost, udp.received], [4, 0]);
});

each('a slow answer is late, not lost', async (start, t) => {
  const port = await udpEcho(t, (number, send) => setTimeout(send, number === 1 ? 400 : 0));
  const traffic = await start(port, { waitMs: 200, udp: { intervalMs: 5, count: 2, batch: 2 }, tcp: false });
  await until(async () => (await traffic.report()).udp.lost === 1);
  await until(async () => (await traffic.report()).udp.received === 2);
  const { udp } = await traffic.stop();
  assert.deepEqual([udp.lost, udp.late, udp.gaps], [0, 1, []]);
});

each('a broken TCP connection is recorded and reopened', async (start, t) => {
  let connections = 0;
  const port = await tcpServer(t, (socket) => {
    connections += 1;
    socket.pipe(socket);
    if (connections === 1) setTimeout(() => socket.resetAndDestroy(), 200);
  });
  const traffic = await start(port, { udp: false });
  await until(async () => (await traffic.report()).tcp.connections === 2);
  await traffic.waitUntilFlowing();
  const { tcp } = await traffic.stop();
  assert.equal(tcp.breaks.length, 1);
  assert.match(tcp.breaks[0].reason, /^(ECONNRESET|ended)$/);  // the system's code varies
  assert.ok(tcp.breaks[0].atMs >= 150);
  assert.ok(tcp.longestStallMs >= 150, 'the time without a connection is a stall');
  assert.deepEqual([tcp.outOfOrder, tcp.wrongBytes], [0, 0]);
});

each('a stalled TCP connection is closed on request', async (start, t) => {
  let connections = 0;
  const port = await tcpServer(t, (socket) => {
    connections += 1;
    if (connections > 1) socket.pipe(socket);
  });
  const traffic = await start(port, { udp: false, tcp: { stallMs: 300 } });
  await traffic.waitUntilFlowing();
  const { tcp } = await traffic.stop();
  assert.deepEqual(tcp.breaks.map(({ reason }) => reason), ['stalled']);
  assert.ok(tcp.breaks[0].unansweredBytes > 0);
});

each('reordered and foreign numbers are distinguished', async (start, t) => {
  const port = await tcpServer(t, (socket) => socket.once('data', (bytes) => {
    const swapped = Buffer.concat([bytes.subarray(4, 8), bytes.subarray(0, 4)]);
    socket.write(Buffer.concat([swapped, Buffer.from('ffffffff', 'hex')]));
  }));
  const traffic = await start(port, { udp: false });
  await until(async () => (await traffic.report()).tcp.bytes === 12);
  const { tcp } = await traffic.stop();
  assert.deepEqual([tcp.outOfOrder, tcp.wrongBytes], [2, 4]);
});

each('a refused connection is retried', async (start, t) => {
  const server = net.createServer().listen(0, kHost);
  await once(server, 'listening');
  const { port } = server.address();
  server.close();
  await once(server, 'close');
  const traffic = await start(port, { udp: false });
  await until(async () => (await traffic.report()).tcp.failedConnects >= 2);
  const { tcp } = await traffic.stop();
  assert.deepEqual([tcp.connections, tcp.breaks], [0, []]);
});

test('a datagram\'s number is read from its packet', () => {
  const ipv4 = (protocol) => `4500002400000000 40${protocol}0000 0a580002 c0a84d0a`.replaceAll(' ', '');
  const udp = 'c000000700100000' + '12345678' + '0000abcd';
  assert.equal(datagramNumber(ipv4('11') + udp), 0xabcd);
  assert.equal(datagramNumber(ipv4('06') + udp), null);
});
