// A Windows installation (a Wine prefix) for one lab: created once, cleared of the program's files before
// each run, started and ended with its own wineserver.
import { access, mkdir, readdir, readFile, rename, rm, symlink } from 'node:fs/promises';
import path from 'node:path';

import { kRuntimeKey } from '../standins/browser/install.mjs';
import { kBuild } from './paths.mjs';
import { run, runOrFail } from './processes.mjs';

export const kWine = '/usr/lib/wine/wine64';
const kWineserver = '/usr/bin/wineserver';
const kInternetSettings = 'HKCU\\Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings';

/** Created once and never run: copying it takes a quarter of the time, and concurrent labs cannot collide. */
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

  /** Creates the installation as a copy of the template, if it is missing. */
  async ensure() {
    if (await this.#isReady()) return;
    await this.#remove();
    await ensureTemplate();
    const copy = `${this.folder}.${process.pid}`;
    await mkdir(path.dirname(this.folder), { recursive: true });
    await runOrFail(['cp', '-a', '--reflink=auto', kTemplate, copy], { timeoutMs: 180_000 });
    await rename(copy, this.folder);
  }

  /** Creates the installation from scratch (about 15 s), as Windows 10. */
  async make() {
    await mkdir(path.dirname(this.folder), { recursive: true });
    await runOrFail([kWine, 'wineboot', '-i'], { env: this.env, timeoutMs: 180_000 });
    await runOrFail([kWineserver, '-w'], { env: this.env, timeoutMs: 60_000 });
    await runOrFail([kWine, 'winecfg.exe', '-v', 'win10'], { env: this.env });
    await runOrFail([kWineserver, '-w'], { env: this.env, timeoutMs: 60_000 });
    await symlink('.', path.join(this.folder, 'lab-ready'));
  }

  #isReady() { return exists(path.join(this.folder, 'lab-ready')); }

  /** Also ends a server left by an interrupted start. */
  async #remove() {
    if (!await exists(this.folder)) return;
    await run([kWineserver, '-k'], { env: this.env });
    await rm(this.folder, { recursive: true, force: true });
  }

  get roaming() { return path.join(this.user, 'AppData/Roaming/Velmarine'); }
  get local() { return path.join(this.user, 'AppData/Local/Velmarine'); }
  get temp() { return path.join(this.user, 'Temp'); }
  get settingsFile() { return path.join(this.roaming, 'Client.settings.json'); }
  /** The program's second copy of the settings. */
  get lastSettingsFile() { return path.join(this.roaming, 'Client.settings.last.json'); }
  get runtimeFolder() { return path.join(this.local, 'Runtime'); }

  /** Removes the files of earlier runs: settings, runtime folder, temporary files. */
  async forgetProgram() {
    await rm(this.roaming, { recursive: true, force: true });
    await rm(this.local, { recursive: true, force: true });
    for (const name of await readdir(this.temp).catch(() => [])) {
      await rm(path.join(this.temp, name), { recursive: true, force: true });
    }
  }

  /** The Windows path of a Linux file. */
  windowsPath(file) {
    return `Z:${path.resolve(file).replaceAll('/', '\\')}`;
  }

  /** The Linux file behind an absolute Windows path. */
  unixPath(windowsPath) {
    const [drive, ...parts] = windowsPath.split('\\');
    return path.join(this.folder, 'dosdevices', drive.toLowerCase(), ...parts);
  }

  /** Registers `versionFolder` as the browser runtime; null unregisters it. */
  async setBrowserRuntime(versionFolder, options) {
    const command = versionFolder === null
      ? ['reg.exe', 'delete', kRuntimeKey, '/f', '/reg:32']
      : ['reg.exe', 'add', kRuntimeKey, '/v', 'EBWebView', '/d', this.windowsPath(versionFolder),
        '/f', '/reg:32'];
    await run([kWine, ...command], { env: this.env, ...options });
  }

  /** The user's proxy bypass list in the registry; null if there is none. */
  async proxyOverride(options) {
    const { stdout } = await run([kWine, 'reg.exe', 'query', kInternetSettings, '/v', 'ProxyOverride'],
      { env: this.env, ...options });
    return /^ +ProxyOverride +REG_(?:EXPAND_)?SZ {4}(.*?)\r?$/m.exec(stdout)?.[1] ?? null;
  }

  /** Replaces that list by `text`; null removes the value. */
  async setProxyOverride(text, { type = 'REG_SZ', ...options } = {}) {
    const value = [kInternetSettings, '/v', 'ProxyOverride', '/f'];
    const command = text === null ? ['delete', ...value] : ['add', ...value, '/t', type, '/d', text];
    await run([kWine, 'reg.exe', ...command], { env: this.env, ...options });
  }

  /** The command line of a Windows program, pinned to one processor, where its server calls are faster. */
  command(program, args = []) {
    return ['taskset', '-c', '1', kWine, program, ...args];
  }

  /** Ends the prefix's server and everything under it. The next program starts a new one in its namespace. */
  async stopServer() {
    await run([kWineserver, '-k'], { env: this.env, timeoutMs: 20_000 });
    await run([kWineserver, '-w'], { env: this.env, timeoutMs: 30_000 });
  }

  async readSettings() {
    return JSON.parse(await readFile(this.settingsFile, 'utf8'));
  }
}

/** Creates the installation that each lab copies, if it is missing. */
export async function ensureTemplate() {
  if (await exists(kTemplate)) return;
  const made = new WinePrefix(`${kTemplate}.${process.pid}`);
  await made.make();
  await rename(made.folder, kTemplate).catch(async (error) => {
    if (!await exists(kTemplate)) throw error;
    await rm(made.folder, { recursive: true, force: true });  // another process was faster
  });
}
