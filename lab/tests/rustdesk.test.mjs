// RustDesk's stand-in and the clipboard helper under Wine: their records and their behaviour.
import assert from 'node:assert/strict';
import { mkdtemp, rm, stat } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, afterEach, before, describe, it } from 'node:test';
import { setTimeout as sleep } from 'node:timers/promises';

import { Clipboard } from '../harness/desktop.mjs';
import { Display } from '../harness/display.mjs';
import { kBuild, kLabSuffix } from '../harness/paths.mjs';
import { Processes, run, runOrFail } from '../harness/processes.mjs';
import { waitUntil } from '../harness/program.mjs';
import { forgetRustDesk, RustDesk } from '../standins/rustdesk/rustdesk.mjs';
import { WinePrefix } from '../harness/wine.mjs';

const kPassword = '口令 春天\'七 😀 a"b';
const kExitMs = 10_000;

describe('the stand-in for RustDesk', () => {
  const processes = new Processes();
  const prefix = new WinePrefix(path.join(kBuild, `lab-unit${kLabSuffix}/prefix`));
  const display = new Display();
  let folder;
  let options;
  let clipboard;
  let rustDesk;
  let file;

  before(async () => {
    folder = await mkdtemp(path.join(tmpdir(), 'velmarine-rustdesk-'));
    file = path.join(folder, '程序/rustdesk.exe');
    await prefix.ensure();
    await display.start(processes);
    options = { env: { ...prefix.env, DISPLAY: display.name } };
    clipboard = new Clipboard(prefix, options);
    rustDesk = new RustDesk(prefix, folder, options);
    await rustDesk.putFile(file);
    await forgetRustDesk(prefix);
  });
  after(async () => {
    await forgetRustDesk(prefix);
    await prefix.stopServer();
    await processes.stopAll();
    await rm(folder, { recursive: true, force: true });
  });
  afterEach(() => rm(path.join(folder, 'record.jsonl'), { force: true }));

  /** Starts it with `args` and waits for its window; `child` is the Linux process, `pid` Windows' id. */
  async function start(plan = {}, args = []) {
    await rustDesk.plan(plan);
    const child = await processes.start('rustdesk', prefix.command(prefix.windowsPath(file), args),
      { env: { ...options.env, ...rustDesk.env } });
    const { pid } = await rustDesk.started(1);
    return { child, pid };
  }

  async function shown(plan, args) {
    const started = await start(plan, args);
    await rustDesk.happened(started.pid, 'shown');
    await waitUntil('the window', () => display.clientArea(plan?.title ?? 'RustDesk'));
    await sleep(300);  // until it has the keyboard focus
    return started;
  }

  it('is larger than an error page and records its file and its raw command line', async () => {
    assert.equal((await stat(file)).size, 1_048_577);
    const { pid, child } = await start({}, ['--connect', '12 34']);
    const { commandLine, file: told } = await rustDesk.started(1);
    assert.equal(told, prefix.windowsPath(file));
    assert.match(commandLine, / --connect "12 34"$/);
    await rustDesk.end(pid);
    assert.notEqual(await processes.waitForExit(child, kExitMs), 'running');
  });

  it('records keys, typed characters, pasted text, and Enter with the field\'s content', async () => {
    const { child, pid } = await shown();
    await display.type('ab');
    await clipboard.write(kPassword);
    await display.key('ctrl+v');
    await rustDesk.happened(pid, 'paste');
    await display.key('Return');
    assert.equal((await rustDesk.happened(pid, 'enter')).field, `ab${kPassword}`);
    assert.equal((await rustDesk.events({ pid, event: 'paste' }))[0].field, `ab${kPassword}`);
    assert.deepEqual((await rustDesk.events({ pid, event: 'char' })).map(({ text }) => text), ['a', 'b']);
    await waitUntil('Enter let go', async () => (await rustDesk.keys(pid)).at(-1) === 'up 13');
    assert.deepEqual(await rustDesk.keys(pid), ['down 65', 'up 65', 'down 66', 'up 66',
      'down 17', 'down 86', 'up 17', 'up 86', 'down 13', 'up 13']);
    await processes.stop(child);
  });

  it('shows its window and sets its title by the plan, and ends by itself', async () => {
    const { child, pid } = await start({
      title: '123 远程 - RustDesk', firstTitle: '等一下', showAfterMs: 300, titleAfterMs: 800, lifeMs: 1600,
    });
    const started = await rustDesk.started(1);
    const first = await rustDesk.happened(pid, 'shown');
    assert.equal(first.title, '等一下');
    assert.ok(first.atMs - started.atMs >= 250, JSON.stringify(first));
    const titled = await rustDesk.happened(pid, 'title');
    assert.equal(titled.title, '123 远程 - RustDesk');
    assert.ok(titled.atMs - started.atMs >= 750, JSON.stringify(titled));
    assert.equal(await processes.waitForExit(child, kExitMs), 0);
  });

  it('can be owned by another window, like a dialog', async () => {
    const { child } = await shown({ title: '123456789', owned: true });
    assert.ok(await display.clientArea('所有者'));
    await processes.stop(child);
  });

  it('leaves nothing after forget()', async () => {
    const before = Object.keys(await rustDesk.configFiles());
    await rustDesk.addDriveD(path.join(folder, 'd'));
    for (const place of ['C:\\Program Files', 'C:\\Program Files (x86)', 'D:\\Program Files']) {
      await rustDesk.install(`${place}\\RustDesk\\rustdesk.exe`);
      assert.equal((await run(['test', '-f', prefix.unixPath(`${place}\\RustDesk\\rustdesk.exe`)])).code, 0);
    }
    await rustDesk.addUser('另一个');
    for (const config of Object.values(await rustDesk.configFiles())) {
      await runOrFail(['mkdir', '-p', config]);
    }
    await forgetRustDesk(prefix);
    assert.deepEqual(Object.keys(await rustDesk.configFiles()), before);
    const { stdout } = await runOrFail(['find', prefix.folder, '-iname', '*rustdesk*']);
    assert.equal(stdout, '');
  });

  it('shares the clipboard with a helper that reads it, fills it and holds it open', async () => {
    await clipboard.write(kPassword);
    assert.equal(await clipboard.read(), kPassword);
    const letGo = await clipboard.hold(processes);
    await assert.rejects(clipboard.write('another'));
    await letGo();
    assert.equal(await clipboard.read(), kPassword);
  });
});
