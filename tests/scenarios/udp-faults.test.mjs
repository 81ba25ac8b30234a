// The path of the datagrams is blocked in one direction or both, or carries only small ones.
import assert from 'node:assert/strict';
import { setTimeout as sleep } from 'node:timers/promises';

import { kPlc } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { describe, startTraffic } from '../../lab/harness/traffic.mjs';
import { connect, scenario } from './scenario.mjs';

const kBlockedMs = 2_000;
/** Traffic small enough for UDP, even if several of the stream's chunks share a segment. */
const kSmall = { udp: { sizes: [32, 256, 1302] }, tcp: { chunkBytes: 16, intervalMs: 50 } };
const kFlowing = { bytes: 160 };

/** The relay's packet counts since `before`, by transport and direction. */
async function carriedSince(lab, before) {
  const now = await lab.service.counts();
  return Object.fromEntries(Object.entries(now).map(([name, count]) => [name, count - before[name]]));
}

/** Runs traffic during `fault(traffic)`; its TCP stream must stay intact. */
async function duringTraffic(lab, t, name, options, fault) {
  const traffic = await startTraffic(lab, kPlc, options);
  await traffic.waitUntilFlowing(kFlowing);
  await fault(traffic);
  await traffic.waitUntilFlowing(kFlowing);
  const report = await traffic.stop();
  t.diagnostic(`${name}: ${describe(report)}`);
  if (report.tcp) assert.deepEqual([report.tcp.connections, report.tcp.breaks, report.tcp.wrongBytes], [1, [], 0]);
  return report;
}

/** Blocks the path for a while during traffic. Returns the report and the relay's counts for that time. */
async function blockedFor(lab, t, direction) {
  let carried;
  const report = await duringTraffic(lab, t, `blocked ${direction} for ${kBlockedMs / 1000} s`, kSmall,
    async () => {
      await lab.faults.blockUdp(direction);
      await sleep(200);  // for packets in flight
      const before = await lab.service.counts();
      await sleep(kBlockedMs);
      carried = await carriedSince(lab, before);
      await lab.faults.clear();
    });
  return { report, carried };
}

scenario('a start without UDP works by WebSocket; a blocked UDP path loses its packets until restored',
  { site: true }, async (lab, program, t) => {
    await lab.faults.blockUdp('both');
    await connect(program);
    await program.waitForLog(/提示：UDP 通道不可用.*\r\n.*提示：多半是防火墙拦了 UDP 31080。/);
    const before = await duringTraffic(lab, t, 'blocked both from the start', {}, () => sleep(1000));
    assert.equal(before.udp.lost, 0);
    const counts = await lab.service.counts();
    assert.deepEqual([counts.udpFromClient, counts.udpToClient], [0, 0]);
    assert.deepEqual(await lab.service.hellos(), []);

    await lab.faults.clear();
    await lab.service.cutRelay();
    await waitUntil('a hello', async () => (await lab.service.hellos()).length === 1);
    for (const [direction, isHeard] of [['toRelay', false], ['toClient', true], ['both', false]]) {
      const { report, carried } = await blockedFor(lab, t, direction);
      assert.equal(carried.udpFromClient > 0, isHeard, JSON.stringify(carried));
      assert.equal(carried.webSocketFromClient, 0, 'the path still counts as ready');
      assert.ok(report.udp.longestGapMs >= kBlockedMs - 200, describe(report));
    }
    assert.equal((await lab.service.relayAttempts()).length, 2, 'one reconnect, after the cut');
  });

scenario('acknowledgements that never arrive: a relay that sends as the client does loses nothing', { site: true },
  async (lab, program, t) => {
    await lab.faults.blockUdp('toClient');
    await lab.service.setUdp({ sendPackets: 'likeClient' });
    await connect(program);
    assert.equal((await lab.service.hellos()).length, 4, 'four attempts');
    const patient = await duringTraffic(lab, t, 'relay sends as the client does', kSmall, () => sleep(500));
    assert.equal(patient.udp.lost, 0);
    await lab.service.setUdp({ sendPackets: 'afterHello' });
    const hasty = await startTraffic(lab, kPlc, { ...kSmall, tcp: false });
    await sleep(1000);
    assert.equal((await hasty.report()).udp.received, 0, 'what the relay sends by UDP is lost');
    await lab.service.setUdp({ sendPackets: 'likeClient' });
    await lab.faults.clear();
    await hasty.waitUntilFlowing(kFlowing);
    t.diagnostic(`relay sends at once: ${describe(await hasty.stop())}`);

    const { udpFromClient, udpToClient } = await lab.service.counts();
    assert.equal(udpFromClient, 0, 'the client has no token');
    const later = await duringTraffic(lab, t, 'restored', kSmall, () =>
      waitUntil('packets by UDP', async () => (await lab.service.counts()).udpToClient > udpToClient, 20_000));
    assert.equal(later.udp.lost, 0, 'the change costs nothing');
    assert.equal((await lab.service.relayAttempts()).length, 1, 'no reconnect');
  });

/** Those of the given IP packet sizes whose echo returns. */
async function sizesThatPass(lab, sizes) {
  const passed = await Promise.all(sizes.map(async (size) => {
    const { code } = await lab.tool(['ping', '-n', '-c', '2', '-i', '0.3', '-W', '2',
      '-s', String(size - 28), '-M', 'want', kPlc]);
    return code === 0;
  }));
  return sizes.filter((_, index) => passed[index]);
}

const kSizes = [100, 1239, 1240, 1300, 1330, 1331, 1400, 1500];

scenario('a path of 1280 bytes that drops fragments loses packets of 1240 to 1330 bytes', { site: true },
  async (lab, program, t) => {
    await lab.faults.limitMtu(1280);
    await connect(program);
    assert.equal((await lab.service.udpEndpoints()).length, 1, 'hellos are small enough');
    const passed = await sizesThatPass(lab, kSizes);
    t.diagnostic(`of ${kSizes.join(', ')} bytes pass ${passed.join(', ')}`);
    assert.deepEqual(passed, [100, 1239, 1331, 1400, 1500]);
    const report = await duringTraffic(lab, t, 'sizes that pass', { udp: { sizes: [32, 1200, 1303, 1400] } },
      () => sleep(2000));
    assert.equal(report.udp.lost, 0);
    await lab.faults.clear();
    assert.deepEqual(await sizesThatPass(lab, kSizes), kSizes);
    await lab.faults.limitMtu(1280, { dropFragments: false });
    assert.deepEqual(await sizesThatPass(lab, kSizes), kSizes, 'fragments will do');
  });
