// File transfer: the files exchanged with a server on site, and the tools curl and lftp.
import { randomUUID } from 'node:crypto';
import { chmod, readFile, rm, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { ask } from './daemons.mjs';
import { content, mustHold, timed } from './requests.mjs';

/** The read-only file on site. */
export const kGiven = 'firmware.bin';
const kGivenNumber = 1;
const kGraceMs = 2000;  // for a tool to report its own time-out

/** Writes the read-only file into `folder`, readable for everyone. */
export async function putGiven(folder, bytes) {
  const file = path.join(folder, kGiven);
  await writeFile(file, content(bytes, kGivenNumber));
  await chmod(file, 0o666);
}

/** curl as a tool for the server at `url`, one run per file; `words` are further options. */
export function curl(url, words, timeoutMs) {
  const run = (more) => ask(
    ['curl', '-q', '-sS', '--noproxy', '*', '--max-time', String(timeoutMs / 1000), ...words, ...more],
    { timeoutMs: timeoutMs + kGraceMs });
  return {
    send: (source, name) => run(['-T', source, `${url}/${name}`]),
    fetch: (name, target) => run(['-o', target, `${url}/${name}`]),
  };
}

/** lftp, likewise, for the FTP server at `address`; `settings` are its own, {name: value}. */
export function lftp(address, settings, folder, timeoutMs) {
  const all = {
    'net:max-retries': 1, 'net:timeout': Math.ceil(timeoutMs / 1000), 'net:persist-retries': 0,
    'cmd:fail-exit': 'yes', 'xfer:log': 'no', 'xfer:clobber': 'yes', ...settings,
  };
  const words = Object.entries(all).map(([name, value]) => `set ${name} ${value};`).join(' ');
  const run = (command) => ask(
    ['lftp', '--norc', '-c', `${words} open ftp://${address}; ${command}`],
    { timeoutMs: timeoutMs + kGraceMs, env: { LFTP_HOME: folder, HOME: folder } });
  return {
    send: (source, name) => run(`put ${source} -o ${name}`),
    fetch: (name, target) => run(`get ${name} -o ${target}`),
  };
}

async function fetchAndCompare(tool, name, wanted, folder) {
  const target = path.join(folder, `got-${randomUUID()}`);
  try {
    await tool.fetch(name, target);
    mustHold(name, await readFile(target), wanted);
  } finally {
    await rm(target, { force: true });
  }
}

/**
 * In turn: sends a file into the server's folder `upload`, fetches it back, and fetches the given one. Returns each
 * time.
 */
export async function exchangeFiles({ tool, upload, bytes, folder, rounds }) {
  const name = `${randomUUID()}.bin`;
  const source = path.join(folder, name);
  const onSite = path.posix.join(upload, name);
  let sent;
  try {
    return await timed(rounds, async (index) => {
      if (index % 3 === 0) {
        sent = content(bytes, 100 + index);
        await writeFile(source, sent);
        await tool.send(source, onSite);
      }
      if (index % 3 === 1) await fetchAndCompare(tool, onSite, sent, folder);
      if (index % 3 === 2) await fetchAndCompare(tool, kGiven, content(bytes, kGivenNumber), folder);
    });
  } finally {
    await rm(source, { force: true });
  }
}
