// 桌面 when something fails: the service refuses, RustDesk is missing or does not start, or its window appears
// late or never.
import assert from 'node:assert/strict';
import { rm, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

import { waitUntil } from '../../lab/harness/program.mjs';
import { kProgramFiles, openDesktop, opensRustDesk, savesNothing, starts } from './desktop.mjs';
import { occurrences, scenario } from './scenario.mjs';

const kFile = `${kProgramFiles}\\rustdesk.exe`;
const kFailed = '远程桌面失败：';
const kSession = '/api/devices/DEV-2041/remote-desktop/session';
const kFocusMs = 500;  // until a new window has the keyboard focus
const kOutside = 1300;  // right of the program's window
const kClosesWithinS = 5;
const kEveryAttemptMs = 900;
const kAfterLastAttemptMs = 12_000;  // the tenth is at about nine seconds
const kAfterSecondMs = 6_000;  // after a second one was opened, before the tenth attempt of the first
const kBeforeNinthAttemptMs = 7_600;  // the eighth is at 7.2 s, the ninth at 8.1 s

const says = (success, message, code = '') => ({
  path: kSession, times: 1, body: JSON.stringify({ success, code, message, data: null }),
});

/** The service's answer or fault, then the expected line. */
const kAnswers = [
  [says(false, '设备离线', 'DEVICE_OFFLINE'), `${kFailed}设备离线`],
  [says(false, ''), kFailed],
  [{ ...says(false, '没有权限'), status: 403 }, `${kFailed}没有权限`],
  [{ path: kSession, times: 1, status: 502, headers: { 'content-type': 'text/html' }, body: '<html>' }, kFailed],
  [says(false, 'Invalid JSON.'), `${kFailed}Invalid JSON.`],
  [{ path: kSession, times: 1, body: '{"success":true,' }, `${kFailed}Invalid JSON.`],
  [{ path: kSession, times: 1, cut: true }, /远程桌面失败：WinHttp\S+/],
];

async function refusalsOpenNothing(lab, program) {
  await lab.service.setReply(says(false, '第一次'));
  await openDesktop(program, `${kFailed}第一次`);  // now the file has the program's own form
  for (const [reply, line] of kAnswers) {
    await lab.service.setReply(reply);
    await savesNothing(lab, () => openDesktop(program, line));
  }
  await lab.service.stopListening();
  await savesNothing(lab, () => openDesktop(program, /远程桌面失败：WinHttp\S+/));
  await lab.service.resumeListening();
  assert.equal(await starts(lab), 0);
  const log = await program.log();
  for (const hint of ['回答里没有原因，', '中心服务的回答残缺，', '连不上中心服务。']) {
    assert.equal(occurrences(log, `提示：${hint}`), 1, log);
  }
  const said = log.split('\r\n').findIndex((line) => line.endsWith(`${kFailed}Invalid JSON.`));
  assert.doesNotMatch(log.split('\r\n')[said + 1], /提示：/, 'the service said it, and the program only later');
}

async function withoutRustDeskThereIsALine(lab, program) {
  for (const server of [undefined, {}, { windowsDownloadUrl: '' }, { windowsDownloadUrl: 5 }, 'text']) {
    await lab.service.setDesktop({ rustDeskId: '1', accessPassword: 'never-copied', server });
    await savesNothing(lab, () => openDesktop(program, '未找到 RustDesk 程序。'));
  }
  assert.equal(occurrences(await program.log(), '提示：这台电脑上没有 RustDesk，'), 1);
  assert.equal(await lab.desktop.clipboard.read(), null);
}

/** A file that is not a program: Windows shows a message, which the engineer closes with Enter. */
async function oneThatDoesNotStartIsNotLookedAt(lab, program) {
  const file = lab.prefix.unixPath(kFile);
  await lab.rustDesk.install(kFile);
  await writeFile(file, 'no program');
  await lab.service.setDesktop({ rustDeskId: '444' });
  await openDesktop(program, '远程桌面已打开：444。', async () => {
    await program.click('#c-desktop');
    await waitUntil("Windows' message", () => lab.display.clientArea('错误'));
    await sleep(kFocusMs);
    await lab.display.key('Return');
  });
  assert.equal((await lab.prefix.readSettings()).rustDeskPath, kFile);
  assert.equal(await starts(lab), 0);
  await rm(path.dirname(file), { recursive: true });
}

/** Grants a session for `id` and opens it; RustDesk's window has the ID as its title. */
async function opens(lab, program, id, plan) {
  await lab.service.setDesktop({ rustDeskId: id, accessPassword: `password-${id}` });
  await lab.rustDesk.plan({ title: `${id} 号`, ...plan });
  return opensRustDesk(lab, program, `远程桌面已打开：${id}，访问密码已复制。`);
}

/** Opens a desktop, runs `meanwhile`, closes the program's window; returns the clipboard's text afterwards. */
async function clipboardAfterClosing(lab, program, id, meanwhile) {
  const { pid } = await opens(lab, program, id, { showAfterMs: kAfterLastAttemptMs, left: kOutside });
  assert.equal(await lab.desktop.clipboard.read(), `password-${id}`);
  await meanwhile();
  const begin = performance.now();
  assert.equal(await program.closeWindow(), 0);
  const seconds = (performance.now() - begin) / 1000;
  assert.ok(seconds < kClosesWithinS, `closed after ${seconds} s`);
  await lab.rustDesk.end(pid);
  return lab.desktop.clipboard.read();
}

const happenings = async (lab, { pid }) => (await lab.rustDesk.events({ pid })).map(({ event }) => event);

scenario('桌面 explains why it cannot open a device', { settings: { deviceNumber: 'DEV-2041', engineerId: 'ENG-12345678' } },
  async (lab, program) => {
    await refusalsOpenNothing(lab, program);
    await withoutRustDeskThereIsALine(lab, program);
    await oneThatDoesNotStartIsNotLookedAt(lab, program);
    const log = await program.log();
    assert.equal(occurrences(log, 'never-copied'), 0);
  });

scenario('the end of the program removes only the password from the clipboard',
  { settings: { deviceNumber: 'DEV-2041' } }, async (lab, program) => {
    await lab.rustDesk.install(kFile);
    assert.equal(await clipboardAfterClosing(lab, program, '555', () => {}), null);
    const next = await lab.startProgram();
    const left = await clipboardAfterClosing(lab, next, '666', () => lab.desktop.clipboard.write('别的内容'));
    assert.equal(left, '别的内容');
  });

scenario('a late RustDesk window is found; one that is too late or followed by a newer one is left alone',
  { settings: { deviceNumber: 'DEV-2041' } }, async (lab, program) => {
    await lab.rustDesk.install(kFile);
    // The second one ends the wait for the first, whose window would still be in time.
    const late = await opens(lab, program, '111', { showAfterMs: kAfterSecondMs });
    const prompt = await opens(lab, program, '222');
    const { field } = await lab.rustDesk.happened(prompt.pid, 'enter');
    assert.equal(field, 'password-222');
    await lab.rustDesk.happened(late.pid, 'shown');
    await sleep(2 * kEveryAttemptMs);
    assert.deepEqual(await happenings(lab, late), ['started', 'shown']);
    assert.ok(late.atMs + kAfterSecondMs > prompt.atMs, 'the second was opened before the first window showed');
    await lab.rustDesk.end(late.pid);

    const ninth = await opens(lab, program, '333', { showAfterMs: kBeforeNinthAttemptMs });
    const pasted = await lab.rustDesk.happened(ninth.pid, 'enter');
    assert.equal(pasted.field, 'password-333');
    const seconds = (pasted.atMs - ninth.atMs) / 1000;
    assert.ok(seconds > 9 * 0.9 - 0.2, `pasted after ${seconds} s`);
    assert.equal((await lab.rustDesk.events({ pid: prompt.pid, event: 'enter' })).length, 1);

    // Closed while it waits for a window, the program ends normally and leaves RustDesk alone.
    const { pid } = await opens(lab, program, '444', { showAfterMs: kAfterLastAttemptMs, left: kOutside });
    assert.equal(await program.closeWindow(), 0);
    await lab.rustDesk.happened(pid, 'shown');
    assert.deepEqual(await happenings(lab, { pid }), ['started', 'shown']);
  });
