// Looks for EtherNet/IP devices with ListIdentity to 255.255.255.255, repeated until one is there.
// Usage: node list_identity.mjs EXPECTED WAIT_MS. Prints [{serial, product, named, from}]: the address
// that the answer names inside, and the one that it came from.
import { createRequire } from 'node:module';

import { printAnswers } from './answers.mjs';

const require = createRequire(new URL('../../package.json', import.meta.url));
const { Browser } = require('st-ethernet-ip');

const kSourcePort = 51687;
const kRepeatMs = 400;

const [expected, waitMs] = process.argv.slice(2).map(Number);
const answers = [];
const browser = new Browser(kSourcePort, '0.0.0.0', true, kRepeatMs);
let from = null;
browser.socket.prependListener('message', (bytes, sender) => { from = `${sender.address}:${sender.port}`; });
browser.on('New Device', (device) => answers.push({
  serial: device.serialNumber, product: device.productName, named: device.socketAddress.sin_addr, from,
}));
await printAnswers(answers, { expected, waitMs });
