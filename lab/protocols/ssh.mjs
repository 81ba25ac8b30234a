// SSH through OpenSSH on both sides: a session whose lines are echoed, and files by scp.
import { spawn } from 'node:child_process';
import { createECDH, createHash, createPrivateKey, randomUUID } from 'node:crypto';
import { once } from 'node:events';
import { chmod, mkdir, readFile, rm, writeFile } from 'node:fs/promises';
import { userInfo } from 'node:os';
import path from 'node:path';
import { createInterface } from 'node:readline';

import { ask, startDaemon } from './support/daemons.mjs';
import { kGiven, putGiven } from './support/files.mjs';
import { content, mustBe, mustHold, sha256, timed, within } from './support/requests.mjs';

export const title = 'SSH';

const kPort = 22;
const kMegabyte = 1 << 20;
const kGivenBytes = kMegabyte;
const kCurve = 'prime256v1';
const kFolderVariable = 'SITE_FOLDER';

/** The lab's own key, derived from fixed bytes so that both sides have it; it opens nothing else. */
function engineersKey() {
  const pair = createECDH(kCurve);
  pair.setPrivateKey(createHash('sha256').update('the key of the engineer in the lab').digest());
  const point = pair.getPublicKey();
  const [d, x, y] = [pair.getPrivateKey(), point.subarray(1, 33), point.subarray(33)]
    .map((bytes) => bytes.toString('base64url'));
  const key = createPrivateKey({ format: 'jwk', key: { kty: 'EC', crv: 'P-256', d, x, y } });
  return key.export({ format: 'pem', type: 'sec1' });
}

async function writeKey(file) {
  await writeFile(file, engineersKey(), { mode: 0o600 });
  return file;
}

// ---- on site

const configuration = (own, addresses) => `
${addresses.map((address) => `ListenAddress ${address}:${kPort}`).join('\n')}
HostKey ${own}/host_key
PidFile none
AuthorizedKeysFile ${own}/authorized_keys
StrictModes no
PasswordAuthentication no
KbdInteractiveAuthentication no
PermitRootLogin prohibit-password
UsePAM no
UseDNS no
PrintMotd no
PrintLastLog no
MaxStartups 100
SetEnv ${kFolderVariable}=${own}/files
Subsystem sftp internal-sftp
`;

/** One server for all addresses, with its own host key; only this process's user may log in. */
export async function serve({ addresses, folder }) {
  const own = path.join(folder, 'ssh');
  await mkdir(path.join(own, 'files'), { recursive: true });
  await chmod(folder, 0o711);
  await mkdir('/run/sshd', { recursive: true, mode: 0o755 });  // sshd's privilege separation needs it
  await putGiven(path.join(own, 'files'), kGivenBytes);
  await rm(path.join(own, 'host_key'), { force: true });
  await ask(['ssh-keygen', '-q', '-t', 'ed25519', '-N', '', '-f', path.join(own, 'host_key')]);
  const key = await writeKey(path.join(own, 'engineers_key'));
  await writeFile(path.join(own, 'authorized_keys'), await ask(['ssh-keygen', '-y', '-f', key]));
  await writeFile(path.join(own, 'sshd_config'), configuration(own, addresses));
  return startDaemon('sshd', ['/usr/sbin/sshd', '-D', '-e', '-f', path.join(own, 'sshd_config')],
    { kind: 'tcp', port: kPort });
}

/**
 * Starts a program of the engineer's that is used line by line. next() resolves with its next line, or fails with its error
 * output after its end; end() closes its input and waits for its exit; kill() forces it.
 */
function openLines(command) {
  const child = spawn(command[0], command.slice(1), { stdio: 'pipe' });
  let errors = '';
  child.stderr.on('data', (bytes) => { errors += bytes; });
  child.stdin.on('error', () => {});  // next() reports its end
  child.on('error', (error) => { errors += error.message; });
  const ended = once(child, 'close').catch(() => []);
  const lines = createInterface({ input: child.stdout })[Symbol.asyncIterator]();
  return {
    send: (line) => child.stdin.write(`${line}\n`),
    async next() {
      const { value, done } = await lines.next();
      if (!done) return value;
      await ended;
      throw new Error(`${command[0]} has ended: ${errors.trim().slice(-300)}`);
    },
    async end(timeoutMs) {
      child.stdin.end();
      const [code] = await within(timeoutMs, `the end of ${command[0]}`, ended);
      if (code !== 0) throw new Error(`${command[0]} ended with ${code}: ${errors.trim().slice(-300)}`);
    },
    kill: () => child.kill('SIGKILL'),
  };
}

// ---- at the engineer's end

async function options(own, timeoutMs) {
  await mkdir(own, { recursive: true });
  const key = await writeKey(path.join(own, 'key'));
  return ['-F', 'none', '-i', key, '-o', 'IdentitiesOnly=yes', '-o', 'IdentityAgent=none', '-o', 'BatchMode=yes',
    '-o', 'StrictHostKeyChecking=accept-new', '-o', `UserKnownHostsFile=${own}/known_hosts`,
    '-o', 'GlobalKnownHostsFile=none', '-o', 'LogLevel=ERROR', '-o', 'ServerAliveInterval=15',
    '-o', `ConnectTimeout=${Math.ceil(timeoutMs / 1000)}`];
}

/** A session whose lines are echoed: {requestMs, connectMs, site: the folder for files}. */
async function talk(words, host, { rounds, timeoutMs }) {
  const session = openLines(['ssh', ...words, host, `echo "$${kFolderVariable}"; exec cat`]);
  try {
    const started = performance.now();
    const site = await within(2 * timeoutMs, 'SSH log-in', session.next());
    const connectMs = performance.now() - started;
    const requestMs = await timed(rounds, async (index) => {
      const line = `${index} ${sha256(content(32, index))}`;
      session.send(line);
      mustBe('SSH line', await within(timeoutMs, 'SSH line', session.next()), line);
    });
    await session.end(timeoutMs);
    return { requestMs, connectMs, site };
  } finally {
    session.kill();
  }
}

/** Copies `bytes` bytes to the site, checks their hash there, and copies a file back; returns seconds. */
async function copy(words, host, { site, bytes, own, limitMs }) {
  const name = randomUUID();
  const [sent, got] = [path.join(own, name), path.join(own, `got-${name}`)];
  const data = content(bytes, 7);
  await writeFile(sent, data);
  const started = performance.now();
  await ask(['scp', '-q', ...words, sent, `${host}:${site}/${name}`], { timeoutMs: limitMs });
  const seconds = (performance.now() - started) / 1000;
  const sum = await ask(['ssh', ...words, host, `sha256sum < ${site}/${name} && rm ${site}/${name}`],
    { timeoutMs: limitMs });
  mustBe('SSH sum of the file', sum.split(' ')[0], sha256(data));
  await ask(['scp', '-q', ...words, `${host}:${site}/${kGiven}`, got], { timeoutMs: limitMs });
  mustHold(kGiven, await readFile(got), content(kGivenBytes, 1));
  return seconds;
}

/** `megabytes` is the size of the file for scp, with a minute for each megabyte. 0: only lines. */
export async function use({ address, rounds, timeoutMs, folder, megabytes = 5 }) {
  const own = path.join(folder, `ssh-engineer-${randomUUID()}`);
  const words = await options(own, timeoutMs);
  const host = `${userInfo().username}@${address}`;
  try {
    const { requestMs, connectMs, site } = await talk(words, host, { rounds, timeoutMs });
    if (megabytes === 0) return { requestMs, connectMs, notes: {} };
    const bytes = megabytes * kMegabyte;
    const seconds = await copy(words, host, { site, bytes, own, limitMs: 60_000 * Math.max(1, megabytes) });
    return { requestMs, connectMs, notes: { megabytes, megabytesPerSecond: bytes / 1e6 / seconds } };
  } finally {
    await rm(own, { recursive: true, force: true });
  }
}
