// Device discovery: the devices on site, and the engineer's search tools.
import path from 'node:path';

import { kPlc, kPlcOverlapping } from './network.mjs';
import { kRepo } from './paths.mjs';
import { kPlainPort } from '../standins/plc/broadcast_devices.mjs';

export { kPlainPort };
export const kLimitedBroadcast = '255.255.255.255';
export const kBacnetPort = 47808;
export const kEthernetIpPort = 44818;

/** The devices, one in each network of the site. */
export const kDevices = [
  { address: kPlc, broadcast: '192.168.77.255', number: 77010 },
  { address: kPlcOverlapping, broadcast: '10.10.0.255', number: 10010 },
];

/** A BACnet device that answers by broadcast, which does not reach the other end of a tunnel. */
export const kShoutingDevice = { ...kDevices[0], number: 77011 };

const kWaitMs = 8_000;  // for the expected answers

/** Starts the devices in the controller's namespace; they end with the lab or with this process. */
export async function startDevices(lab) {
  const words = ({ address, broadcast, number }) => `${address}/${broadcast}/${number}`;
  return lab.processes.start('devices', ['node', path.join(kRepo, 'lab/standins/plc/devices.mjs'),
    ...kDevices.map(words), `${words(kShoutingDevice)}/everybody`],
  { namespace: lab.network.plc, log: devicesLog(lab), ready: /ready/ });
}

/** The devices' log of what is invisible through the tunnel. */
export const devicesLog = (lab) => path.join(lab.artifacts, 'devices.log');

async function search(lab, name, ...words) {
  const result = await lab.tool(['node', path.join(kRepo, 'lab/standins/engineer/search.mjs'), name, ...words.map(String)]);
  if (result.code !== 0) throw new Error(`${name} ended with ${result.code}\n${result.stderr}`);
  return JSON.parse(result.stdout);
}

const byOrigin = (a, b) => a.from.localeCompare(b.from);

// Each of these runs one search in the engineer's namespace and returns its answers, sorted by sender.
// It ends soon after `expected` answers or after `waitMs`; with 0 expected, always after `waitMs`.

/** BACnet Who-Is: [{device, vendor, from}]. */
export async function whoIs(lab, { expected = kDevices.length, waitMs = kWaitMs } = {}) {
  return (await search(lab, 'who-is', expected, waitMs)).sort(byOrigin);
}

/** EtherNet/IP ListIdentity: [{serial, product, named, from}]. */
export async function listIdentity(lab, { expected = kDevices.length, waitMs = kWaitMs } = {}) {
  return (await search(lab, 'list-identity', expected, waitMs)).sort(byOrigin);
}

/** One datagram without a known protocol: [{from, text}]; the devices' texts are JSON (broadcast_devices.mjs). */
export async function broadcast(lab, {
  to = kLimitedBroadcast, port = kPlainPort, sourcePort = 40_000, text = 'anyone?',
  expected = kDevices.length, waitMs = kWaitMs,
} = {}) {
  return (await search(lab, 'broadcast', to, port, sourcePort, text, expected, waitMs)).sort(byOrigin);
}
