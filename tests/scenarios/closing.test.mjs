// The window is closed during an operation: the process ends soon, and starts nothing afterwards.
import assert from 'node:assert/strict';
import { readdir, readFile } from 'node:fs/promises';
import path from 'node:path';

import { kCloud } from '../../lab/harness/network.mjs';
import { kNextProgramFile, kProgramFile } from '../../lab/harness/paths.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { kErrorPageBytes } from '../../lab/standins/rustdesk/rustdesk.mjs';
import { fileVersion } from './file_version.mjs';
import { clickConnect, connect, scenario } from './scenario.mjs';

const kAllowedMs = 2000;
const kTrickleMs = 100;  // per KiB, which makes minutes for a program
const kExitMs = 60_000;
const kCheck = '/api/updates/client';
const kUpdate = '/updates/client.exe';
const kFiles = '/files/';

/** Closes the window and returns the milliseconds until the process ended. */
async function closes(lab, program) {
  await program.pointAndClick('#s-logo');
  const begin = performance.now();
  await lab.display.pressCloseButton();
  assert.equal(await lab.processes.waitForExit(program.child, kExitMs), 0);
  return performance.now() - begin;
}

/** The duration of a close without an operation: the page, the driver's service commands, the end. */
async function idleMs(lab) {
  return closes(lab, await lab.startProgram());
}

async function requested(lab, pathPrefix, sinceMs = 0) {
  await waitUntil(`a request for ${pathPrefix}`,
    async () => (await lab.service.requests({ pathPrefix, sinceMs })).length > 0);
}

/** The files of a download in a folder. */
async function partialFiles(folder) {
  return (await readdir(folder).catch(() => [])).filter((name) => name.endsWith('.download'));
}

async function partialFile(folder) {
  await waitUntil(`half a download in ${folder}`, async () => (await partialFiles(folder)).length > 0);
}

/** The settings file is intact and contains the engineer's input. */
async function settingsAreWhole(lab, wanted) {
  const settings = await lab.prefix.readSettings();
  for (const [name, value] of Object.entries(wanted)) assert.equal(settings[name], value, name);
}

// ---- the operations; each returns the checks for afterwards

async function authorisation(lab, program) {
  await lab.service.setReply({ path: '/api/connections/request', hold: true });
  await clickConnect(program);
  await requested(lab, '/api/connections/request');
  return () => settingsAreWhole(lab, { deviceSecret: 'KEY-7F3A-90C2-11D4', connectionId: '' });
}

async function rustDeskDownload(lab, program) {
  const file = path.join(lab.workFolder, 'rustdesk-served');
  await lab.rustDesk.putFile(file, { bytes: 2 * kErrorPageBytes });
  await lab.service.setReply({ path: kFiles, file, trickleMs: kTrickleMs });
  await lab.service.setDesktop({
    rustDeskId: '555', accessPassword: 'pw', server: { windowsDownloadUrl: `${kFiles}rustdesk.exe` },
  });
  await program.click('#c-desktop');
  await partialFile(lab.prefix.runtimeFolder);
  return async () => {
    assert.deepEqual(await partialFiles(lab.prefix.runtimeFolder), []);
    assert.deepEqual(await lab.rustDesk.events(), [], 'RustDesk was started');
    await settingsAreWhole(lab, { deviceNumber: 'DEV-2041', rustDeskPath: '' });
  };
}

async function disconnectReport(lab, program) {
  await connect(program);
  await lab.service.setReply({ path: '/api/connections/CONN-0001/disconnect', hold: true });
  await program.click('#c-stop');
  await requested(lab, '/api/connections/CONN-0001/disconnect');
  return async () => {
    await settingsAreWhole(lab, { deviceSecret: 'KEY-7F3A-90C2-11D4', connectionId: '', routesText: '' });
    const left = await lab.prefix.proxyOverride({ namespace: lab.network.engineer });
    assert.doesNotMatch(left ?? '', /192\.168\.77/);
  };
}

/** Starts the program, begins an operation and closes the window during it. */
async function closesSoonDuring(lab, idle, name, begin) {
  await lab.service.resetReplies();
  const program = await lab.startProgram();
  const looksAfterwards = await begin(lab, program);
  const tookMs = await closes(lab, program);
  console.log(`${name}: closed after ${tookMs.toFixed(0)} ms, idle ${idle.toFixed(0)} ms`);
  await looksAfterwards();
  assert.ok(tookMs < idle + kAllowedMs, `${name}: ${tookMs} ms, idle ${idle} ms`);
}

scenario('closing ends a running request, download and report',
  { start: false, settings: { deviceNumber: 'DEV-2041', engineerId: 'ENG-12345678' } }, async (lab) => {
    const idle = await idleMs(lab);
    await closesSoonDuring(lab, idle, 'authorisation', authorisation);
    await closesSoonDuring(lab, idle, 'RustDesk download', rustDeskDownload);
    await closesSoonDuring(lab, idle, 'disconnect report', disconnectReport);
  });

/** A forced update whose download takes minutes. */
async function offerSlowUpdate(lab) {
  const version = fileVersion(await readFile(kNextProgramFile));
  await lab.service.setReply({ path: kCheck, body: JSON.stringify({
    success: true, data: { updateAvailable: true, version, downloadUrl: kUpdate, force: true },
  }) });
  await lab.service.setReply({ path: kUpdate, file: kNextProgramFile, trickleMs: kTrickleMs });
}

scenario('closing ends an update, and half a download is removed even after a kill',
  { start: false }, async (lab) => {
    const idle = await idleMs(lab);
    await offerSlowUpdate(lab);
    let program = await lab.startProgram({ waitForUpdateCheck: false });
    await partialFile(lab.prefix.temp);
    const tookMs = await closes(lab, program);
    console.log(`update download: closed after ${tookMs.toFixed(0)} ms, idle ${idle.toFixed(0)} ms`);
    const left = (await readdir(lab.prefix.temp)).filter((name) => name.startsWith('Velmarine.'));
    assert.deepEqual(left, [], 'neither a download nor the log of a replacement');
    const beside = (await readdir(path.dirname(kProgramFile))).filter((name) => name.startsWith('Velmarine.Client.exe'));
    assert.deepEqual(beside, ['Velmarine.Client.exe']);
    assert.ok(tookMs < idle + kAllowedMs, `${tookMs} ms, idle ${idle} ms`);

    program = await lab.startProgram({ waitForUpdateCheck: false });
    await partialFile(lab.prefix.temp);
    await program.kill();
    await waitUntil('the half of it gone', async () => (await partialFiles(lab.prefix.temp)).length === 0);
  });

scenario('closing ends an unanswered name look-up',
  { start: false, settings: { serverUrl: 'http://service.example:31080' } }, async (lab) => {
    await lab.network.setNames('engineer', { 'service.example': kCloud });
    const idle = await idleMs(lab);
    await lab.network.setNames('engineer', {});
    await lab.network.setNameServer('engineer', kCloud);
    const asked = await lab.processes.start('silent name server', ['socat', '-u', '-x', 'UDP4-RECV:53', '/dev/null'],
      { namespace: lab.network.cloud });
    await lab.prefix.stopServer();  // only a new server's processes look names up
    const program = await lab.startProgram({ waitForUpdateCheck: false });
    await clickConnect(program);
    await waitUntil('a question for the name', () => lab.processes.outputOf(asked).length > 0);
    const tookMs = await closes(lab, program);
    console.log(`look-up: closed after ${tookMs.toFixed(0)} ms, idle ${idle.toFixed(0)} ms`);
    await settingsAreWhole(lab, { deviceSecret: 'KEY-7F3A-90C2-11D4', connectionId: '' });
    assert.ok(tookMs < idle + kAllowedMs, `${tookMs} ms, idle ${idle} ms`);
  });
