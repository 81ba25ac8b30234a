// Shared by the report's scenarios: creating and reading a report.
import assert from 'node:assert/strict';
import { copyFile, mkdir, readFile } from 'node:fs/promises';
import path from 'node:path';

import { kProgramFile } from '../../lab/harness/paths.mjs';

const kCheckMs = 60_000;
const kVerdicts = { OK: '正常', NOTE: '提示', FAULT: '异常' };

/** Checks the report's form and returns {text, verdicts: {id: '正常' ...}, part(id)}. */
export function readReport(bytes) {
  assert.equal(bytes.subarray(0, 3).toString('hex'), 'efbbbf');
  const text = bytes.subarray(3).toString('utf8');
  assert.doesNotMatch(text, /[^\r]\n/, 'CRLF throughout');
  assert.match(text, /^Velmarine\.Client 诊断报告\r\n/);
  const parts = {};
  const verdicts = {};
  for (const found of text.matchAll(/^【(正常|提示|异常)】.*\r\n\[([a-z0-9-]+)\] .+\. (OK|NOTE|FAULT)\r\n((?:(?!【|---).*\r\n)*)/gm)) {
    const [, chinese, id, english, body] = found;
    assert.equal(kVerdicts[english], chinese, id);
    verdicts[id] = chinese;
    parts[id] = body;
  }
  const [, faults, notes, well] = /^总结：异常 (\d+) 项，提示 (\d+) 项，正常 (\d+) 项。\r$/m.exec(text).map(Number);
  const counted = Object.values(verdicts);
  assert.deepEqual([faults, notes, well],
    ['异常', '提示', '正常'].map((one) => counted.filter((verdict) => verdict === one).length));
  for (const [id, verdict] of Object.entries(verdicts)) assert.match(text, new RegExp(`^${verdict} \\[${id}\\] `, 'm'));
  return { text, verdicts, part: (id) => parts[id] };
}

/** Runs the program with --check in `folder`; returns its report, its `folder` and its duration in `seconds`. */
export async function runCheck(lab, { env = {}, folder = path.join(lab.workFolder, 'check'), file = path.join(folder, '报告.txt') } = {}) {
  await mkdir(folder, { recursive: true });
  const started = performance.now();
  const child = await lab.processes.start('check',
    lab.prefix.command(lab.prefix.windowsPath(kProgramFile), ['--check', lab.prefix.windowsPath(file)]),
    { namespace: lab.network.engineer, env: { ...lab.windowsEnv, ...env }, cwd: folder });
  const exitCode = await lab.processes.waitForExit(child, kCheckMs);
  const seconds = (performance.now() - started) / 1000;
  assert.equal(exitCode, 0);
  await copyFile(file, path.join(lab.artifacts, '报告.txt'));
  return { ...readReport(await readFile(file)), folder, seconds };
}

/** Starts the client once and closes it, so that it extracts the driver's files. */
export async function layOutFiles(lab) {
  const program = await lab.startProgram();
  await program.closeWindow();
}
