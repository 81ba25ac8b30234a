// DNS through dnsmasq and dig: the site's own name server, by UDP and by TCP.
import { ask, startDaemon } from './support/daemons.mjs';
import { mustBe, timed } from './support/requests.mjs';

export const title = 'DNS by UDP';

const kPort = 53;
const kTries = 3;
const kDomain = 'plant.test';
const nameOf = (index) => `unit-192-0-2-${index % 200}.${kDomain}`;
const addressOf = (index) => `192.0.2.${index % 200}`;

/** One name server for all addresses, with a name and an address for each machine of the plant. */
export async function serve({ addresses }) {
  return startDaemon('dnsmasq', ['/usr/sbin/dnsmasq', '--keep-in-foreground', '--conf-file=/dev/null',
    '--no-resolv', '--no-hosts', '--no-daemon', '--pid-file=', `--port=${kPort}`, '--bind-interfaces',
    ...addresses.map((address) => `--listen-address=${address}`),
    `--synth-domain=${kDomain},192.0.2.0/24,unit-`, `--local=/${kDomain}/`],
  { kind: 'udp', port: kPort });
}

const look = (words) => async ({ address, rounds, timeoutMs }) => {
  const notes = { request: 'a run of dig', repeated: 0 };
  const requestMs = await timed(rounds, async (index) => {
    const name = nameOf(index);
    const answer = await ask(['dig', `@${address}`, '+short', `+tries=${kTries}`,
      `+time=${Math.max(1, Math.floor(timeoutMs / kTries / 1000))}`, ...words, name, 'A'],
    { timeoutMs: timeoutMs + 2000 });
    // dig prints its unanswered tries before the answer.
    const lines = answer.trim().split('\n');
    notes.repeated += lines.filter((line) => line.startsWith(';')).length;
    mustBe(`DNS ${name}`, lines.filter((line) => !line.startsWith(';')).join(' '), addressOf(index));
  });
  return { requestMs, notes };
};

export const use = look(['+notcp']);
export const variants = [{ title: 'DNS by TCP', use: look(['+tcp']) }];
