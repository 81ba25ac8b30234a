// The engineer's search tools. Each prints its answers as JSON and ends.
// Usage: node search.mjs who-is EXPECTED WAIT_MS          BACnet: [{device, vendor, from}]
//        node search.mjs list-identity EXPECTED WAIT_MS   EtherNet/IP: [{serial, product, named, from}]
//        node search.mjs broadcast TO PORT SOURCE_PORT TEXT EXPECTED WAIT_MS   one datagram: [{from, text}]
import dgram from 'node:dgram';
import { once } from 'node:events';
import { createRequire } from 'node:module';
import { setTimeout as sleep } from 'node:timers/promises';

const require = createRequire(new URL('../../package.json', import.meta.url));
const kListIdentityPort = 51687;
const kRepeatMs = 400;
const kSurplusMs = 300;
const kStepMs = 20;
const answers = [];

/** Waits for as many answers as expected, then a moment longer for surplus ones; otherwise until the time is up. */
async function printAnswers(expected, waitMs) {
  const end = performance.now() + waitMs;
  const hasAll = () => expected > 0 && answers.length >= expected;
  while (!hasAll() && performance.now() < end) await sleep(kStepMs);
  if (hasAll()) await sleep(kSurplusMs);
  console.log(JSON.stringify(answers));
  process.exit(0);
}

const kSearches = {
  /** One Who-Is to 255.255.255.255, sent from BACnet's own port. */
  async 'who-is'(expected, waitMs) {
    const { default: BacnetClient } = require('@bacnet-js/client');
    const client = new BacnetClient({ broadcastAddress: '255.255.255.255' });
    client.on('iAm', ({ header, payload }) => answers.push({
      device: payload.deviceId, vendor: payload.vendorId, from: header.sender.address,
    }));
    await once(client, 'listening');
    client.whoIs();
    await printAnswers(Number(expected), Number(waitMs));
  },

  /** ListIdentity to 255.255.255.255, repeated until a device answers; `named` is the address inside the answer. */
  async 'list-identity'(expected, waitMs) {
    const { Browser } = require('st-ethernet-ip');
    const browser = new Browser(kListIdentityPort, '0.0.0.0', true, kRepeatMs);
    let from = null;
    browser.socket.prependListener('message', (bytes, sender) => { from = `${sender.address}:${sender.port}`; });
    browser.on('New Device', (device) => answers.push({
      serial: device.serialNumber, product: device.productName, named: device.socketAddress.sin_addr, from,
    }));
    await printAnswers(Number(expected), Number(waitMs));
  },

  async broadcast(to, port, sourcePort, text, expected, waitMs) {
    const socket = dgram.createSocket('udp4');
    socket.on('message', (bytes, sender) => answers.push({
      from: `${sender.address}:${sender.port}`, text: bytes.toString(),
    }));
    socket.bind(Number(sourcePort));
    await once(socket, 'listening');
    socket.setBroadcast(true);
    socket.send(text, Number(port), to);
    await printAnswers(Number(expected), Number(waitMs));
  },
};

const [search, ...words] = process.argv.slice(2);
await kSearches[search](...words);
