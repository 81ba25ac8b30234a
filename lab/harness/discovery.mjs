// Searching for devices: what answers on site, and the engineer's tools that search.
import path from 'node:path';

import { kPlc, kPlcOverlapping } from './network.mjs';
import { kRepo } from './paths.mjs';
import { kPlainPort } from '../standins/plc/broadcast_devices.mjs';

export { kPlainPort };
export const kLimitedBroadcast = '255.255.255.255';
export const kBacnetPort = 47808;
export const kEthernetIpPort = 44818;

/** The devices, one in each of the site's networks. */
export const kDevices = [
  { address: kPlc, broadcast: '192.168.77.255', number: 77010 },
  { address: kPlcOverlapping, broadcast: '10.10.0.255', number: 10010 },
];

/** A BACnet device that answers its whole network, and so nobody behind a tunnel. */
export const kShoutingDevice = { ...kDevices[0], number: 77011 };

const kWaitMs = 8_000;  // for answers that should come

/** Starts the devices in the controller's namespace; they end with the lab, or with the process. */
export async function startDevices(lab) {
  const words = ({ address, broadcast, number }) => `${address}/${broadcast}/${number}`;
  return lab.processes.start('devices', ['node', path.join(kRepo, 'lab/standins/plc/devices.mjs'),
    ...kDevices.map(words), `${words(kShoutingDevice)}/everybody`],
  { namespace: lab.network.plc, log: devicesLog(lab), ready: /ready/ });
}

/** Where the devices note what nobody behind the tunnel can see. */
export const devicesLog = (lab) => path.join(lab.artifacts, 'devices.log');

async function search(lab, name, ...words) {
  const result = await lab.tool(['node', path.join(kRepo, 'lab/standins/engineer/search.mjs'), name, ...words.map(String)]);
  if (result.code !== 0) throw new Error(`${name} ended with ${result.code}\n${result.stderr}`);
  return JSON.parse(result.stdout);
}

const byOrigin = (a, b) => a.from.localeCompare(b.from);

// Each of these runs one search in the engineer's namespace and returns its answers, ordered by where
// they came from. It ends soon after `expected` answers, or after `waitMs`; 0 expected waits that long.

/** BACnet Who-Is: [{device, vendor, from}]. */
export async function whoIs(lab, { expected = kDevices.length, waitMs = kWaitMs } = {}) {
  return (await search(lab, 'who-is', expected, waitMs)).sort(byOrigin);
}

/** EtherNet/IP ListIdentity: [{serial, product, named, from}]. */
export async function listIdentity(lab, { expected = kDevices.length, waitMs = kWaitMs } = {}) {
  return (await search(lab, 'list-identity', expected, waitMs)).sort(byOrigin);
}

/** One datagram of no known protocol: [{from, text}]; the devices' texts are JSON (broadcast_devices.mjs). */
export async function broadcast(lab, {
  to = kLimitedBroadcast, port = kPlainPort, sourcePort = 40_000, text = 'anyone?',
  expected = kDevices.length, waitMs = kWaitMs,
} = {}) {
  return (await search(lab, 'broadcast', to, port, sourcePort, text, expected, waitMs)).sort(byOrigin);
}
