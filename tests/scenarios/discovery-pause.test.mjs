// Discovery captures broadcasts, including the laptop's own request for an address (DHCP), without which the
// relay could never be reached again. So it pauses while the relay is away.
import assert from 'node:assert/strict';

import { broadcast, kDevices, startDevices } from '../../lab/harness/discovery.mjs';
import { kDirectRoute, kOverlappingRoute, kPlc, kTunnelAddress } from '../../lab/harness/network.mjs';
import { datagramNumber, describe, startTraffic } from '../../lab/harness/traffic.mjs';
import { connect, logsAfter, scenario } from './scenario.mjs';

const kPaused = '局域网发现已暂停：中继恢复前不截取本机的广播。';
const kResumed = '局域网发现已恢复。';
const kBroadcasts = ' or (udp and ip.DstAddr == 255.255.255.255))';
const kDhcp = { sourcePort: 68, port: 67, text: 'an address, please', expected: 0, waitMs: 500 };

/** For each of the driver's captures, in order, whether it included broadcasts. */
async function captures(lab) {
  return [...(await lab.driverLog()).matchAll(/^open handle=\d+ error=0 priority=-300 .*$/gm)]
    .map(([line]) => line.endsWith(kBroadcasts));
}

/** The last line in the driver's log about the end of a capturing handle. */
async function lastClose(lab) {
  const [line] = [...(await lab.driverLog()).matchAll(/^close .*$/gm)].at(-1);
  return Object.fromEntries([...line.matchAll(/(\w+)=(\d+)/g)].map(([, name, count]) => [name, Number(count)]));
}

async function switchesDiscoveryOn(program) {
  await logsAfter(program, '局域网发现模式已开启：支持 PLC 广播扫描。', () => program.click('#c-discovery'));
}

const devicesFound = async (lab, sourcePort) =>
  (await broadcast(lab, { sourcePort })).map(({ text }) => JSON.parse(text).device).sort();

scenario('discovery pauses while the relay is away and leaves the laptop its own broadcasts', { site: true },
  async (lab, program) => {
    const devices = kDevices.map(({ address }) => address).sort();
    await startDevices(lab);
    await lab.service.setGrant({
      connectionId: 'CONN-0001', assignedAddress: kTunnelAddress, routes: [kDirectRoute, kOverlappingRoute],
    });
    await switchesDiscoveryOn(program);
    await connect(program);
    assert.deepEqual(await devicesFound(lab, 40_000), devices);
    assert.deepEqual(await captures(lab), [true]);

    await logsAfter(program, kPaused, () => lab.killService());
    assert.deepEqual(await captures(lab), [true, false]);
    assert.equal((await lastClose(lab)).uncaptured, 0, 'all was wanted so far');
    await broadcast(lab, kDhcp);
    await logsAfter(program, kResumed, () => lab.restartService());
    assert.deepEqual(await captures(lab), [true, false, true]);
    assert.equal((await lastClose(lab)).uncaptured, 1, 'the question for an address went its own way');
    assert.equal((await lastClose(lab)).captured, 0);

    await program.waitForText('#s-state', '在线');
    assert.deepEqual(await devicesFound(lab, 40_001), devices);
    await broadcast(lab, kDhcp);
    await program.click('#c-stop');
    await program.waitForText('#s-state', '未连接');
    assert.equal((await lastClose(lab)).uncaptured, 1, 'taken again');
  });

scenario('no packet for the site leaks into the local network or is doubled when the capture changes',
  { site: true }, async (lab, program, t) => {
    await lab.service.keepPackets(true);
    await switchesDiscoveryOn(program);
    await connect(program);
    const traffic = await startTraffic(lab, kPlc);
    await traffic.waitUntilFlowing();
    for (let cuts = 1; cuts <= 5; cuts += 1) {
      await logsAfter(program, kResumed, () => lab.service.cutRelay());
      await traffic.waitUntilFlowing();
    }
    const report = await traffic.stop();
    t.diagnostic(describe(report));
    assert.deepEqual([report.udp.duplicated, report.udp.wrong], [0, 0]);
    assert.deepEqual([report.tcp.outOfOrder, report.tcp.wrongBytes, report.tcp.connections], [0, 0, 1]);
    assert.equal((await captures(lab)).length, 11, 'twice for each cut');
    const numbers = (await lab.service.packets()).filter(({ direction }) => direction === 'fromClient')
      .map(({ hex }) => datagramNumber(hex)).filter((number) => number !== null);
    assert.equal(new Set(numbers).size, numbers.length, 'each went once');
    await program.click('#c-stop');
    await program.waitForText('#s-state', '未连接');
    assert.equal((await lastClose(lab)).uncaptured, 0);
  });
