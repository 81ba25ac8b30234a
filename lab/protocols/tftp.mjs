// TFTP through tftpd-hpa and curl. The server answers the request to port 69 from another port, new for each
// file; each block waits for the last one's acknowledgement.
import { chmod, mkdir } from 'node:fs/promises';
import path from 'node:path';

import { startDaemon } from './support/daemons.mjs';
import { curl, exchangeFiles, putGiven } from './support/files.mjs';
import { startEach } from './support/sharing.mjs';

export const title = 'TFTP';

const kPort = 69;
const kBytes = 8192;

/** One server per address: a single one would always answer from the first address. */
export async function serve({ addresses, folder }) {
  const root = path.join(folder, 'tftp');
  await mkdir(root, { recursive: true });
  await chmod(root, 0o777);
  await putGiven(root, kBytes);
  const start = (address) => startDaemon('in.tftpd', ['/usr/sbin/in.tftpd', '--foreground', '--create',
    '--secure', '--user', 'root', '--address', `${address}:${kPort}`, root],
  { kind: 'udp', port: kPort, address });
  return startEach(addresses, start, (end) => end());
}

export async function use({ address, folder, rounds, timeoutMs }) {
  const requestMs = await exchangeFiles({
    tool: curl(`tftp://${address}`, [], timeoutMs), upload: '', bytes: kBytes, folder, rounds,
  });
  return { requestMs, notes: { request: `a file of ${kBytes} bytes in blocks of 512` } };
}
