// Devices on site that tools find by broadcast: one of each protocol for every network named.
// Usage: node devices.mjs ADDRESS/BROADCAST/NUMBER...
import { startBacnetDevice } from './bacnet_device.mjs';
import { startEthernetIpDevice } from './ethernet_ip_device.mjs';
import { startPlainDevice } from './plain_device.mjs';

for (const text of process.argv.slice(2)) {
  const [address, broadcast, number] = text.split('/');
  const device = { address, broadcast, number: Number(number) };
  await startBacnetDevice(device);
  await startEthernetIpDevice(device);
  await startPlainDevice(device);
}
console.log('ready');
