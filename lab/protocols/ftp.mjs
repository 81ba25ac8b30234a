// FTP through vsftpd, and curl or lftp. Each file uses its own connection, whose address and port are announced inside
// the control connection: with EPSV only the port, with PASV and PORT also an address.
import { chmod, mkdir, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { kTunnelAddress } from '../harness/network.mjs';
import { startDaemon } from './support/daemons.mjs';
import { curl, exchangeFiles, lftp, putGiven } from './support/files.mjs';

export const title = 'FTP, passive (EPSV)';

const kPort = 21;
const kBytes = 65_536;
const kUpload = 'upload';

// By default vsftpd refuses a PORT command with an address other than the control connection's, as careful servers
// do, and it opens active data connections from port 20.
const configuration = (root, empty) => `
listen=YES
listen_port=${kPort}
background=NO
anonymous_enable=YES
local_enable=NO
anon_root=${root}
write_enable=YES
anon_upload_enable=YES
anon_other_write_enable=YES
anon_world_readable_only=NO
no_anon_password=YES
connect_from_port_20=YES
secure_chroot_dir=${empty}
seccomp_sandbox=NO
xferlog_enable=NO
`;

/** One server for all addresses; it announces the address at which it was reached. */
export async function serve({ folder }) {
  const root = path.join(folder, 'ftp');
  const empty = path.join(folder, 'ftp-empty');
  const file = path.join(folder, 'vsftpd.conf');
  await chmod(folder, 0o711);  // the server reads under its own user
  await mkdir(path.join(root, kUpload), { recursive: true });
  await chmod(path.join(root, kUpload), 0o777);
  await mkdir(empty, { recursive: true });
  await putGiven(root, kBytes);
  await writeFile(file, configuration(root, empty));
  return startDaemon('vsftpd', ['/usr/sbin/vsftpd', file], { kind: 'tcp', port: kPort });
}

const exchange = async ({ folder, rounds }, tool) => ({
  requestMs: await exchangeFiles({ tool, upload: kUpload, bytes: kBytes, folder, rounds }),
  notes: { request: `a connection of its own and a file of ${kBytes} bytes` },
});

const withCurl = (options, words) =>
  exchange(options, curl(`ftp://${options.address}`, words, options.timeoutMs));

export const use = (options) => withCurl(options, []);

const kBelieve = '--no-ftp-skip-pasv-ip';
const kDoNotBelieve = '--ftp-skip-pasv-ip';  // curl's default; other tools have it as a setting

/** A tool that opens data connections to the address in the server's answer to PASV. */
const usePasv = (options) => withCurl(options, ['--disable-epsv', options.setting ? kDoNotBelieve : kBelieve]);

/** The server opens data connections to the address announced by the tool; `more` are lftp's settings. */
function useActive(options, more) {
  const { address, folder, timeoutMs } = options;
  return exchange(options, lftp(address, { 'ftp:passive-mode': 'no', ...more }, folder, timeoutMs));
}

/** The tool announces the address of its own network card, which is its default. */
const useActiveAsIs = (options) => useActive(options, {});

/** The tool announces the engineer's address on site, `tunnelAddress`. */
const useActiveNamed = (options) =>
  useActive(options, { 'ftp:port-ipv4': options.tunnelAddress ?? kTunnelAddress });

export const variants = [
  { title: 'FTP, passive (PASV)', use: usePasv, settingNeeded: kDoNotBelieve },
  { title: 'FTP, active', use: useActiveAsIs },
  { title: 'FTP, active, naming the address in the tunnel', use: useActiveNamed },
];
