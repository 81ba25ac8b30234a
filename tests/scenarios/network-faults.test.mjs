// A line that loses, delays and reorders, and a connection that dies silently.
import assert from 'node:assert/strict';
import { setTimeout as sleep } from 'node:timers/promises';

import { kPlc } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { download, ping } from '../../lab/harness/tools.mjs';
import { describe, startTraffic } from '../../lab/harness/traffic.mjs';
import { connect, scenario } from './scenario.mjs';

const kSmall = { sizes: [32, 256, 1302] };  // by UDP, where the line's losses show
const kLineMs = 6_000;
const kHalfOpenMs = 8_000;  // the program's limit for a silent relay

/** Runs traffic over a worsened line. Returns the report and the line's counts. */
async function overLine(lab, t, name, line, options = {}) {
  await lab.faults.worsenLine(line);
  const traffic = await startTraffic(lab, kPlc, { udp: kSmall, waitMs: 4000, ...options });
  await sleep(kLineMs);
  const report = await traffic.stop();
  const did = await lab.faults.clear();
  t.diagnostic(`${name}: ${describe(report)}; the line: ${JSON.stringify(did)}`);
  assert.deepEqual([report.tcp.breaks, report.tcp.wrongBytes, report.udp.wrong], [[], 0, 0]);
  assert.ok(report.tcp.bytes > 0);
  return { ...report, line: did };
}

scenario('the tunnel keeps working over a line that loses, delays and reorders', { site: true },
  async (lab, program, t) => {
    await connect(program);
    const cases = [
      ['1 % loss', { lossPercent: 1 }], ['5 % loss', { lossPercent: 5, seed: 7 }],
      ['200 ms delay', { delayMs: 200 }], ['a tenth out of order', { reorderPercent: 10, holdMs: 60 }],
    ];
    const seen = {};
    for (const [name, line] of cases) seen[name] = await overLine(lab, t, name, line);

    for (const name of ['1 % loss', '5 % loss']) {
      const { udp, line } = seen[name];
      const onLine = line.toRelay.lost + line.toClient.lost;
      assert.ok(onLine > 0 && udp.lost <= onLine, `${name}: ${udp.lost} of the line's ${onLine}`);
    }
    assert.ok(seen['5 % loss'].udp.received > seen['5 % loss'].udp.sent * 0.8);
    assert.equal(seen['200 ms delay'].udp.lost, 0);
    const outOfOrder = seen['a tenth out of order'];
    assert.ok(outOfOrder.udp.reordered > 0 && outOfOrder.udp.lost === 0);

    await lab.faults.worsenLine({ lossPercent: 1, delayMs: 20, seed: 3 });
    const file = await download(lab, kPlc);
    assert.ok(file.ok, file.error);
    t.diagnostic(`5 MB with 1 % loss and 20 ms: ${file.figures.seconds} s`);
    await lab.faults.clear();
    assert.ok((await ping(lab, kPlc)).ok);
    assert.equal((await lab.service.relayAttempts()).length, 1, 'no reconnect');
    assert.equal((await lab.service.counts()).wrongToken, 0);
  });

scenario('a connection that dies without a reset is replaced after 8 s of silence', { site: true },
  async (lab, program, t) => {
    await connect(program);
    const traffic = await startTraffic(lab, kPlc);
    await traffic.waitUntilFlowing();
    const before = await lab.service.nowMs();
    await lab.faults.dropTcp({ onlyPresent: true });
    await program.waitForText('#s-detail', '软件隧道正在自动重连', 30_000);
    await program.waitForText('#s-state', '在线', 30_000);
    const [attempt] = await waitUntil('a new connection', async () => {
      const attempts = await lab.service.relayAttempts({ sinceMs: before });
      return attempts.length > 0 && attempts;
    });
    const tookMs = attempt.timeMs - before;
    // The relay pings every 3 s, so its last ping may be that much older than the fault.
    assert.ok(tookMs > kHalfOpenMs - 3_000 && tookMs < 30_000, `after ${tookMs} ms`);
    assert.equal(await lab.service.relayConnections(), 2, 'the relay has not seen the old one end');
    await traffic.waitUntilFlowing();
    await lab.faults.clear();
    const report = await traffic.stop();
    t.diagnostic(`a new connection after ${Math.round(tookMs)} ms; ${describe(report)}`);
    assert.deepEqual([report.tcp.connections, report.tcp.breaks, report.tcp.wrongBytes], [1, [], 0]);
    assert.ok(report.udp.lost > 0, 'what went over the dead connection is lost');
    await waitUntil('the old connection gone', async () => (await lab.service.relayConnections()) === 1, 30_000);
  });
