// A Windows installation (a Wine prefix) for one lab: made once, emptied of the program's traces
// before each run, started and ended with the wineserver that belongs to it.
import { access, mkdir, readdir, readFile, rename, rm, symlink } from 'node:fs/promises';
import path from 'node:path';

import { kRuntimeKey } from '../standins/browser/install.mjs';
import { kBuild } from './paths.mjs';
import { run, runOrFail } from './processes.mjs';

export const kWine = '/usr/lib/wine/wine64';
const kWineserver = '/usr/bin/wineserver';
const kInternetSettings = 'HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings';

/** Made once and never run again: a copy takes a quarter of the time, and several at once do not meet. */
const kTemplate = path.join(kBuild, 'lab-template');

const exists = (file) => access(file).then(() => true, () => false);

export class WinePrefix {
  constructor(folder) {
    this.folder = folder;
    this.env = {
      WINEPREFIX: folder, WINEARCH: 'win64', WINEDEBUG: '-all',
      WINEDLLOVERRIDES: 'mscoree,mshtml,winemenubuilder.exe=', LC_ALL: 'zh_CN.UTF-8',
    };
    this.user = path.join(folder, 'drive_c/users', process.env.USER || 'root');
  }

  /** Makes the installation if it is not there, as a copy of the template. */
  async ensure() {
    if (await this.#isReady()) return;
    await this.#remove();
    await ensureTemplate();
    const copy = `${this.folder}.${process.pid}`;
    await mkdir(path.dirname(this.folder), { recursive: true });
    await runOrFail(['cp', '-a', '--reflink=auto', kTemplate, copy], { timeoutMs: 180_000 });
    await rename(copy, this.folder);
  }

  /** Makes the installation from nothing (about 15 s), as Windows 10. */
  async make() {
    await mkdir(path.dirname(this.folder), { recursive: true });
    await runOrFail([kWine, 'wineboot', '-i'], { env: this.env, timeoutMs: 180_000 });
    await runOrFail([kWineserver, '-w'], { env: this.env, timeoutMs: 60_000 });
    await runOrFail([kWine, 'winecfg.exe', '-v', 'win10'], { env: this.env });
    await runOrFail([kWineserver, '-w'], { env: this.env, timeoutMs: 60_000 });
    await symlink('.', path.join(this.folder, 'lab-ready'));
  }

  #isReady() { return exists(path.join(this.folder, 'lab-ready')); }

  /** With its server, should one be left of a start that was broken off. */
  async #remove() {
    if (!await exists(this.folder)) return;
    await run([kWineserver, '-k'], { env: this.env });
    await rm(this.folder, { recursive: true, force: true });
  }

  get roaming() { return path.join(this.user, 'AppData/Roaming/Velmarine'); }
  get local() { return path.join(this.user, 'AppData/Local/Velmarine'); }
  get temp() { return path.join(this.user, 'Temp'); }
  get settingsFile() { return path.join(this.roaming, 'Client.settings.json'); }
  /** The program's second copy of it. */
  get lastSettingsFile() { return path.join(this.roaming, 'Client.settings.last.json'); }
  get runtimeFolder() { return path.join(this.local, 'Runtime'); }

  /** Removes what an earlier run of the program left: settings, runtime folder, temporary files. */
  async forgetProgram() {
    await rm(this.roaming, { recursive: true, force: true });
    await rm(this.local, { recursive: true, force: true });
    for (const name of await readdir(this.temp).catch(() => [])) {
      await rm(path.join(this.temp, name), { recursive: true, force: true });
    }
  }

  /** The Windows path of a file of this machine. */
  windowsPath(file) {
    return `Z:${path.resolve(file).replaceAll('/', '\\')}`;
  }

  /** The file of this machine behind an absolute Windows path. */
  unixPath(windowsPath) {
    const [drive, ...parts] = windowsPath.split('\\');
    return path.join(this.folder, 'dosdevices', drive.toLowerCase(), ...parts);
  }

  /** Names `versionFolder` as the browser runtime, or no runtime at all when it is null. */
  async setBrowserRuntime(versionFolder, options) {
    const command = versionFolder === null
      ? ['reg.exe', 'delete', kRuntimeKey, '/f', '/reg:32']
      : ['reg.exe', 'add', kRuntimeKey, '/v', 'EBWebView', '/d', this.windowsPath(versionFolder),
        '/f', '/reg:32'];
    await run([kWine, ...command], { env: this.env, ...options });
  }

  /** The user's list of what does not go to the web proxy, as the registry holds it; null: none. */
  async proxyOverride(options) {
    const { stdout } = await run([kWine, 'reg.exe', 'query', kInternetSettings, '/v', 'ProxyOverride'],
      { env: this.env, ...options });
    return /^ +ProxyOverride +REG_(?:EXPAND_)?SZ {4}(.*?)\r?$/m.exec(stdout)?.[1] ?? null;
  }

  /** Puts `text` in the place of that list, or takes the value away when it is null. */
  async setProxyOverride(text, { type = 'REG_SZ', ...options } = {}) {
    const value = [kInternetSettings, '/v', 'ProxyOverride', '/f'];
    const command = text === null ? ['delete', ...value] : ['add', ...value, '/t', type, '/d', text];
    await run([kWine, 'reg.exe', ...command], { env: this.env, ...options });
  }

  /** The command line of a Windows program, on one processor: its server calls are faster there. */
  command(program, args = []) {
    return ['taskset', '-c', '1', kWine, program, ...args];
  }

  /** Ends the prefix's server and all that runs under it; a new one starts where the next program does. */
  async stopServer() {
    await run([kWineserver, '-k'], { env: this.env, timeoutMs: 20_000 });
    await run([kWineserver, '-w'], { env: this.env, timeoutMs: 30_000 });
  }

  async readSettings() {
    return JSON.parse(await readFile(this.settingsFile, 'utf8'));
  }
}

/** Makes the installation that each lab copies, if it is not there. */
export async function ensureTemplate() {
  if (await exists(kTemplate)) return;
  const made = new WinePrefix(`${kTemplate}.${process.pid}`);
  await made.make();
  await rename(made.folder, kTemplate).catch(async (error) => {
    if (!await exists(kTemplate)) throw error;
    await rm(made.folder, { recursive: true, force: true });  // somebody else was faster
  });
}
