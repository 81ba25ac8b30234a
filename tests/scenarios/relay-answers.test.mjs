// The relay sends invalid or unusual data: the tunnel continues or reconnects, and traffic flows again.
import assert from 'node:assert/strict';

import { kPlc } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { datagramNumber, describe, startTraffic } from '../../lab/harness/traffic.mjs';
import { connect, occurrences, scenario } from './scenario.mjs';

// Each carries an answer that the program already has, so that a duplicate shows its delivery.
const kGoesOn = [
  { name: 'maskedFrame', delivers: 1 },
  { name: 'fragmentsWithPings', delivers: 1 },
  { name: 'largestMessage', delivers: 0 },  // 4 MiB of zeros are not a packet
  { name: 'textFrame', delivers: 0 },
  { name: 'unknownOpcode', delivers: 0 },
  { name: 'emptyMessage', delivers: 0 },
];
const kConnectsAnew = ['tooLargeMessage', 'hugeLength', 'closeFrame', 'closeInTheMiddle', 'cutInTheMiddle',
  'garbage', 'httpReply'];

/** The newest echoed datagram sent to the program, in hexadecimal. */
async function oneAnswer(lab, traffic) {
  await lab.service.keepPackets(true);
  await traffic.waitUntilFlowing();
  await lab.service.keepPackets(false);
  const answers = (await lab.service.packets()).filter(({ direction, hex }) =>
    direction === 'toClient' && datagramNumber(hex) !== null);
  return answers.at(-1).hex;
}

const attempts = async (lab) => (await lab.service.relayAttempts()).length;

scenario('strange frames are ignored or end the connection, and traffic flows again', { site: true },
  async (lab, program, t) => {
    await connect(program);
    // Too large for UDP, because the faults are written to the WebSocket.
    const traffic = await startTraffic(lab, kPlc, { udp: { sizes: [1400] } });
    const packet = await oneAnswer(lab, traffic);

    const lostBefore = (await traffic.report()).udp.lost;
    for (const { name, delivers } of kGoesOn) {
      const before = await traffic.report();
      await lab.service.writeFault({ name, packet });
      await traffic.waitUntilFlowing();
      const { udp } = await traffic.report();
      assert.equal(udp.duplicated - before.udp.duplicated, delivers, `${name}: delivered`);
      assert.equal(await attempts(lab), 1, `${name}: the connection stays`);
      assert.equal(await program.state(), '在线', name);
    }
    await traffic.waitUntilFlowing({ datagrams: 110 });  // until a late answer no longer counts
    assert.equal((await traffic.report()).udp.lost, lostBefore, 'none of this costs a packet');

    for (const [index, name] of kConnectsAnew.entries()) {
      const { udp: before, nowMs } = await traffic.report();
      await lab.service.writeFault({ name, packet });
      await waitUntil(`a new connection after ${name}`, async () => (await attempts(lab)) === index + 2);
      await program.waitForText('#s-state', '在线');
      await traffic.waitUntilFlowing();
      const { udp, nowMs: laterMs } = await traffic.report();
      assert.equal(udp.duplicated, before.duplicated, `${name}: delivered nothing`);
      t.diagnostic(`${name}: connected anew, traffic again after ${Math.round(laterMs - nowMs)} ms`);
    }

    const report = await traffic.stop();
    t.diagnostic(describe(report));
    assert.deepEqual([report.udp.wrong, report.tcp.outOfOrder, report.tcp.wrongBytes], [0, 0, 0]);
    assert.deepEqual(report.tcp.breaks, []);
    const log = await program.log();
    assert.equal(occurrences(log, '警告：中继连接中断'), kConnectsAnew.length, log);
    assert.equal(occurrences(log, '软件隧道已重新在线。'), kConnectsAnew.length, log);
  });
