// NTP through chrony and ntpdig: a device on site that serves its own clock.
import { mkdir, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { ask, startDaemon } from './support/daemons.mjs';
import { insist, timed, WrongAnswer } from './support/requests.mjs';

export const title = 'NTP';

const kPort = 123;
const kTries = 3;  // a daemon would repeat its requests; ntpdig asks once per run
const kStratum = 8;

// Serves this machine's clock without adjusting it.
const configuration = (folder) => `
local stratum ${kStratum}
allow all
port ${kPort}
cmdport 0
bindcmdaddress ${path.join(folder, 'chronyd.sock')}
pidfile ${path.join(folder, 'chronyd.pid')}
`;

/** One server for all addresses; it answers from the address that was asked. */
export async function serve({ folder }) {
  const own = path.join(folder, 'ntp');
  const file = path.join(own, 'chrony.conf');
  await mkdir(own, { recursive: true });
  await writeFile(file, configuration(own));
  return startDaemon('chronyd', ['/usr/sbin/chronyd', '-4', '-d', '-x', '-u', 'root', '-f', file],
    { kind: 'udp', port: kPort });
}

/**
 * Asks for the time. Both sides share a clock, so the measured offset must not exceed half of the round trip's
 * delay.
 */
export async function use({ address, rounds, timeoutMs }) {
  const notes = { request: 'a run of ntpdig', repeated: 0, largestOffsetMs: 0 };
  const seconds = Math.max(1, Math.floor(timeoutMs / kTries / 1000));  // ntpdig accepts whole seconds only
  const requestMs = await timed(rounds, async () => {
    const text = await insist({ tries: kTries, notes, isLoss: /no eligible servers/ }, () => ask(
      ['ntpdig', '-4', '-j', '-t', String(seconds), address], { timeoutMs: timeoutMs + 2000 }));
    const { offset, precision, stratum } = JSON.parse(text);
    if (!(Math.abs(offset) <= precision)) throw new WrongAnswer(`NTP: ${text.trim()}`);
    if (stratum !== kStratum) throw new WrongAnswer(`NTP: stratum ${stratum}`);
    notes.largestOffsetMs = Math.max(notes.largestOffsetMs, 1000 * Math.abs(offset));
  });
  return { requestMs, notes };
}
