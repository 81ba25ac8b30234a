// Devices on site that tools look for by broadcast: one of each protocol for every network named, or,
// where "everybody" follows, a BACnet device alone that answers everybody.
// Usage: node devices.mjs ADDRESS/BROADCAST/NUMBER[/everybody]...
import { startBacnetDevice } from './bacnet_device.mjs';
import { startEthernetIpDevice } from './ethernet_ip_device.mjs';
import { startPlainDevice } from './plain_device.mjs';

for (const text of process.argv.slice(2)) {
  const [address, broadcast, number, everybody] = text.split('/');
  const device = { address, broadcast, number: Number(number) };
  await startBacnetDevice(device, { answersEverybody: everybody !== undefined });
  if (everybody !== undefined) continue;
  await startEthernetIpDevice(device);
  await startPlainDevice(device);
}
console.log('ready');
