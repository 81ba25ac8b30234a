// Measures the program under Wine in the lab, compared with a window that does nothing. Prints JSON as Google Benchmark does.
//
// Start-up times are compared with those of a bare window and a bare browser, measured in turns; docs/performance.md
// explains each figure.
import { rm } from 'node:fs/promises';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

import { Lab } from '../lab/harness/lab.mjs';
import { kBuild } from '../lab/harness/paths.mjs';
import { waitUntil } from '../lab/harness/program.mjs';
import { Figures } from './medians.mjs';
import { memoryOf, watchWakeUps } from './program/process_figures.mjs';
import {
  startBareWindow, timeBareBrowser, timeConnect, timeDisconnect, timeStart, WindowWatch,
} from './program/starts.mjs';
import { releaseBytes, stripProgram } from './program/stripped.mjs';
import { measureTraffic, startLoop } from './program/traffic.mjs';

const kRounds = 5;
const kWakeSeconds = 10;
const kSettleMs = 1500;
const kLogLines = 10_000;
const kLinesAtOnce = 1000;
const kSessionChange = 0x2B1;  // WM_WTSSESSION_CHANGE: a line in the log for each
const kLocked = 7;
const kLockedLine = '电脑已锁定，软件继续运行。\r\n';
const kLimitMs = 400_000;

const figures = new Figures();
const artifacts = path.join(kBuild, 'bench/program');

async function addMemory(name, pid, barePid) {
  figures.add(`ProgramMemory${name}`, 'KiB', (await memoryOf(pid)).privateKib);
  figures.add(`ProgramMemory${name}_Anchor`, 'KiB', (await memoryOf(barePid)).privateKib);
}

async function addBareStart(lab, watch) {
  let bare;
  const windowMs = await watch.untilShown(async () => { bare = await startBareWindow(lab); });
  const browserMs = await timeBareBrowser();
  await lab.processes.stop(bare, 'SIGKILL');
  figures.add('ProgramWindow_Anchor', 'ms', windowMs);
  figures.add('ProgramConnect_Anchor', 'ms', windowMs);
  figures.add('ProgramDisconnect_Anchor', 'ms', windowMs);
  figures.add('ProgramPageReady_Anchor', 'ms', windowMs + browserMs);
}

/** Each blink of a caret would make the browser's stand-in send a picture, twice a second. */
const leaveField = (program) => program.page.evaluate('document.activeElement.blur()');

/** Starts the program once, connects and disconnects. */
async function addStart(lab, watch, bare, file) {
  await addBareStart(lab, watch);
  const { windowMs, readyMs } = await timeStart(lab, watch, file);
  figures.add('ProgramWindow', 'ms', windowMs);
  figures.add('ProgramPageReady', 'ms', readyMs);
  const { program } = lab;
  program.page = await lab.bridge.waitForPage(kSettleMs);
  await program.waitForLog('当前已是最新版本：');
  await leaveField(program);
  await sleep(kSettleMs);
  await addMemory('Idle', program.child.pid, bare.pid);
  figures.add('ProgramConnect', 'ms', await timeConnect(program));
  await leaveField(program);
  await sleep(kSettleMs);
  await addMemory('Connected', program.child.pid, bare.pid);
  figures.add('ProgramDisconnect', 'ms', await timeDisconnect(program));
}

async function addWakeUps(name, program, bare) {
  const [ours, theirs] = await watchWakeUps([program.child.pid, bare.pid], kWakeSeconds);
  figures.add(`ProgramWakeUps${name}`, '/s', ours.wakeUps);
  figures.add(`ProgramSwitches${name}`, '/s', ours.sleeps);
  console.error(`${name}: by thread in ${kWakeSeconds} s ${JSON.stringify(ours.byThread)}; bare window ${theirs.wakeUps.toFixed(1)}/s`);
}

/** Logs ten thousand lines through the system's notices and measures the memory afterwards. */
async function addLogLines(lab, bare) {
  const { program } = lab;
  const began = performance.now();
  for (let sent = 0; sent < kLogLines; sent += kLinesAtOnce) await lab.desktop.sendToWindow(kSessionChange, kLocked, kLinesAtOnce);
  figures.add(`ProgramLogLine/${kLogLines}`, 'us', ((performance.now() - began) * 1000) / kLogLines);
  const lines = (await program.log()).split(kLockedLine).length - 1;
  if (lines !== kLogLines) throw new Error(`The log has ${lines} lines of ${kLogLines}.`);
  await waitUntil('the last lines in the page', async () => (await program.pageLog()).length > 0);
  await sleep(kSettleMs);
  await addMemory('AfterLog', program.child.pid, bare.pid);
}

async function measure(lab) {
  const watch = new WindowWatch(lab);
  await watch.start();
  const bare = await startBareWindow(lab);  // also keeps Wine's server running
  const file = await stripProgram(artifacts);
  for (let i = 0; i < kRounds; i += 1) {
    await addStart(lab, watch, bare, file);
    if (i < kRounds - 1) await lab.program.kill();
  }
  const { program } = lab;
  await sleep(kSettleMs);
  await addWakeUps('Idle', program, bare);
  await timeConnect(program);
  await leaveField(program);
  await sleep(kSettleMs);
  await addWakeUps('Connected', program, bare);
  const loop = await startLoop(lab);
  for (let i = 0; i < kRounds; i += 1) await measureTraffic(lab, loop, figures);
  await addLogLines(lab, bare);
  figures.add('ProgramSize', 'KiB', (await releaseBytes(file)) / 1024);
}

await rm(artifacts, { recursive: true, force: true });
const lab = await Lab.create({ artifacts });
const timer = setTimeout(() => { throw new Error(`No end in ${kLimitMs / 1000} s.`); }, kLimitMs);
try {
  await measure(lab);
} finally {
  clearTimeout(timer);
  for (const left of await lab.close()) console.error(`left over: ${left}`);
}
figures.print();
