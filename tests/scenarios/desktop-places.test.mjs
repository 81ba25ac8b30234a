// The places in which 桌面 finds RustDesk: the program used last, nine usual places, or the service's download.
import assert from 'node:assert/strict';
import { copyFile, mkdir, readdir, rm, stat, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { kServiceUrl } from '../../lab/harness/lab.mjs';
import { kProgramFile } from '../../lab/harness/paths.mjs';
import { kErrorPageBytes } from '../../lab/standins/rustdesk/rustdesk.mjs';
import { openDesktop, opensRustDesk, savesNothing } from './desktop.mjs';
import { scenario } from './scenario.mjs';

const kName = 'rustdesk.exe';
const kOpened = '远程桌面已打开：555。';
const kNotFound = '未找到 RustDesk 程序。';
const kFilesPath = '/files/';
const kStartMs = 3000;  // each ends by itself, long after it has recorded its start

/** The folders of the usual places, in search order. */
function places(lab, programFolder) {
  const user = path.basename(lab.prefix.user);
  return [
    'D:\\Program Files\\RustDesk', 'C:\\Program Files\\RustDesk', 'C:\\Program Files (x86)\\RustDesk',
    `C:\\users\\${user}\\AppData\\Local\\Programs\\RustDesk`, `${lab.prefix.windowsPath(programFolder)}\\Runtime`,
  ];
}

const samePath = (a, b) => assert.equal(a.toLowerCase(), b.toLowerCase());

/** 桌面 starts the program at this path, which then becomes the one used last. */
async function starts(lab, program, windowsPath) {
  const { commandLine } = await opensRustDesk(lab, program, kOpened);
  samePath(commandLine, `"${windowsPath}" "--connect" "555"`);
  samePath((await lab.prefix.readSettings()).rustDeskPath, windowsPath);
}

async function grantWith(lab, windowsDownloadUrl) {
  await lab.service.setDesktop({ rustDeskId: '555', server: { windowsDownloadUrl } });
}

/**
 * All places have one; they are removed in order, until none is left. The last place gets its own only
 * then, because the program used last has priority over all places.
 */
async function triesPlacesInOrder(lab, program, programFolder) {
  for (const name of ['RustDesk.exe', kName]) {
    const folders = places(lab, programFolder);
    for (const folder of folders.slice(0, -1)) await lab.rustDesk.install(`${folder}\\${name}`);
    for (const folder of folders) {
      await starts(lab, program, `${folder}\\${kName}`);
      if (folder === folders[0]) await lab.rustDesk.putFile(path.join(programFolder, 'Runtime', kName));
      await lab.rustDesk.uninstall(`${folder}\\${name}`);
    }
  }
}

/** A folder with the program's name is ignored. */
async function passesOverFolders(lab, program) {
  await mkdir(lab.prefix.unixPath(`C:\\Program Files\\RustDesk\\${kName}`), { recursive: true });
  await lab.rustDesk.install(`C:\\Program Files (x86)\\RustDesk\\${kName}`);
  await starts(lab, program, `C:\\Program Files (x86)\\RustDesk\\${kName}`);
  for (const folder of ['C:\\Program Files', 'C:\\Program Files (x86)']) {
    await lab.rustDesk.uninstall(`${folder}\\RustDesk\\${kName}`);
  }
}

/** Serves the stand-in, `bytes` long, below kFilesPath; `reply` as for setReply(). */
async function serve(lab, bytes, reply = {}) {
  await lab.service.resetReplies();
  const file = path.join(lab.workFolder, `served-${bytes}`);
  await lab.rustDesk.putFile(file, { bytes });
  await lab.service.setReply({
    path: kFilesPath, file, headers: { 'content-type': 'application/octet-stream' }, ...reply,
  });
}

/** The downloads since the last call. */
let seen = 0;
async function downloads(lab) {
  const requests = await lab.service.requests({ pathPrefix: kFilesPath });
  const news = requests.slice(seen).map(({ method, url }) => `${method} ${url}`);
  seen = requests.length;
  return news;
}

async function whatIsNoProgramIsNotStarted(lab, program, target) {
  await grantWith(lab, `${kServiceUrl}/files/setup.exe?a=1`);
  await serve(lab, kErrorPageBytes);
  await savesNothing(lab, () => openDesktop(program, kNotFound));
  assert.deepEqual(await downloads(lab), ['GET /files/setup.exe?a=1']);
  assert.equal((await stat(target)).size, kErrorPageBytes, 'it stays until the next download');

  await serve(lab, 2 * kErrorPageBytes, { status: 404 });
  await savesNothing(lab, () => openDesktop(program, kNotFound));
  await serve(lab, 2 * kErrorPageBytes, { truncateTo: kErrorPageBytes + 4096 });
  await savesNothing(lab, () => openDesktop(program, kNotFound));
  assert.equal((await stat(target)).size, kErrorPageBytes, 'half a download does not take its place');
  assert.equal((await downloads(lab)).length, 2);
}

async function oneByteMoreIsAProgram(lab, program, target, targetPath) {
  await writeFile(`${target}.download`, 'of a run that was cut off');
  await serve(lab, kErrorPageBytes + 1);
  await starts(lab, program, targetPath);
  assert.deepEqual(await downloads(lab), ['GET /files/setup.exe?a=1']);
  assert.equal((await stat(target)).size, kErrorPageBytes + 1);
  assert.equal((await readdir(path.dirname(target))).includes(`${kName}.download`), false);

  await starts(lab, program, targetPath);
  assert.deepEqual(await downloads(lab), [], 'it is there');
}

/** A usual place has priority over the program used last if that lies in the runtime folder. */
async function installedGoesBeforeDownloaded(lab, program) {
  const installed = `C:\\Program Files\\RustDesk\\${kName}`;
  await lab.rustDesk.install(installed);
  await starts(lab, program, installed);
  await lab.rustDesk.uninstall(installed);
}

async function relativeAddressesAreTheServices(lab, program, target, targetPath) {
  for (const url of ['files/rustdesk 1.exe', '/files/rustdesk 1.exe']) {
    await rm(target);
    await grantWith(lab, url.replaceAll(' ', '%20'));
    await serve(lab, kErrorPageBytes + 1);
    await starts(lab, program, targetPath);
    assert.deepEqual(await downloads(lab), ['GET /files/rustdesk%201.exe']);
  }
}

scenario('RustDesk is found where it was last used, in the usual places in order, or downloaded',
  { start: false }, async (lab) => {
    const programFolder = path.join(lab.workFolder, '程序');
    await mkdir(programFolder);
    await copyFile(kProgramFile, path.join(programFolder, 'Velmarine.Client.exe'));
    await lab.rustDesk.addDriveD(path.join(lab.workFolder, 'drive_d'));
    await lab.rustDesk.plan({ lifeMs: kStartMs });
    await grantWith(lab, '');
    // The program used last lies in the runtime folder, spelled in another letter case.
    const target = path.join(lab.prefix.runtimeFolder, kName);
    const targetPath = `C:\\users\\${path.basename(lab.prefix.user)}\\AppData\\Local\\Velmarine\\Runtime\\${kName}`;
    await lab.rustDesk.putFile(target);
    await lab.writeSettings({ deviceNumber: 'DEV-1', rustDeskPath: targetPath.toUpperCase() });
    const program = await lab.startProgram({ file: path.join(programFolder, 'Velmarine.Client.exe') });

    await triesPlacesInOrder(lab, program, programFolder);
    await passesOverFolders(lab, program);
    await rm(target);
    await savesNothing(lab, () => openDesktop(program, kNotFound));
    await whatIsNoProgramIsNotStarted(lab, program, target);
    await oneByteMoreIsAProgram(lab, program, target, targetPath);
    await installedGoesBeforeDownloaded(lab, program);
    await relativeAddressesAreTheServices(lab, program, target, targetPath);
  });
