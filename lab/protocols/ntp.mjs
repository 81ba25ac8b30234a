// NTP through chrony and ntpdig: a device on site that serves its own clock.
import { mkdir, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { ask, startDaemon } from './support/daemons.mjs';
import { timed } from './support/requests.mjs';

export const title = 'NTP';

const kPort = 123;

// Serves this machine's clock and leaves it alone.
const configuration = (folder) => `
local stratum 8
allow all
port ${kPort}
cmdport 0
bindcmdaddress ${path.join(folder, 'chronyd.sock')}
pidfile ${path.join(folder, 'chronyd.pid')}
`;

/** One server for all addresses: it answers from the address that it was asked at. */
export async function serve({ folder }) {
  const own = path.join(folder, 'ntp');
  const file = path.join(own, 'chrony.conf');
  await mkdir(own, { recursive: true });
  await writeFile(file, configuration(own));
  return startDaemon('chronyd', ['/usr/sbin/chronyd', '-4', '-d', '-x', '-u', 'root', '-f', file],
    { kind: 'udp', port: kPort });
}

/**
 * Asks for the time. Both sides have the same clock, so that the offset found must be within what the way
 * there and back can explain: half of the delay.
 */
export async function use({ address, rounds, timeoutMs }) {
  const offsets = [];
  const requestMs = await timed(rounds, async () => {
    const text = await ask(['ntpdig', '-4', '-j', '-t', String(timeoutMs / 1000), address],
      { timeoutMs: timeoutMs + 2000 });
    const { offset, precision, stratum } = JSON.parse(text);
    if (!(Math.abs(offset) <= precision)) throw new Error(`NTP: ${text.trim()}`);
    if (stratum !== 8) throw new Error(`NTP: stratum ${stratum}`);
    offsets.push(Math.abs(offset));
  });
  return { requestMs, notes: { request: 'a run of ntpdig', largestOffsetMs: 1000 * Math.max(...offsets) } };
}
