// Updates that do not take place: each ends in one line of the log, and the program goes on. And one
// that takes place by another way.
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

// `check` and `download` are the service's replies, `line` what the log says, `downloads` how often the
// download was asked for.
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
/** The program and what an update puts beside it; the package lies there too. */
const besideTheProgram = () => filesIn(path.dirname(kProgramFile), path.basename(kProgramFile));

/** Starts the program, waits for the line, sees that all is as before, and ends the program. */
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

scenario('an update that does not take place ends in one line', { start: false }, async (lab) => {
  for (const outcome of kOutcomes) await expectOutcome(lab, outcome);
  await lab.service.stopListening();
  const isDown = /\] 自动更新检查异常：WinHttpReceiveResponse[^[]*\[[\d:]+\] 提示：连不上中心服务。/;
  await expectOutcome(lab, { name: 'service down', line: isDown });
  await lab.service.resumeListening();

  // An incomplete order to replace a program is none.
  const program = await lab.startProgram({ args: ['--apply-update', '1', 'C:\\new.exe'] });
  assert.equal(await program.state(), '未连接');
  assert.deepEqual(await readdir(lab.prefix.temp).then((names) => names.filter((name) => name.endsWith('.log'))), []);
});

/** Puts a file system with `options` in the place of the user's temporary folder while `body` runs. */
async function withTemporaryFolder(lab, options, body) {
  await mkdir(lab.prefix.temp, { recursive: true });
  await lab.prefix.stopServer();  // it would go on to see the old folder
  await runOrFail(['mount', '-t', 'tmpfs', '-o', options, 'velmarine-lab', lab.prefix.temp]);
  try {
    await body();
  } finally {
    await lab.prefix.stopServer();
    await runOrFail(['umount', lab.prefix.temp]);
  }
}

scenario('a temporary folder that is full or read-only fails the download and nothing else',
  { start: false }, async (lab) => {
    const outcome = { check: offer(), download: { file: kNextProgramFile }, line: kDownloadFailed, downloads: 1 };
    await withTemporaryFolder(lab, 'size=256k', () => expectOutcome(lab, { name: 'full', ...outcome }));
    await withTemporaryFolder(lab, 'ro', () => expectOutcome(lab, { name: 'read-only', ...outcome }));
  });

/** A copy of the program in a folder of its own, below `folder`. */
async function ownProgram(lab, folder, name = 'Velmarine.Client.exe') {
  const file = path.join(lab.workFolder, folder, name);
  await mkdir(path.dirname(file), { recursive: true });
  await cp(kProgramFile, file);
  return file;
}

/** The next program to ask is offered an update, at once or after releaseReplies(). */
async function offerUpdate(lab, { hold = false } = {}) {
  await lab.service.setReply({ path: kDownload, file: kNextProgramFile });
  await lab.service.setReply({ path: kCheck, times: 1, hold, ...offer() });
}

scenario('a replacement process that cannot be started costs the download alone', { start: false },
  async (lab) => {
    // The copy's path would be longer than Wine starts.
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
  // No program can remove the file that it runs from: the next update does.
  const { stdout } = await run(['ls', path.dirname(file)]);
  assert.equal(stdout, 'Velmarine.Client.exe\nVelmarine.Client.exe.bak\nVelmarine.Client.exe.updater.exe\n');
  await connect(program);
});
