// What the scenarios of 桌面 share.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

import { waitUntil } from '../../lab/harness/program.mjs';
import { logsAfter, occurrences } from './scenario.mjs';

export const kProgramFiles = 'C:\\Program Files\\RustDesk';
/** Long enough for a window that is there to be found and pasted into. */
const kTwoAttemptsMs = 2000;

/** How many lines of the page's log say `line`. */
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

/** How often RustDesk was started so far. */
export const starts = async (lab) => (await lab.rustDesk.events({ event: 'started' })).length;

/** The same as openDesktop(), after which RustDesk must have been started; returns its start. */
export async function opensRustDesk(lab, program, line, click) {
  const count = await starts(lab);
  await openDesktop(program, line, click);
  return lab.rustDesk.started(count + 1);
}

/** Nothing is pasted into RustDesk's window, though it shows. */
export async function staysUntouched(lab, { pid }) {
  await lab.rustDesk.happened(pid, 'shown');
  await sleep(kTwoAttemptsMs);
  assert.deepEqual((await lab.rustDesk.events({ pid })).map(({ event }) => event), ['started', 'shown']);
}

export const settingsText = (lab) => readFile(lab.prefix.settingsFile, 'utf8');

/** Does `action`, which must leave the settings file as it is. */
export async function savesNothing(lab, action) {
  const before = await settingsText(lab);
  await action();
  assert.equal(await settingsText(lab), before);
}
