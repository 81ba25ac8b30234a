// FTP through vsftpd, and curl or lftp. Each file goes over a connection of its own, whose address and port one side
// tells the other inside the control connection: with EPSV the port alone, with PASV and PORT an address, too.
import { chmod, mkdir, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { kTunnelAddress } from '../harness/network.mjs';
import { startDaemon } from './support/daemons.mjs';
import { curl, exchangeFiles, lftp, putGiven } from './support/files.mjs';

export const title = 'FTP, passive (EPSV)';

const kPort = 21;
const kBytes = 65_536;
const kUpload = 'upload';

// It refuses a PORT command that names another address than the control connection comes from, as careful
// servers do (its default), and opens active data connections from port 20.
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

/** One server for all addresses; what it says about itself is the address it was reached at. */
export async function serve({ folder }) {
  const root = path.join(folder, 'ftp');
  const empty = path.join(folder, 'ftp-empty');
  const file = path.join(folder, 'vsftpd.conf');
  await chmod(folder, 0o711);  // the server reads as a user of its own
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

/** A tool that opens data connections to the address that the server's answer to PASV names. */
const usePasv = (options) => withCurl(options, ['--disable-epsv', options.setting ? kDoNotBelieve : kBelieve]);

/** The server opens the data connections, to the address that the tool names; `more` are lftp's settings. */
function useActive(options, more) {
  const { address, folder, timeoutMs } = options;
  return exchange(options, lftp(address, { 'ftp:passive-mode': 'no', ...more }, folder, timeoutMs));
}

/** The tool names the address of its own network card, as it does unless told otherwise. */
const useActiveAsIs = (options) => useActive(options, {});

/** The tool names the address that the engineer has on site, `tunnelAddress`. */
const useActiveNamed = (options) =>
  useActive(options, { 'ftp:port-ipv4': options.tunnelAddress ?? kTunnelAddress });

export const variants = [
  { title: 'FTP, passive (PASV)', use: usePasv, settingNeeded: kDoNotBelieve },
  { title: 'FTP, active', use: useActiveAsIs },
  { title: 'FTP, active, naming the address in the tunnel', use: useActiveNamed },
];
