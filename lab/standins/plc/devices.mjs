// Devices on site that tools find by broadcast: one of each protocol for every network named, or, if
// "everybody" follows, only a BACnet device that answers its whole network.
// Usage: node devices.mjs ADDRESS/BROADCAST/NUMBER[/everybody]...
import { startBacnetDevice } from './bacnet_device.mjs';
import { startEthernetIpDevice, startPlainDevice } from './broadcast_devices.mjs';

for (const text of process.argv.slice(2)) {
  const [address, broadcast, number, everybody] = text.split('/');
  const device = { address, broadcast, number: Number(number) };
  await startBacnetDevice(device, { answersEverybody: everybody !== undefined });
  if (everybody !== undefined) continue;
  await startEthernetIpDevice(device);
  await startPlainDevice(device);
}
console.log('ready');
