// Ten thousand packets without a receiver: the newest 4096 wait, the rest is dropped, memory stays bounded, and
// expired packets do not arrive later.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

import { kPlc } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { datagramNumber, describe, startTraffic } from '../../lab/harness/traffic.mjs';
import { connect, scenario } from './scenario.mjs';

const kQueued = 4096;
const kCount = 10_000;
const kPayloadBytes = 1400;  // only by WebSocket
const kFlood = {
  udp: { sizes: [kPayloadBytes], intervalMs: 1, batch: 5, count: kCount }, tcp: false,
};
const kBackground = { udp: { sizes: [64], intervalMs: 100 } };
const kPacketBytes = kPayloadBytes + 28;  // IPv4 and UDP headers
const kAlmost = 20;
const kRestMs = 300;
const kRestTicks = 2;  // of 10 ms: the background's packets
const kMoreMib = 12;  // the whole flood would be 14

/** The program's private memory in MiB. */
async function memory(program) {
  const status = await readFile(`/proc/${program.child.pid}/status`, 'utf8');
  assert.match(status, /^Name:\s+Velmarine/m);
  return Number(/^RssAnon:\s+(\d+) kB/m.exec(status)[1]) / 1024;
}

/** The program's processor time in clock ticks. */
async function ticks(program) {
  const stat = await readFile(`/proc/${program.child.pid}/stat`, 'utf8');
  const [userTicks, systemTicks] = stat.slice(stat.lastIndexOf(')') + 2).split(' ').slice(11, 13);
  return Number(userTicks) + Number(systemTicks);
}

/** Waits until the program has captured everything; on a busy machine it lags behind the tools. */
async function waitUntilCaptured(program) {
  let last = await ticks(program);
  await waitUntil('a program at rest', async () => {
    await sleep(kRestMs);
    const now = await ticks(program);
    const rests = now - last <= kRestTicks;
    last = now;
    return rests;
  });
}

/** Sends the whole flood; answers during and after it are counted. */
async function flood(lab) {
  const traffic = await startTraffic(lab, kPlc, kFlood);
  await traffic.waitUntilSent(kCount);
  return traffic;
}

/** The numbers of the flood's datagrams that reached the service, in order of arrival. */
async function arrived(lab) {
  return (await lab.service.packets())
    .filter(({ direction, hex }) => direction === 'fromClient' && hex.length / 2 === kPacketBytes)
    .map(({ hex }) => datagramNumber(hex));
}

const isAscending = (numbers) => numbers.every((number, i) => i === 0 || number > numbers[i - 1]);

async function blockedSender(lab, program, t) {
  const before = await memory(program);
  lab.pauseService();
  const traffic = await flood(lab);
  await waitUntilCaptured(program);
  const during = await memory(program);
  lab.continueService();  // before the connection is given up after 8 s
  const numbers = await waitUntil('the newest packets at the service', async () => {
    const list = await arrived(lab);
    return list.some((number) => number > kCount - kAlmost) && list;
  });
  const { udp } = await traffic.stop();
  assert.equal((await lab.service.relayAttempts()).length, 1, 'the connection stayed');

  assert.ok(isAscending(numbers), 'out of order');
  const sizes = numbers.map((number, i) => number - (numbers[i - 1] ?? -1) - 1);
  const lost = Math.max(...sizes);
  const inBuffers = sizes.indexOf(lost);
  const waited = numbers.length - inBuffers;
  t.diagnostic(`relay that does not read: of ${kCount} the system's buffers held the first ${inBuffers}, ` +
    `${lost} in the middle are lost, the newest ${waited} waited; ${udp.late} answers late; ` +
    `memory ${before.toFixed(1)} -> ${during.toFixed(1)} MiB`);
  assert.ok(lost > 100, `the oldest go: ${lost}`);
  // Other traffic occupies a few places.
  assert.ok(waited <= kQueued && waited > kQueued - 4 * kAlmost, `the newest stay: ${waited}`);
  assert.ok(during - before < kMoreMib, `memory grew by ${during - before} MiB`);
}

async function noTransport(lab, program, t) {
  await lab.service.forgetPackets();
  await lab.service.refuseUpgrade({ status: 503 });
  await lab.service.cutRelay();
  // The first attempt also closes the UDP path.
  await waitUntil('a refused attempt', async () => (await lab.service.relayAttempts()).length > 1);
  const before = await memory(program);
  const traffic = await flood(lab);
  const during = await memory(program);
  assert.equal(await program.state(), '未连接');
  await lab.service.acceptUpgrades();
  await program.waitForText('#s-state', '在线', 30_000);
  const { udp } = await traffic.stop();
  t.diagnostic(`no transport: ${describe({ udp })}; memory ${before.toFixed(1)} -> ${during.toFixed(1)} MiB`);
  assert.equal(udp.received, 0);
  assert.deepEqual(await arrived(lab), [], 'nothing stale');
  assert.ok(during - before < kMoreMib, `memory grew by ${during - before} MiB`);
}

/** The total number of packets delivered by the driver. */
async function captured(lab) {
  const log = await lab.driverLog();
  return [...log.matchAll(/\breceived=(\d+)/g)].reduce((sum, [, count]) => sum + Number(count), 0);
}

scenario('of ten thousand packets without a receiver, the newest wait for a relay, none for a lost one',
  { site: true }, async (lab, program, t) => {
    await connect(program);
    const background = await startTraffic(lab, kPlc, kBackground);
    await background.waitUntilFlowing();
    await lab.service.keepPackets(true);
    await blockedSender(lab, program, t);
    await background.waitUntilFlowing();
    await noTransport(lab, program, t);
    await background.waitUntilFlowing();
    t.diagnostic(`throughout: ${describe(await background.stop())}`);

    await program.click('#c-stop');
    await program.waitForText('#s-state', '未连接');
    const count = await captured(lab);
    assert.ok(count > 1.5 * kCount, `the driver handed over ${count}`);
  });
