// Forced updates that must not happen: each leaves a working program and one line with the reason.
import assert from 'node:assert/strict';
import { chmod, cp, mkdir, readdir, readFile, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { kNextProgramFile, kPinnedProgramFile, kProgramFile, signedProgram } from '../../lab/harness/paths.mjs';
import { runOrFail } from '../../lab/harness/processes.mjs';
import { connect, scenario } from './scenario.mjs';
import { fileVersion } from './file_version.mjs';

const kCheck = '/api/updates/client';
const kDownload = '/updates/client.exe';
const kVersion = fileVersion(await readFile(kProgramFile));
const kNextVersion = fileVersion(await readFile(kNextProgramFile));

/** Makes the service offer `file` as `version` to every program; `more` overrides the offer. */
async function offer(lab, file, { version = kNextVersion, ...more } = {}) {
  await lab.service.setReply({ path: kDownload, file });
  await lab.service.setReply({
    path: kCheck,
    body: JSON.stringify({
      success: true, data: { updateAvailable: true, version, downloadUrl: kDownload, force: true },
    }),
    ...more,
  });
}

/** Starts the program from `file`, releases the service's answer, and follows the program through its update. */
async function startAndFollow(lab, file) {
  const program = await lab.startProgram({ file, waitForUpdateCheck: false });
  await lab.service.releaseReplies();
  assert.equal(await lab.processes.waitForExit(program.child, 60_000), 0);
  await program.followUpdate();
  return program;
}

const downloads = async (lab) => (await lab.service.requests({ pathPrefix: kDownload })).length;

/** Puts the program's folder in its own file system while `body` runs. */
async function onDisk(lab, options, body) {
  const folder = path.join(lab.workFolder, '程序');
  await mkdir(folder);
  await runOrFail(['mount', '-t', 'tmpfs', '-o', options, 'velmarine-lab', folder]);
  try {
    const file = path.join(folder, 'Velmarine.Client.exe');
    await cp(kProgramFile, file);
    await body(file, folder);
  } finally {
    await lab.prefix.stopServer();
    await runOrFail(['umount', folder]);
  }
}

async function expectGoesOn(lab, program, line) {
  const log = await program.waitForLog(line);
  console.log(log.split('\r\n').find((entry) => line.test(entry)));
  assert.equal(lab.processes.hasEnded(program.child), false);
  await connect(program);
}

scenario('in a read-only folder a forced update is postponed, and the program works', { start: false }, async (lab) => {
  await onDisk(lab, 'size=40m', async (file, folder) => {
    await runOrFail(['mount', '-o', 'remount,ro', folder]);
    await offer(lab, kNextProgramFile);
    for (let start = 0; start < 2; start += 1) {
      const program = await lab.startProgram({ file, waitForUpdateCheck: false });
      await expectGoesOn(lab, program,
        /强制更新无法安装 \S+：本程序的文件不能被替换（错误码 \d+）。请把本程序移到可以写入的文件夹/);
      await program.kill();
    }
    assert.equal(await downloads(lab), 0, 'nothing is loaded that cannot be installed');
    assert.deepEqual(await readdir(folder), ['Velmarine.Client.exe']);
  });
});

scenario('on a full disk a forced update is postponed, and the program works', { start: false }, async (lab) => {
  await onDisk(lab, 'size=15m', async (file, folder) => {
    await offer(lab, kNextProgramFile);
    const program = await lab.startProgram({ file, waitForUpdateCheck: false });
    await expectGoesOn(lab, program, /强制更新无法安装 \S+：本程序所在的磁盘空间不足（错误码 112）。请清理磁盘/);
    assert.deepEqual(await readdir(folder), ['Velmarine.Client.exe']);
    assert.ok((await readFile(file)).equals(await readFile(kProgramFile)));
    await program.kill();
  });
});

scenario('a file that reports an older version than announced is installed once', { start: false }, async (lab) => {
  const file = path.join(lab.workFolder, '程序', 'Velmarine.Client.exe');
  await mkdir(path.dirname(file));
  await cp(kProgramFile, file);
  await offer(lab, kProgramFile, { version: '9.9' });
  await offer(lab, kProgramFile, { version: '9.9', times: 1, hold: true });
  const program = await startAndFollow(lab, file);
  const log = await program.waitForLog(/强制更新 9\.9 在一天内已经安装过一次/);
  assert.ok(log.includes(`强制更新 9.9 在一天内已经安装过一次，但本程序的版本仍是 ${kVersion}，今天不再重试。`));
  assert.equal(await downloads(lab), 1);
  await connect(program);
});

scenario('a program that names its publisher installs only files signed by that publisher',
  { start: false }, async (lab) => {
    const file = path.join(lab.workFolder, '程序', 'Velmarine.Client.exe');
    await mkdir(path.dirname(file));
    await cp(kPinnedProgramFile, file);
    const signed = await readFile(signedProgram('signed_next'));
    const made = async (name, bytes) => {
      const offered = path.join(lab.workFolder, `${name}.exe`);
      await writeFile(offered, bytes);
      await chmod(offered, 0o755);
      return offered;
    };
    const altered = Buffer.from(signed);
    altered[400_000] ^= 1;
    const kInvalid = /强制更新未安装 \S+：新程序没有有效的数字签名（错误码 0x[0-9A-F]{8}）。/;
    for (const [offered, line] of [
      [kNextProgramFile, kInvalid],
      [await made('altered', altered), kInvalid],
      [await made('cut', signed.subarray(0, signed.length - 5000)), kInvalid],
      [signedProgram('stranger_next'), /强制更新未安装 \S+：新程序不是由指定的发布者签名。/],
      [signedProgram('signed_same'), /强制更新未安装 \S+：新程序的版本 \S+ 不高于当前版本 \S+。/],
    ]) {
      await offer(lab, offered);
      const program = await lab.startProgram({ file, waitForUpdateCheck: false });
      const log = await program.waitForLog(line);
      console.log(log.split('\r\n').find((entry) => line.test(entry)));
      assert.equal(lab.processes.hasEnded(program.child), false);
      await program.kill();
      assert.deepEqual(await readdir(path.dirname(file)), ['Velmarine.Client.exe'], offered);
    }

    await lab.service.resetReplies();
    await offer(lab, signedProgram('signed_next'), { times: 1, hold: true });
    const program = await startAndFollow(lab, file);
    assert.ok((await program.log()).includes(`当前已是最新版本：${kNextVersion}\r\n`));
    assert.ok((await readFile(file)).equals(signed));
    await connect(program);
  });
