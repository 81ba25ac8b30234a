// Looks for BACnet devices with one Who-Is to 255.255.255.255, from BACnet's own port.
// Usage: node who_is.mjs EXPECTED WAIT_MS. Prints [{device, vendor, from}].
import { once } from 'node:events';
import { createRequire } from 'node:module';

import { printAnswers } from './answers.mjs';

const require = createRequire(new URL('../../package.json', import.meta.url));
const { default: BacnetClient } = require('@bacnet-js/client');

const [expected, waitMs] = process.argv.slice(2).map(Number);
const answers = [];
const client = new BacnetClient({ broadcastAddress: '255.255.255.255' });
client.on('iAm', ({ header, payload }) => answers.push({
  device: payload.deviceId, vendor: payload.vendorId, from: header.sender.address,
}));
await once(client, 'listening');
client.whoIs();
await printAnswers(answers, { expected, waitMs });
