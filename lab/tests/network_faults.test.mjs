// The faults of the lab's network, each between two hosts, without the program.
import assert from 'node:assert/strict';
import { mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { NetworkFaults } from '../harness/network_faults.mjs';
import { kCloud, Network } from '../harness/network.mjs';
import { kRepo } from '../harness/paths.mjs';
import { Processes, run } from '../harness/processes.mjs';
import { startTraffic } from '../harness/traffic.mjs';

const kPort = 31080;
const kLimit = { timeout: 60_000 };
const network = new Network('-faults');
const processes = new Processes();
const faults = new NetworkFaults(network, processes, kPort);
let artifacts;

before(async () => {
  artifacts = await mkdtemp(path.join(tmpdir(), 'velmarine-faults-'));
  await network.create();
  await processes.start('echo', [process.execPath, '--input-type=module', '-e',
    `import { startEcho } from ${JSON.stringify(path.join(kRepo, 'lab/standins/plc/echo.mjs'))};
     await startEcho({ port: ${kPort} });
     console.log('ready');`], { namespace: network.cloud, ready: /ready/ });
}, kLimit);

after(async () => {
  await processes.stopAll();
  await network.remove();
  await rm(artifacts, { recursive: true, force: true });
}, kLimit);

const traffic = (options = {}) => startTraffic({ network, processes, artifacts }, kCloud,
  { port: kPort, waitMs: 800, ...options });

/** Starts traffic, runs `body` once it flows, ends the faults and returns the report and the line's counts. */
async function during(options, body) {
  const running = await traffic(options);
  await running.waitUntilFlowing();
  await body(running);
  const line = await faults.clear();
  await running.waitUntilFlowing();
  return { report: await running.stop(), line };
}

const ping = (...options) => run(['ping', '-n', '-c', '3', '-i', '0.1', '-W', '1', ...options, kCloud],
  { namespace: network.engineer });
const pause = (ms) => new Promise((resolve) => { setTimeout(resolve, ms); });

for (const direction of ['both', 'toRelay', 'toClient']) {
  test(`datagrams are dropped and restored: ${direction}`, kLimit, async () => {
    const { report } = await during({}, async (running) => {
      await faults.blockUdp(direction);
      await pause(100);  // for packets in flight
      const { udp: { sent } } = await running.report();
      await pause(600);
      const { udp } = await running.report({ since: sent });
      assert.equal(udp.answeredSince, 0);
    });
    assert.ok(report.udp.lost >= 10, JSON.stringify(report.udp));
    assert.equal(report.tcp.breaks.length, 0);
    assert.equal((await ping()).code, 0);
  });
}

test('segments of a connection are dropped without a reset, new connections work', kLimit, async () => {
  const { report } = await during({ udp: false, tcp: { stallMs: 700 } }, async (running) => {
    await faults.dropTcp({ onlyPresent: true });
    await running.waitUntilFlowing();
  });
  assert.ok(report.tcp.breaks.length >= 1);
  assert.ok(report.tcp.longestStallMs >= 500, JSON.stringify(report.tcp));
  await assert.rejects(faults.dropTcp({ onlyPresent: true }), /no TCP connection/);
});

test('with all segments dropped a connection stalls and then continues', kLimit, async () => {
  const { report } = await during({ udp: {} }, async (running) => {
    await faults.dropTcp();
    await pause(1000);
    const { udp } = await running.report();
    assert.equal(udp.lost, 0, 'datagrams are left alone');
  });
  assert.equal(report.tcp.breaks.length, 0);
  assert.ok(report.tcp.longestStallMs >= 800, JSON.stringify(report.tcp));
});

test('a path of 1280 bytes carries small datagrams and drops the fragments of larger ones', kLimit, async () => {
  await faults.limitMtu(1280);
  assert.equal((await ping('-s', '1252')).code, 0, '1280 bytes');
  assert.notEqual((await ping('-s', '1253', '-M', 'dont')).code, 0, '1281 bytes, cut');
  await faults.clear();
  await faults.limitMtu(1280, { dropFragments: false });
  assert.equal((await ping('-s', '1253', '-M', 'dont')).code, 0, 'fragments pass');
  await faults.clear();
  assert.equal((await ping('-s', '1472', '-M', 'do')).code, 0);
});

test('a worsened line delays', kLimit, async () => {
  await faults.worsenLine({ delayMs: 100 });
  const { stdout } = await ping();
  const [, least] = /= ([\d.]+)\//.exec(stdout);
  assert.ok(Number(least) >= 200, stdout);
  const line = await faults.clear();
  assert.equal(line.toRelay.lost + line.toClient.lost, 0);
  assert.equal((await ping()).code, 0);
});

test('a worsened line loses packets and counts them', kLimit, async () => {
  const { report, line } = await during({ tcp: false, udp: { intervalMs: 5 } }, async () => {
    await faults.worsenLine({ lossPercent: 20 });
    await pause(2000);
  });
  const share = line.toRelay.lost / (line.toRelay.lost + line.toRelay.carried);
  assert.ok(share > 0.1 && share < 0.3, JSON.stringify(line));
  // Packets in flight when the line changed may be lost too.
  const lost = line.toRelay.lost + line.toClient.lost;
  assert.ok(report.udp.lost >= lost && report.udp.lost < lost + 20, JSON.stringify({ lost, udp: report.udp }));
});

test('a worsened line reorders without losing', kLimit, async () => {
  const { report, line } = await during({ udp: { intervalMs: 5 } }, async () => {
    await faults.worsenLine({ reorderPercent: 25, holdMs: 30 });
    await pause(1500);
  });
  assert.ok(report.udp.reordered >= 20, JSON.stringify(report.udp));
  assert.ok(line.toRelay.heldBack >= 20 && line.toRelay.lost === 0, JSON.stringify(line));
  assert.equal(report.tcp.breaks.length, 0);
});

test('a slow line has its rate, and its full queue delays and loses', kLimit, async () => {
  const kilobitsPerSecond = 4000;
  const queueBytes = 50_000;  // 100 ms
  const seconds = 2;
  await faults.worsenLine({ delayMs: 5, kilobitsPerSecond, queueBytes });
  const atRest = await ping();
  assert.equal(atRest.code, 0, atRest.stdout);
  const running = await traffic({ tcp: false, udp: { sizes: [1400], intervalMs: 1 } });  // 11 Mbit/s
  await pause(seconds * 1000);
  const { stdout } = await ping();
  const line = await faults.clear();
  await running.stop();

  const averageMs = (text) => Number(/= [\d.]+\/([\d.]+)\//.exec(text)[1]);
  assert.ok(averageMs(atRest.stdout) < 60, atRest.stdout);
  assert.ok(averageMs(stdout) > 90 && averageMs(stdout) < 350, stdout);  // a queue each way, one of them full
  assert.ok(line.toRelay.lost > 100, JSON.stringify(line));
  const mostBytes = (seconds + 1.5) * kilobitsPerSecond * 125 + queueBytes;
  assert.ok(line.toRelay.carried * 1428 < mostBytes, JSON.stringify(line));
  assert.ok(line.toRelay.carried * 1428 > seconds * kilobitsPerSecond * 125 / 2, JSON.stringify(line));
});
