// RustDesk's stand-in on the engineer's computer: its places, its behaviour, its record.
import { copyFile, mkdir, readdir, readFile, rm, symlink, truncate, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { kRustDesk } from '../../harness/paths.mjs';
import { run } from '../../harness/processes.mjs';
import { waitUntil } from '../../harness/program.mjs';
import { kWine } from '../../harness/wine.mjs';

/** Smaller files count as error pages; the real program is larger. */
export const kErrorPageBytes = 1_048_576;
const kConfigFile = 'AppData/Roaming/RustDesk/config/RustDesk2.toml';
const kServiceProfiles = 'drive_c/windows/ServiceProfiles';

export class RustDesk {
  #prefix;
  #options;

  /**
   * `folder` holds the plan and the record; `env` names it to the stand-in. `options` for run(), for
   * Windows commands.
   */
  constructor(prefix, folder, options) {
    this.#prefix = prefix;
    this.#options = options;
    this.folder = folder;
    this.env = { LAB_RUSTDESK: folder };
  }

  // ---- the program's file

  /** Copies the stand-in to a Windows path, padded to `bytes`. */
  async install(windowsPath, { bytes = kErrorPageBytes + 1 } = {}) {
    await this.putFile(this.#prefix.unixPath(windowsPath), { bytes });
  }

  /** The same for a Linux path. */
  async putFile(file, { bytes = kErrorPageBytes + 1 } = {}) {
    await mkdir(path.dirname(file), { recursive: true });
    await copyFile(kRustDesk, file);
    await truncate(file, bytes);
  }

  async uninstall(windowsPath) {
    await rm(path.dirname(this.#prefix.unixPath(windowsPath)), { recursive: true, force: true });
  }

  /** Adds a drive D:, a folder of this machine, until forget(). */
  async addDriveD(folder) {
    await mkdir(folder, { recursive: true });
    await symlink(folder, path.join(this.#prefix.folder, 'dosdevices/d:'));
  }

  // ---- its configuration

  /** The folder of a user, created if necessary. */
  async addUser(name) {
    await mkdir(path.join(this.#prefix.folder, 'drive_c/users', name), { recursive: true });
  }

  /** The possible folders of its configuration, by owner. */
  async configFiles() {
    const users = path.join(this.#prefix.folder, 'drive_c/users');
    const files = {};
    for (const entry of await readdir(users, { withFileTypes: true })) {
      if (entry.isDirectory()) files[entry.name] = path.join(users, entry.name, kConfigFile);
    }
    for (const name of ['LocalService', 'LocalSystem']) {
      files[name] = path.join(this.#prefix.folder, kServiceProfiles, name, kConfigFile);
    }
    return files;
  }

  // ---- its behaviour and its record

  /** Sets the next one's behaviour; see plan.h. `owned` is its shape. */
  async plan({ owned = false, ...members } = {}) {
    await mkdir(this.folder, { recursive: true });
    const lines = Object.entries({ ...members, ...(owned ? { shape: 'owned' } : {}) })
      .map(([name, value]) => `${name}=${value}\n`);
    await writeFile(path.join(this.folder, 'plan.txt'), lines.join(''));
  }

  /** All events so far: [{event, pid, atMs, ...}]; see rustdesk.cpp. */
  async events({ pid, event } = {}) {
    const text = await readFile(path.join(this.folder, 'record.jsonl'), 'utf8').catch(() => '');
    return text.split('\n').slice(0, -1).map((line) => JSON.parse(line))
      .filter((one) => (pid === undefined || one.pid === pid) && (event === undefined || one.event === event));
  }

  /** Waits until it was started `count` times in total; returns the newest start. */
  async started(count) {
    const starts = await waitUntil(`start ${count} of RustDesk`, async () => {
      const seen = await this.events({ event: 'started' });
      return seen.length >= count && seen;
    });
    return starts.at(-1);
  }

  /** Waits for an event of the process `pid` and returns it. */
  async happened(pid, event, timeoutMs) {
    return waitUntil(`${event} at RustDesk`, async () => (await this.events({ pid, event })).at(-1), timeoutMs);
  }

  /** The keys that it received: ['down 17', 'up 17', ...]. */
  async keys(pid) {
    return (await this.events({ pid })).filter(({ event }) => event === 'down' || event === 'up')
      .map(({ event, key }) => `${event} ${key}`);
  }

  /** Ends the process `pid` (Windows' id), as the task manager does. */
  async end(pid) {
    await run([kWine, 'taskkill.exe', '/f', '/pid', String(pid)], this.#options);
  }
}

/** Removes every trace of RustDesk from a Windows of the lab: programs, configuration, users, drive D:. */
export async function forgetRustDesk(prefix, { user = path.basename(prefix.user) } = {}) {
  const drive = path.join(prefix.folder, 'drive_c');
  await rm(path.join(prefix.folder, 'dosdevices/d:'), { force: true });
  for (const folder of ['Program Files', 'Program Files (x86)', path.relative(drive, path.join(prefix.user,
    'AppData/Local/Programs'))]) {
    await rm(path.join(drive, folder, 'RustDesk'), { recursive: true, force: true });
  }
  await rm(path.join(prefix.folder, kServiceProfiles), { recursive: true, force: true });
  for (const name of await readdir(path.join(drive, 'users'))) {
    if (name !== user && name !== 'Public') {
      await rm(path.join(drive, 'users', name), { recursive: true, force: true });
    } else await rm(path.join(drive, 'users', name, 'AppData/Roaming/RustDesk'), { recursive: true, force: true });
  }
}
