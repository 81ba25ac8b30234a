// Registers the stand-in as the installed browser runtime of a Wine prefix.
// Usage: WINEPREFIX=... node install.mjs VERSION_FOLDER
import { execFile } from 'node:child_process';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

/** The key in which the loader looks first (32-bit view). */
export const kRuntimeKey = 'HKLM\\Software\\Microsoft\\EdgeUpdate\\ClientState\\' +
  '{F3017226-FE2A-4295-8BDF-00C3A9A7E4C5}';
const kWine = '/usr/lib/wine/wine64';

/** The last part of `folder` is the version; `env` names the prefix (WINEPREFIX). */
export async function installRuntime(folder, env = process.env) {
  const windowsPath = `Z:${path.resolve(folder).replaceAll('/', '\\')}`;
  await promisify(execFile)(kWine,
    ['reg.exe', 'add', kRuntimeKey, '/v', 'EBWebView', '/d', windowsPath, '/f', '/reg:32'],
    { env: { ...process.env, ...env } });
}

if (process.argv[1] === fileURLToPath(import.meta.url)) await installRuntime(process.argv[2]);
