// Discovery mode: a tool's search broadcasts reach the site's networks, and the devices' answers reach the
// tool.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';

import {
  broadcast, devicesLog, kBacnetPort, kDevices, kEthernetIpPort, kPlainPort, kShoutingDevice, listIdentity,
  startDevices, whoIs,
} from '../../lab/harness/discovery.mjs';
import { kDirectRoute, kOverlappingRoute, kPlc, kTunnelAddress } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { ping } from '../../lab/harness/tools.mjs';
import { connect, occurrences, scenario } from './scenario.mjs';

const kHostRoute = '192.168.78.9/32';
const kMappedBroadcast = '172.31.0.255';
const kOn = {
  line: '局域网发现模式已开启：支持 PLC 广播扫描。', button: 'PLC发现模式：开', card: 'PLC发现模式已开启',
};
const kOff = {
  line: '局域网发现模式已关闭：仅支持已知 IP 访问。', button: 'PLC发现模式：关', card: '已关闭',
};
const kConnectedWith = /\r\n局域网发现模式已开启$/;
const kConnectedWithout = /\r\n局域网发现模式已关闭：只转发已知 IP 网段。$/;
const kUdp = 17;
const kQuietMs = 1_000;  // for answers that must not come
const [kDirect, kNat] = kDevices;

/** The UDP packets in the service's record after the first `since`: {from, to, text}. */
async function datagrams(lab, direction, since) {
  return (await lab.service.packets()).slice(since).filter((one) => one.direction === direction)
    .map(({ hex }) => Buffer.from(hex, 'hex')).filter((packet) => packet[9] === kUdp)
    .map((packet) => {
      const udp = packet.subarray((packet[0] & 15) * 4);
      return {
        from: `${packet.subarray(12, 16).join('.')}:${udp.readUInt16BE(0)}`,
        to: `${packet.subarray(16, 20).join('.')}:${udp.readUInt16BE(2)}`, text: udp.subarray(8).toString(),
      };
    });
}

/** Runs `search` and returns its answers with the service's record: {answers, left, came}. */
async function watched(lab, search) {
  const since = (await lab.service.packets()).length;
  const answers = await search();
  return {
    answers, left: await datagrams(lab, 'fromClient', since), came: await datagrams(lab, 'toClient', since),
  };
}

/** The tool's answers from plain devices: the sender's address and its text. */
const parsed = (answers) => answers.map(({ from, text }) => ({ from, ...JSON.parse(text) }));

/** A plain device's text, as a tool receives it from `from`. */
const plainAnswer = (device, from, port, text = 'anyone?') => ({
  from: `${from}:${kPlainPort}`, device: device.address, heard: text,
  asker: `${kTunnelAddress}:${port}`, askedAt: device.broadcast,
});

const destinations = (packets) => packets.map(({ to }) => to);

async function disconnect(program) {
  await program.click('#c-stop');
  await program.waitForText('#s-state', '未连接');
}

const showsCard = (program, value) => waitUntil(`the card showing ${value}`,
  async () => (await program.card('PLC发现模式')) === value);

/** Flips the switch; the log, the button and the card then show `mode`. */
async function flip(program, mode) {
  const before = occurrences(await program.log(), mode.line);
  await program.click('#c-discovery');
  await program.waitForLog(new RegExp(`(${mode.line}[^]*){${before + 1}}`));
  await program.waitForText('#c-discovery', mode.button);
  await showsCard(program, mode.card);
}

/** A number from the driver's log lines, in order. */
const counted = (log, name) =>
  [...log.matchAll(new RegExp(`\\b${name}=(\\d+)`, 'g'))].map(([, count]) => Number(count));

/** For each of the driver's captures, in order, whether it included broadcasts. */
async function capturesOfBroadcasts(lab) {
  return [...(await lab.driverLog()).matchAll(/^open .*filter=outbound(.*)$/gm)]
    .map(([, filter]) => filter.endsWith(' or (udp and ip.DstAddr == 255.255.255.255))'));
}

async function aPlainDatagramFindsBoth(lab) {
  const { answers, left, came } = await watched(lab, () => broadcast(lab, { sourcePort: 40_000 }));
  const question = { from: `${kTunnelAddress}:40000`, text: 'anyone?' };
  assert.deepEqual(left, [kNat, kDirect].map((device) =>
    ({ ...question, to: `${device.broadcast}:${kPlainPort}` })),
  'one for each network and none for the single host');
  assert.deepEqual(came.map(({ from, to }) => `${from} ${to}`).sort(), [
    `${kNat.address}:${kPlainPort} ${kTunnelAddress}:40000`,
    `${kDirect.address}:${kPlainPort} ${kTunnelAddress}:40000`,
  ].sort());
  assert.deepEqual(parsed(answers), [
    plainAnswer(kNat, kMappedBroadcast, 40_000), plainAnswer(kDirect, kDirect.broadcast, 40_000),
  ]);
}

// A third device answers by broadcast, which is not carried, so its answer is not seen.
async function bacnetFindsBoth(lab) {
  const { answers, left } = await watched(lab, () => whoIs(lab));
  assert.deepEqual(answers, [
    { device: kNat.number, vendor: 999, from: kMappedBroadcast },
    { device: kDirect.number, vendor: 999, from: kDirect.broadcast },
  ]);
  assert.deepEqual(destinations(left),
    [`${kNat.broadcast}:${kBacnetPort}`, `${kDirect.broadcast}:${kBacnetPort}`]);
  assert.match(await readFile(devicesLog(lab), 'utf8'),
    new RegExp(`^${kShoutingDevice.number} answered everybody$`, 'm'));
}

// The answer contains the device's own address, which is not translated.
async function ethernetIpFindsBoth(lab) {
  const { answers, left } = await watched(lab, () => listIdentity(lab));
  const identity = (device, from) => ({
    serial: `0x${device.number.toString(16)}`, product: `Lab controller ${device.number}`,
    named: device.address, from: `${from}:${kEthernetIpPort}`,
  });
  assert.deepEqual(answers, [identity(kNat, kMappedBroadcast), identity(kDirect, kDirect.broadcast)]);
  assert.deepEqual(new Set(destinations(left)),
    new Set([`${kNat.broadcast}:${kEthernetIpPort}`, `${kDirect.broadcast}:${kEthernetIpPort}`]));
}

async function toolsAtTheSameTimeGetTheirOwn(lab) {
  const ports = [41_001, 41_002, 41_003];
  const found = await Promise.all(ports.map((sourcePort) =>
    broadcast(lab, { sourcePort, text: `I am ${sourcePort}` })));
  ports.forEach((port, index) => assert.deepEqual(parsed(found[index]), [
    plainAnswer(kNat, kMappedBroadcast, port, `I am ${port}`),
    plainAnswer(kDirect, kDirect.broadcast, port, `I am ${port}`),
  ]));
}

async function multicastIsLeftAlone(lab) {
  const { answers, left } = await watched(lab, () =>
    broadcast(lab, { to: '224.0.0.251', port: 5353, expected: 0, waitMs: kQuietMs }));
  assert.deepEqual({ answers, left }, { answers: [], left: [] });
}

scenario('a broadcast finds the devices of every routed network, directly and through NAT',
  { site: true }, async (lab, program) => {
    await startDevices(lab);
    await lab.service.keepPackets(true);
    await lab.service.setGrant({
      connectionId: 'CONN-0001', assignedAddress: kTunnelAddress,
      routes: [kDirectRoute, kOverlappingRoute, kHostRoute],
    });
    await showsCard(program, kOff.card);
    await flip(program, kOn);
    await connect(program);
    await program.waitForText('#c-statusline', kConnectedWith);
    assert.deepEqual(await capturesOfBroadcasts(lab), [true]);

    await aPlainDatagramFindsBoth(lab);
    await bacnetFindsBoth(lab);
    await ethernetIpFindsBoth(lab);
    await toolsAtTheSameTimeGetTheirOwn(lab);
    await multicastIsLeftAlone(lab);
    assert.ok((await ping(lab, kPlc)).ok, 'the ordinary way works beside it');

    await disconnect(program);
    const log = await lab.driverLog();
    for (const fault of ['wrongChecksum', 'wrongInterface', 'lost']) {
      assert.deepEqual([...new Set(counted(log, fault))], [0], `${fault}\n${log}`);
    }
    assert.equal(counted(log, 'uncaptured').at(-1), 1, 'the multicast');
  });

scenario('a tool may broadcast to one network by its own address, in either mode', { site: true },
  async (lab, program) => {
    await startDevices(lab);
    await lab.service.keepPackets(true);
    await connect(program);
    for (const [device, seenAs] of [[kDirect, kDirect.broadcast], [kNat, kMappedBroadcast]]) {
      const search = () => broadcast(lab, { to: seenAs, expected: 1 });
      const { answers, left } = await watched(lab, search);
      assert.deepEqual(destinations(left), [`${device.broadcast}:${kPlainPort}`]);
      assert.deepEqual(parsed(answers), [plainAnswer(device, seenAs, 40_000)]);
    }
  });

scenario('the switch is stored and takes effect with the next connection', { site: true },
  async (lab, program) => {
    await startDevices(lab);
    await lab.service.keepPackets(true);
    const finds = async (count) => {
      const search = () => broadcast(lab, { expected: count, waitMs: count === 0 ? kQuietMs : undefined });
      const { answers, left } = await watched(lab, search);
      assert.equal(answers.length, count);
      assert.equal(left.length, count);
    };

    await connect(program);
    await program.waitForText('#c-statusline', kConnectedWithout);
    await finds(0);
    await flip(program, kOn);
    await finds(0);
    assert.equal(await program.state(), '在线');
    await disconnect(program);
    assert.deepEqual(counted(await lab.driverLog(), 'uncaptured').slice(-1), [2]);
    assert.equal((await lab.prefix.readSettings()).discoveryModeEnabled, true);
    assert.equal(await program.closeWindow(), 0);

    const next = await lab.startProgram();
    await next.waitForText('#c-discovery', kOn.button);
    await showsCard(next, kOn.card);
    await connect(next);
    await finds(2);
    await flip(next, kOff);
    await finds(2);
    await connect(next);
    await next.waitForText('#c-statusline', kConnectedWithout);
    await finds(0);
    assert.deepEqual(await capturesOfBroadcasts(lab), [false, true, false]);
  });
