// The relay's process ends, hangs, resets, cannot be found or falls silent, while traffic runs.
import assert from 'node:assert/strict';
import { setTimeout as sleep } from 'node:timers/promises';

import { kServicePort } from '../../lab/harness/lab.mjs';
import { kCloud, kPlc } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { datagramNumber, describe, startTraffic } from '../../lab/harness/traffic.mjs';
import { connect, occurrences, scenario } from './scenario.mjs';

const kLost = '警告：中继连接中断，软件隧道正在自动重连。';
const kFound = '软件隧道已重新在线。';
const kServiceName = 'service.lab';
const kStoppedMs = 30_000;
/** TCP's own next retry may take as long as the outage; a tool opens another connection before that. */
const kPatientTool = { stallMs: 15_000 };

/** Checks that the page shows the loss. */
async function seesLoss(program, timeoutMs = 20_000) {
  await program.waitForText('#s-detail', '软件隧道正在自动重连', timeoutMs);
  assert.equal(await program.state(), '未连接');
}

/** Checks that the page and the log show the recovery and that traffic flows. */
async function seesReturn(program, traffic) {
  await program.waitForText('#s-state', '在线', 30_000);
  await program.waitForLog(new RegExp(`${kLost}[^]*${kFound}`));
  await traffic.waitUntilFlowing();
}

/** The numbers of the datagrams that reached the service, in order of arrival. */
async function arrived(lab) {
  return (await lab.service.packets()).filter(({ direction }) => direction === 'fromClient')
    .map(({ hex }) => datagramNumber(hex)).filter((number) => number !== null);
}

/**
 * Runs traffic to the controller during `fault(traffic)` and reports the losses. Nothing may arrive twice
 * or altered; the TCP connection survives the fault, unless `tcp` sets a limit.
 */
async function duringTraffic(lab, t, name, fault, tcp = {}) {
  const traffic = await startTraffic(lab, kPlc, { tcp });
  await traffic.waitUntilFlowing();
  await fault(traffic);
  const report = await traffic.stop();
  t.diagnostic(`${name}: ${describe(report)}`);
  assert.ok(report.udp.received > 0);
  assert.deepEqual([report.udp.duplicated, report.udp.wrong], [0, 0]);
  assert.deepEqual([report.tcp.outOfOrder, report.tcp.wrongBytes], [0, 0]);
  if (!tcp.stallMs) assert.deepEqual([report.tcp.connections, report.tcp.breaks], [1, []]);
  return report;
}

scenario('the tunnel survives a killed service, a reset and a name that is missing for a while',
  { site: true, settings: { serverUrl: `http://${kServiceName}:${kServicePort}` }, start: false },
  async (lab, _, t) => {
    await lab.network.setNames('engineer', { [kServiceName]: kCloud });
    const program = await lab.startProgram();
    await connect(program);

    await duringTraffic(lab, t, 'service killed, back after 4 s', async (traffic) => {
      await lab.killService();
      await seesLoss(program);
      await sleep(4_000);  // two attempts meet a closed port
      await lab.restartService();
      await seesReturn(program, traffic);
    });
    assert.equal((await lab.service.relayAttempts()).length, 1, 'one attempt reached the new service');

    const reset = await duringTraffic(lab, t, 'connection reset', async (traffic) => {
      await lab.service.cutRelay();
      await seesLoss(program);
      await seesReturn(program, traffic);
    });
    assert.ok(reset.udp.lost > 0, 'large datagrams had no way');

    await duringTraffic(lab, t, 'name gone for 6 s', async (traffic) => {
      await lab.network.setNames('engineer', {});
      const sinceMs = await lab.service.cutRelay();
      await seesLoss(program);
      await sleep(6_000);
      assert.deepEqual(await lab.service.relayAttempts({ sinceMs }), [], 'nobody knows where to go');
      assert.equal(await program.state(), '未连接');
      await lab.network.setNames('engineer', { [kServiceName]: kCloud });
      await seesReturn(program, traffic);
    });

    const log = await program.log();
    assert.equal(occurrences(log, kLost), 3, log);
    assert.equal(occurrences(log, kFound), 3, log);
  });

scenario('a relay that hangs or falls silent is given up after 8 s and found again',
  { site: true }, async (lab, program, t) => {
    await connect(program);

    const stopped = await duringTraffic(lab, t, `service stopped for ${kStoppedMs / 1000} s`, async (traffic) => {
      const [{ timeMs: connectedMs }] = await lab.service.relayAttempts();
      await lab.service.keepPackets(true);
      const startMs = performance.now();
      const { udp: atStop } = await traffic.report();
      lab.pauseService();
      await seesLoss(program);
      const { udp: atLoss } = await traffic.report();
      assert.ok(performance.now() - startMs > 7_000, 'the connection was given up too early');
      await sleep(kStoppedMs - (performance.now() - startMs));
      assert.equal(await program.state(), '未连接', 'a relay that answers nothing is no relay');
      const { udp: atEnd } = await traffic.report();
      lab.continueService();
      await seesReturn(program, traffic);
      // Data sent before the loss waited in the relay's buffers. The UDP path lasts until the first attempt,
      // one second longer; later datagrams had no path and must not arrive afterwards.
      const late = (await arrived(lab)).filter((number) => number >= atStop.sent && number < atEnd.sent);
      t.diagnostic(`the relay went on with ${late.length} old datagrams`);
      const newest = Math.max(...late);
      assert.ok(newest < atLoss.sent + 100, `sent after the loss: ${newest - atLoss.sent}`);
      const attempts = await lab.service.relayAttempts({ sinceMs: connectedMs + 1 });
      // 1 s after the loss and 2 s later; each waits 8 s for the response. The kernel accepted both.
      assert.ok(attempts.length >= 2, `${attempts.length} attempts`);
    }, kPatientTool);
    assert.deepEqual(stopped.tcp.breaks.map(({ reason }) => reason), ['stalled']);

    await duringTraffic(lab, t, 'relay silent', async (traffic) => {
      const sinceMs = (await lab.service.relayClients()).at(-1).sinceMs + 1;
      const startMs = performance.now();
      await lab.service.setSilent(true);
      await seesLoss(program);
      assert.ok(performance.now() - startMs > 7_000, 'the connection was given up too early');
      const attempts = await waitUntil('two attempts', async () => {
        const list = await lab.service.relayAttempts({ sinceMs });
        return list.length >= 2 && list;
      }, 60_000);
      const gapMs = attempts[1].timeMs - attempts[0].timeMs;
      assert.ok(gapMs > 8_500, `8 s of silence and 1 s of waiting took ${gapMs} ms`);
      await lab.service.setSilent(false);
      await seesReturn(program, traffic);
    });
  });
