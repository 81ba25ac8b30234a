// The devices that tools find by broadcast, tested byte by byte from their own network.
import assert from 'node:assert/strict';
import { mkdtemp, readFile, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import {
  devicesLog, kBacnetPort, kDevices, kEthernetIpPort, kPlainPort, kShoutingDevice, startDevices,
} from '../harness/discovery.mjs';
import { Network } from '../harness/network.mjs';
import { kLabSuffix } from '../harness/paths.mjs';
import { Processes, runOrFail } from '../harness/processes.mjs';

const kLimit = { timeout: 60_000 };
const [kFirst, kSecond] = kDevices;
const lab = { network: new Network(`${kLabSuffix}-dev`), processes: new Processes() };

before(async () => {
  lab.artifacts = await mkdtemp(path.join(tmpdir(), 'velmarine-devices-'));
  await lab.network.create();
  await startDevices(lab);
}, kLimit);

after(async () => {
  await lab.processes.stopAll();
  await lab.network.remove();
  await rm(lab.artifacts, { recursive: true, force: true });
}, kLimit);

const kAsker = `
  const [to, port, sourcePort, question, waitMs] = process.argv.slice(1);
  const socket = require('node:dgram').createSocket('udp4');
  const answers = [];
  socket.on('message', (bytes, sender) =>
    answers.push([sender.address + ':' + sender.port, bytes.toString('hex')]));
  socket.bind(Number(sourcePort), () => {
    socket.setBroadcast(true);
    socket.send(Buffer.from(question, 'hex'), Number(port), to);
    setTimeout(() => { console.log(JSON.stringify(answers.sort())); process.exit(0); }, Number(waitMs));
  });`;

/** The answers within 400 ms to a question from the site's router: [[address:port, hexadecimal]]. */
async function ask(to, port, question, sourcePort = 40_000) {
  const { stdout } = await runOrFail(['node', '-e', kAsker, to, String(port), String(sourcePort),
    question.replaceAll(' ', ''), '400'], { namespace: lab.network.site });
  return JSON.parse(stdout);
}

const asIs = (text) => text.replaceAll(/\s/g, '');

// Serial number 77010 is 0x00012cd2; lengths and numbers little-endian, the socket address big-endian.
const kIdentity = asIs(`
  6300 3c00 00000000 00000000 0102030405060708 00000000
  0100 0c00 3600 0100 0002 af12 c0a84d0a 0000000000000000
  e703 0e00 4d00 0102 0000 d22c0100 14 4c616220636f6e74726f6c6c6572203737303130 03`);
const kListIdentity = '6300 0000 00000000 00000000 0102030405060708 00000000';

test('EtherNet/IP: the identity has the published form, with the sender context returned', kLimit, async () => {
  const expected = [[`${kFirst.address}:${kEthernetIpPort}`, kIdentity]];
  assert.deepEqual(await ask(kFirst.broadcast, kEthernetIpPort, kListIdentity), expected, 'by broadcast');
  assert.deepEqual(await ask(kFirst.address, kEthernetIpPort, kListIdentity), expected, 'by its own address');
});

test('EtherNet/IP: anything but ListIdentity gets no answer', kLimit, async () => {
  for (const question of [kListIdentity.slice(0, -2), kListIdentity.replace('6300', '6400'), '63', '']) {
    assert.deepEqual(await ask(kFirst.broadcast, kEthernetIpPort, question), [], question);
  }
});

// Device object 77010; 1482 bytes at most, no segmentation, vendor 999.
const kIAm = asIs('81 0a 0015 01 00 10 00 c4 02012cd2 22 05ca 91 03 22 03e7');
const kWhoIs = '81 0b 000c 01 20 ffff 00 ff 10 08';

test('BACnet: Who-Is is answered by the standard, by unicast', kLimit, async () => {
  assert.deepEqual(await ask(kFirst.broadcast, kBacnetPort, kWhoIs),
    [[`${kFirst.address}:${kBacnetPort}`, kIAm]]);
});

test('BACnet: limits of Who-Is are respected', kLimit, async () => {
  const limited = (low, high) => `81 0b 0014 01 20 ffff 00 ff 10 08 0b ${low} 1b ${high}`;
  const count = async (low, high) => (await ask(kFirst.broadcast, kBacnetPort, limited(low, high))).length;
  assert.equal(await count('012cd2', '012cd2'), 1);
  assert.equal(await count('012cd4', '013000'), 0);
  assert.equal(await count('000001', '012cd1'), 0);
});

test('BACnet: one device answers by broadcast instead', kLimit, async () => {
  const heard = await ask(kFirst.broadcast, kBacnetPort, kWhoIs, kBacnetPort);
  const toAll = kIAm.replace('810a', '810b').replace('2cd2', '2cd3');
  assert.deepEqual(heard.filter(([, hex]) => hex.endsWith(toAll.slice(-24))).map(([from]) => from),
    [`${kShoutingDevice.address}:${kBacnetPort}`]);
  assert.match(await readFile(devicesLog(lab), 'utf8'),
    new RegExp(`${kShoutingDevice.number} answered everybody`));
});

test('each device receives its own network\'s broadcasts and answers from its own address', kLimit, async () => {
  for (const device of [kFirst, kSecond]) {
    const answers = await ask(device.broadcast, kPlainPort, Buffer.from('who?').toString('hex'));
    assert.deepEqual(answers.map(([from, hex]) => [from, JSON.parse(Buffer.from(hex, 'hex'))]), [[
      `${device.address}:${kPlainPort}`,
      { device: device.address, heard: 'who?', askedAt: device.broadcast,
        asker: device === kFirst ? '192.168.77.1:40000' : '10.10.0.254:40000' },
    ]]);
  }
});
