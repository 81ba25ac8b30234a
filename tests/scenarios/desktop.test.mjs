// 桌面: the service opens a session, RustDesk starts with the device's ID, and the password is typed into it.
import assert from 'node:assert/strict';
import { readdir, readFile } from 'node:fs/promises';
import path from 'node:path';

import { waitUntil } from '../../lab/harness/program.mjs';
import { kProgramFiles, opensRustDesk, staysUntouched } from './desktop.mjs';
import { logsAfter, scenario } from './scenario.mjs';

const kFile = `${kProgramFiles}\\rustdesk.exe`;
const kId = '987 654 321';
const kPassword = '口令-春天\'7 😀 a"b\\c';
const kElsewhere = '别的内容';
/** Ctrl+V and Enter, each key as a separate event. */
const kPasteAndEnter = ['down 17', 'down 86', 'up 86', 'up 17', 'down 13', 'up 13'];
/** The program's window, with room for another beside it. */
const kScreen = { width: 1720, height: 960 };
const kBesideProgram = 1250;
const kBeforeEnterMs = 100;  // nominally 120
const kDecoyLifeMs = 170_000;

const kPump = {
  deviceSecret: 'KEY-"7"\\F', deviceNumber: '2 号 泵站/A~b', deviceName: '二号泵站', sharedNetworks: [],
};
const kRequestPath = '/api/devices/2%20%E5%8F%B7%20%E6%B3%B5%E7%AB%99%2FA~b/remote-desktop/session';

/**
 * Windows that are not RustDesk's main window: another program's, which has the keyboard; a hidden one;
 * and an owned one. The latter two have the title that is looked for.
 */
async function decoys(lab) {
  const plan = { left: kBesideProgram, lifeMs: kDecoyLifeMs };
  return {
    hidden: await lab.desktop.startWindow('hidden decoy', { ...plan, title: kId, showAfterMs: kDecoyLifeMs }, { event: 'started' }),
    owned: await lab.desktop.startWindow('owned decoy', { ...plan, title: `${kId} RustDesk`, owned: true }),
    other: await lab.desktop.startWindow('other decoy', { ...plan, title: 'Rust' }),
  };
}

/** Clicks into the field of the window titled `title` and types a letter there. */
async function typeInto(lab, window, title) {
  const { x, y, width } = await waitUntil('the window', () => lab.display.clientArea(title));
  await lab.display.click(x + width / 2, y + 60);
  await lab.display.type('x');
  await waitUntil('the letter', async () => (await window.events({ event: 'up' })).length > 0);
}

async function requestIsExact(lab) {
  const requests = await lab.service.requests({ pathPrefix: '/api/devices/2' });
  const { engineerId } = await lab.prefix.readSettings();
  assert.match(engineerId, /^ENG-[1-9][0-9]{7}$/);
  assert.deepEqual(requests.map(({ method, url, body }) => ({ method, url, body })), [{
    method: 'POST', url: kRequestPath,
    body: `{"deviceNumber":"2 号 泵站/A~b","deviceSecret":"KEY-\\"7\\"\\\\F","engineerId":"${engineerId}"}`,
  }]);
  assert.match(requests[0].headers['content-type'], /^application\/json\b/);
}

/** Everything that this run leaves, except the stand-in's own record. */
async function tellsNobody(lab, program, password) {
  const files = (await readdir(lab.artifacts, { withFileTypes: true })).filter((entry) => entry.isFile())
    .map(({ name }) => path.join(lab.artifacts, name));
  for (const file of [...files, await program.logFile(), lab.prefix.settingsFile]) {
    assert.equal((await readFile(file)).includes(password), false, `${file} holds the password`);
  }
}

/** The decoys received only the typed letter. */
async function areUntouched({ hidden, owned, other }) {
  const happened = async (window) => (await window.events()).map(({ event }) => event);
  assert.deepEqual(await happened(other), ['started', 'shown', 'down', 'char', 'up']);
  assert.deepEqual(await happened(owned), ['started', 'shown']);
  assert.deepEqual(await happened(hidden), ['started']);
}

async function pastesPastDecoys(lab, program, { other }) {
  await lab.service.setDesktop({ rustDeskId: kId, accessPassword: kPassword });
  await lab.rustDesk.plan({ firstTitle: '正在启动', titleAfterMs: 5000, title: `远程 ${kId} 号`, lifeMs: kDecoyLifeMs });
  const { pid, commandLine } = await opensRustDesk(lab, program, `远程桌面已打开：${kId}，访问密码已复制。`,
    () => program.pointAndClick('#c-desktop'));
  assert.equal(commandLine, `"${kFile}" "--connect" "${kId}"`);
  await lab.rustDesk.happened(pid, 'shown');
  assert.equal(await lab.desktop.clipboard.read(), kPassword);
  await lab.desktop.clipboard.write(kElsewhere);  // the engineer copies something else meanwhile
  await typeInto(lab, other, 'Rust');

  const enter = await lab.rustDesk.happened(pid, 'enter');
  const paste = await lab.rustDesk.happened(pid, 'paste');
  assert.equal(enter.field, kPassword);
  assert.ok(enter.atMs - paste.atMs >= kBeforeEnterMs, `${enter.atMs - paste.atMs} ms between paste and Enter`);
  await waitUntil('the last key', async () => (await lab.rustDesk.keys(pid)).length >= kPasteAndEnter.length);
  assert.deepEqual(await lab.rustDesk.keys(pid), kPasteAndEnter);
  assert.equal(await lab.desktop.clipboard.read(), kPassword);
  await lab.rustDesk.end(pid);
}

/** Opens RustDesk with `desktop` granted; its window is titled "RustDesk". */
async function opens(lab, program, desktop, line) {
  await lab.service.setDesktop(desktop);
  await lab.rustDesk.plan({ title: 'rUSTdESK' });
  return opensRustDesk(lab, program, line);
}

async function withoutClipboardNothingIsPasted(lab, program) {
  const letGo = await lab.desktop.clipboard.hold(lab.processes);
  const start = await opens(lab, program, { rustDeskId: '12"34', accessPassword: kPassword },
    '远程桌面已打开：12"34，访问密码复制失败，请手动复制。');
  await staysUntouched(lab, start);
  assert.equal(start.commandLine, `"${kFile}" "--connect" "12"34"`, 'a quote is handed on as it is');
  await letGo();
  await lab.rustDesk.end(start.pid);
}

async function withoutPasswordNothingIsCopied(lab, program) {
  await lab.desktop.clipboard.write(kElsewhere);
  for (const accessPassword of ['', undefined, 42]) {
    const start = await opens(lab, program, { rustDeskId: '111', accessPassword }, '远程桌面已打开：111。');
    if (accessPassword === '') await staysUntouched(lab, start);
    await lab.rustDesk.end(start.pid);
  }
  assert.equal(await lab.desktop.clipboard.read(), kElsewhere);
}

async function withoutIdAnyRustDeskIsTheOne(lab, program) {
  for (const rustDeskId of ['', 5]) {
    const { pid, commandLine } = await opens(lab, program, { rustDeskId, accessPassword: 'second-9' },
      '远程桌面已打开：，访问密码已复制。');
    assert.equal(commandLine, `"${kFile}"`);
    assert.equal((await lab.rustDesk.happened(pid, 'enter')).field, 'second-9');
    await lab.rustDesk.end(pid);
  }
  for (const nothing of [null, '123', [kId]]) {
    const { pid, commandLine } = await opens(lab, program, nothing, '远程桌面已打开：。');
    assert.equal(commandLine, `"${kFile}"`);
    await lab.rustDesk.end(pid);
  }
}

scenario('桌面 starts RustDesk with the device and types the password into its window alone',
  { settings: { deviceSecret: '' }, size: kScreen }, async (lab, program) => {
    await lab.rustDesk.install(kFile);
    await lab.service.setDevices([kPump]);
    await program.type('#c-secret', kPump.deviceSecret);
    await logsAfter(program, `已获取现场端 ${kPump.deviceNumber} 的共享网段。`, () => program.click('#c-fetch'));

    const windows = await decoys(lab);
    await pastesPastDecoys(lab, program, windows);
    await areUntouched(windows);
    await requestIsExact(lab);
    assert.equal((await lab.prefix.readSettings()).rustDeskPath, kFile);
    await withoutClipboardNothingIsPasted(lab, program);
    await withoutPasswordNothingIsCopied(lab, program);
    await withoutIdAnyRustDeskIsTheOne(lab, program);
    await areUntouched(windows);
    for (const password of [kPassword, '春天', 'second-9']) await tellsNobody(lab, program, password);
  });

scenario("of two windows with its title, RustDesk's own gets the password, even below a stranger's",
  { settings: { deviceNumber: kPump.deviceNumber }, size: kScreen }, async (lab, program) => {
    await lab.rustDesk.install(kFile);
    const plan = { left: kBesideProgram, lifeMs: kDecoyLifeMs };
    const own = await lab.desktop.startWindow('open RustDesk', { ...plan, title: 'RustDesk' });
    const stranger = await lab.desktop.startWindow('browser', { ...plan, title: `${kId} - 搜索` }, { file: 'browser.exe' });
    await lab.service.setDesktop({ rustDeskId: kId, accessPassword: kPassword });
    await lab.rustDesk.plan({ showAfterMs: kDecoyLifeMs });
    await opensRustDesk(lab, program, `远程桌面已打开：${kId}，访问密码已复制。`);

    const [{ pid }] = await own.events({ event: 'started' });
    assert.equal((await own.happened(pid, 'enter')).field, kPassword);
    assert.deepEqual((await stranger.events()).map(({ event }) => event), ['started', 'shown']);
  });
