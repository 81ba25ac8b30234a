// Updates that fail: each ends with one log line, and the program continues. And one that succeeds by another
// path.
import assert from 'node:assert/strict';
import { cp, mkdir, readdir, readFile } from 'node:fs/promises';
import path from 'node:path';

import { kNextProgramFile, kProgramFile } from '../../lab/harness/paths.mjs';
import { run, runOrFail } from '../../lab/harness/processes.mjs';
import { connect, scenario } from './scenario.mjs';
import { fileVersion } from './file_version.mjs';

const kCheck = '/api/updates/client';
const kDownload = '/updates/client.exe';
const kVersion = fileVersion(await readFile(kProgramFile));
const kNextVersion = fileVersion(await readFile(kNextProgramFile));

const json = (value) => ({ body: JSON.stringify(value) });
const offer = (data) => json({
  success: true,
  data: { updateAvailable: true, version: kNextVersion, downloadUrl: kDownload, force: true, ...data },
});
const kUseless = '自动更新信息无效。';
const kDownloadFailed = `强制更新下载失败：${kNextVersion}`;

// `check` and `download` are the service's replies, `line` the log line, `downloads` the number of download
// requests.
const kOutcomes = [
  { name: 'refused', check: { status: 403, ...json({ success: false, code: 'X', message: '更新服务维护中' }) },
    line: '自动更新检查失败：更新服务维护中' },
  { name: 'an HTML page', check: { status: 502, headers: { 'content-type': 'text/html' }, body: '<html>Bad' },
    line: '自动更新检查失败：' },
  { name: 'broken JSON', check: { body: '{"success":true,' }, line: '自动更新检查异常：Invalid JSON.' },
  { name: 'no update', check: json({ success: true, data: { updateAvailable: false } }),
    line: `当前已是最新版本：${kVersion}` },
  { name: 'the same version', check: offer({ version: kVersion }), line: kUseless },
  { name: 'an older version', check: offer({ version: '0.9.99' }), line: kUseless },
  { name: 'no address', check: offer({ downloadUrl: undefined }), line: kUseless },
  { name: 'no version', check: offer({ version: undefined }), line: kUseless },
  { name: 'not forced', check: offer({ force: false }),
    line: `发现新版本 ${kNextVersion}，当前版本 ${kVersion}。后台未设置强制更新，本次暂不自动覆盖。` },
  { name: 'a download cut off', check: offer(), download: { file: kNextProgramFile, truncateTo: 100_000 },
    line: kDownloadFailed, downloads: 1 },
  { name: 'a download that is not there', check: offer(), download: { status: 404, body: 'gone' },
    line: kDownloadFailed, downloads: 1 },
];

const filesIn = async (folder, prefix) => (await readdir(folder)).filter((name) => name.startsWith(prefix));
const downloadsIn = (folder) => filesIn(folder, 'Velmarine.Client');
/** The program and an update's files beside it, including the package. */
const besideTheProgram = () => filesIn(path.dirname(kProgramFile), path.basename(kProgramFile));

/** Starts the program, waits for the line, checks that nothing has changed, and ends the program. */
async function expectOutcome(lab, { name, check, download, line, downloads = 0 }) {
  await lab.service.resetReplies();
  if (check) await lab.service.setReply({ path: kCheck, ...check });
  if (download) await lab.service.setReply({ path: kDownload, ...download });
  const sinceMs = await lab.service.nowMs();
  const program = await lab.startProgram({ waitForPage: false });
  const log = await program.waitForLog(line instanceof RegExp ? line : `] ${line}\r\n`);
  console.log(`${name}: ${log.split('\r\n').at(-2)}`);
  assert.equal((await lab.service.requests({ pathPrefix: kDownload, sinceMs })).length, downloads, name);
  assert.deepEqual(await downloadsIn(lab.prefix.temp), [], name);
  assert.deepEqual(await besideTheProgram(), ['Velmarine.Client.exe'], name);
  assert.equal(lab.processes.hasEnded(program.child), false, name);
  await program.kill();
}

scenario('a failed update ends with one line', { start: false }, async (lab) => {
  for (const outcome of kOutcomes) await expectOutcome(lab, outcome);
  await lab.service.stopListening();
  const isDown = /\] 自动更新检查异常：WinHttpReceiveResponse[^[]*\[[\d:]+\] 提示：连不上中心服务。/;
  await expectOutcome(lab, { name: 'service down', line: isDown });
  await lab.service.resumeListening();

  // An incomplete command line for the replacement has no effect.
  const program = await lab.startProgram({ args: ['--apply-update', '1', 'C:\\new.exe'] });
  assert.equal(await program.state(), '未连接');
  assert.deepEqual(await readdir(lab.prefix.temp).then((names) => names.filter((name) => name.endsWith('.log'))), []);
});

/** Mounts a file system with `options` over the user's temporary folder while `body` runs. */
async function withTemporaryFolder(lab, options, body) {
  await mkdir(lab.prefix.temp, { recursive: true });
  await lab.prefix.stopServer();  // a running server would keep the old folder
  await runOrFail(['mount', '-t', 'tmpfs', '-o', options, 'velmarine-lab', lab.prefix.temp]);
  try {
    await body();
  } finally {
    await lab.prefix.stopServer();
    await runOrFail(['umount', lab.prefix.temp]);
  }
}

scenario('a full or read-only temporary folder fails only the download',
  { start: false }, async (lab) => {
    const outcome = { check: offer(), download: { file: kNextProgramFile }, line: kDownloadFailed, downloads: 1 };
    await withTemporaryFolder(lab, 'size=256k', () => expectOutcome(lab, { name: 'full', ...outcome }));
    await withTemporaryFolder(lab, 'ro', () => expectOutcome(lab, { name: 'read-only', ...outcome }));
  });

/** A copy of the program in its own folder below `folder`. */
async function ownProgram(lab, folder, name = 'Velmarine.Client.exe') {
  const file = path.join(lab.workFolder, folder, name);
  await mkdir(path.dirname(file), { recursive: true });
  await cp(kProgramFile, file);
  return file;
}

/** Offers an update to the next program that asks, at once or after releaseReplies(). */
async function offerUpdate(lab, { hold = false } = {}) {
  await lab.service.setReply({ path: kDownload, file: kNextProgramFile });
  await lab.service.setReply({ path: kCheck, times: 1, hold, ...offer() });
}

scenario('a replacement process that cannot be started costs only the download', { start: false },
  async (lab) => {
    // The copy's path is too long for Wine to start it.
    const folder = '长'.repeat(70);
    const prefix = lab.prefix.windowsPath(path.join(lab.workFolder, folder)).length;
    const file = await ownProgram(lab, folder, `${'n'.repeat(255 - prefix - 5)}.exe`);
    await offerUpdate(lab);
    const program = await lab.startProgram({ file });
    await program.waitForLog(`] 强制更新启动替换进程失败：${kNextVersion}\r\n`);
    assert.deepEqual(await downloadsIn(lab.prefix.temp), []);
    assert.ok((await readFile(file)).equals(await readFile(kProgramFile)));
    await connect(program);
  });

scenario('without room for its copy the program replaces itself', { start: false }, async (lab) => {
  const file = await ownProgram(lab, '工具');
  await mkdir(`${file}.updater.exe`);
  await offerUpdate(lab, { hold: true });
  const program = await lab.startProgram({ file, waitForUpdateCheck: false });
  await lab.service.releaseReplies();
  assert.equal(await lab.processes.waitForExit(program.child, 60_000), 0);
  await program.followUpdate();
  assert.match(await program.log(), new RegExp(`当前已是最新版本：${kNextVersion}\r\n`));
  assert.ok((await readFile(file)).equals(await readFile(kNextProgramFile)));
  assert.deepEqual(await downloadsIn(lab.prefix.temp), []);
  // A program cannot remove its own file; the next update does.
  const { stdout } = await run(['ls', path.dirname(file)]);
  assert.equal(stdout, 'Velmarine.Client.exe\nVelmarine.Client.exe.bak\nVelmarine.Client.exe.updater.exe\n');
  await connect(program);
});
