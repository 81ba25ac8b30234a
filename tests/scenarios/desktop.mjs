// Shared by the scenarios of 桌面.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

import { waitUntil } from '../../lab/harness/program.mjs';
import { logsAfter, occurrences } from './scenario.mjs';

export const kProgramFiles = 'C:\\Program Files\\RustDesk';
/** Long enough to find an existing window and paste into it. */
const kTwoAttemptsMs = 2000;

/** The number of lines in the page's log that equal `line`. */
async function shownOnPage(program, line) {
  const says = (text) => (line instanceof RegExp ? line.test(text) : text === line);
  return (await program.pageLog()).filter(({ text }) => says(text)).length;
}

/** Clicks 桌面 and waits for `line` in the log, the status line and the page's log. */
export async function openDesktop(program, line, click = () => program.click('#c-desktop')) {
  const shown = await shownOnPage(program, line);
  const log = await logsAfter(program, line, click);
  assert.equal(occurrences(log, '正在请求远程桌面...'), 1, log);
  await program.waitForText('#c-statusline', line);
  await waitUntil(`the page's log showing ${line}`, async () => (await shownOnPage(program, line)) > shown);
  return log;
}

/** The number of RustDesk's starts so far. */
export const starts = async (lab) => (await lab.rustDesk.events({ event: 'started' })).length;

/** Like openDesktop(), but RustDesk must have been started; returns its start. */
export async function opensRustDesk(lab, program, line, click) {
  const count = await starts(lab);
  await openDesktop(program, line, click);
  return lab.rustDesk.started(count + 1);
}

/** Nothing is pasted into RustDesk's visible window. */
export async function staysUntouched(lab, { pid }) {
  await lab.rustDesk.happened(pid, 'shown');
  await sleep(kTwoAttemptsMs);
  assert.deepEqual((await lab.rustDesk.events({ pid })).map(({ event }) => event), ['started', 'shown']);
}

export const settingsText = (lab) => readFile(lab.prefix.settingsFile, 'utf8');

/** Runs `action`, which must not change the settings file. */
export async function savesNothing(lab, action) {
  const before = await settingsText(lab);
  await action();
  assert.equal(await settingsText(lab), before);
}
