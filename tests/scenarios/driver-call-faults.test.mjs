// One call of the packet driver fails while traffic runs. Calls are counted from each start
// of a tunnel.
import assert from 'node:assert/strict';

import { kPlc } from '../../lab/harness/network.mjs';
import { ping } from '../../lab/harness/tools.mjs';
import { describe, startTraffic } from '../../lab/harness/traffic.mjs';
import { connect, scenario } from './scenario.mjs';

// Questions and answers alternate, so that their place among the calls is known: the fifth question is the
// fifth receive and the ninth checksum, its answer the tenth checksum and the fifth send.
const kFifth = 4;
const kTurns = { udp: { sizes: [64], intervalMs: 150, count: 20 }, tcp: false };

/** Runs the program with one failing call; returns the traffic's losses once the tunnel works again. */
async function runWithFault(lab, t, name, number) {
  const program = await lab.startProgram({ env: { [`LAB_WINDIVERT_FAIL_${name}`]: String(number) } });
  await connect(program);
  const traffic = await startTraffic(lab, kPlc, kTurns);
  await traffic.waitUntilSent(kTurns.udp.count);
  const { udp } = await traffic.stop();
  t.diagnostic(`${name} call ${number} fails: ${describe({ udp })}`);
  assert.equal(await program.state(), '在线', `${name}: the tunnel stays up`);
  assert.equal(await lab.service.relayConnections(), 1);

  await program.click('#c-stop');
  await program.waitForText('#s-state', '未连接');
  assert.match((await lab.driverLog()).trimEnd(), /\bfaults=1$/, `${name}: the fault came`);
  await connect(program);
  const after = await ping(lab, kPlc, 3);
  assert.ok(after.ok, `${name}: a new connection works: ${after.error}`);
  assert.equal(await program.closeWindow(), 0);
  return udp;
}

const gapsOf = ({ gaps }) => gaps.map(({ from, lost }) => [from, lost]);

scenario('a failing driver call has exactly the stated cost, and a new connection repairs it',
  { site: true, start: false }, async (lab, _, t) => {
    const receive = await runWithFault(lab, t, 'RECV', 5);
    assert.deepEqual(gapsOf(receive), [], 'the next receive gets the packet');

    const send = await runWithFault(lab, t, 'SEND', 5);
    assert.deepEqual(gapsOf(send), [[kFifth, 1]], 'the answer that could not be injected');

    const inbound = await runWithFault(lab, t, 'CHECKSUM', 10);
    assert.deepEqual(gapsOf(inbound), [[kFifth, 1]], 'the answer without a checksum');

    const outbound = await runWithFault(lab, t, 'CHECKSUM', 9);
    assert.deepEqual(gapsOf(outbound), [[kFifth, kTurns.udp.count - kFifth]],
      'the capture ends with the question that has no checksum');
  });
