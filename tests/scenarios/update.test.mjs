// A forced update, from the service's offer to the running new program.
import assert from 'node:assert/strict';
import { cp, mkdir, readdir, readFile } from 'node:fs/promises';
import path from 'node:path';

import { kPlc } from '../../lab/harness/network.mjs';
import { kNextProgramFile, kProgramFile } from '../../lab/harness/paths.mjs';
import { kTitle, waitUntil } from '../../lab/harness/program.mjs';
import { ping } from '../../lab/harness/tools.mjs';
import { clickConnect, connect, scenario } from './scenario.mjs';
import { fileVersion } from './file_version.mjs';

const kCheck = '/api/updates/client';

const offer = (data) => JSON.stringify({
  success: true,
  data: { updateAvailable: true, downloadUrl: 'updates/client.exe', force: true, ...data },
});

/** The update log's lines without their times, whose form is checked. */
async function updateLog(lab) {
  const text = await readFile(path.join(lab.prefix.temp, 'Velmarine.Update.log'), 'utf8');
  assert.equal(text[0], '\uFEFF');
  const lines = text.slice(1).split('\r\n');
  assert.equal(lines.pop(), '', 'the last line ends, too');
  const form = /^\[\d{4}-\d{2}-\d{2} \d{2}:\d{2}:\d{2}\] (.*)$/s;
  for (const line of lines) assert.match(line, form);
  return lines.map((line) => form.exec(line)[1]);
}

async function versionsAsked(lab) {
  return (await lab.service.requests({ pathPrefix: kCheck }))
    .map(({ url }) => new URL(url, 'http://x').searchParams.get('currentVersion'));
}

scenario('a forced update replaces the program while a tunnel is connected, and the new one works',
  { start: false, site: true }, async (lab) => {
    const old = await readFile(kProgramFile);
    const next = await readFile(kNextProgramFile);
    const [oldVersion, nextVersion] = [fileVersion(old), fileVersion(next)];
    assert.notEqual(oldVersion, nextVersion);
    const folder = path.join(lab.workFolder, '维马林 工具');
    const file = path.join(folder, 'Velmarine.Client.exe');
    await mkdir(folder);
    await cp(kProgramFile, file);

    // The service offers the new version once, when the tunnel is up.
    await lab.service.setReply({ path: '/updates/client.exe', file: kNextProgramFile });
    await lab.service.setReply({ path: kCheck, times: 1, hold: true, body: offer({ version: nextVersion }) });
    const program = await lab.startProgram({ file, waitForUpdateCheck: false });
    await connect(program);
    assert.ok((await ping(lab, kPlc)).ok);
    const child = program.child;
    await lab.service.releaseReplies();

    assert.equal(await lab.processes.waitForExit(child, 60_000), 0);
    await program.followUpdate();
    console.log(`the program ${oldVersion} was replaced by ${nextVersion}`);
    assert.deepEqual(await versionsAsked(lab), [oldVersion, nextVersion]);
    assert.match(await program.log(), new RegExp(`当前已是最新版本：${nextVersion}\r\n`));
    const [download, ...more] = await lab.service.requests({ pathPrefix: '/updates' });
    assert.deepEqual([download.method, download.url, more], ['GET', '/updates/client.exe', []]);

    const windows = (unixPath) => lab.prefix.windowsPath(unixPath);
    const source = `C:\\users\\${path.basename(lab.prefix.user)}\\Temp\\Velmarine.Client.update.exe`;
    const [begun, ...lines] = await updateLog(lab);
    console.log([begun, ...lines].join('\n'));
    assert.match(begun, / parent=[1-9]\d*$/);
    assert.equal(begun.replace(/\d+$/, ''),
      `开始执行强制更新。src=${source} dst=${windows(file)} parent=`);
    assert.deepEqual(lines, ['更新成功，已重启主程序。']);

    assert.deepEqual((await readdir(folder)).sort(),
      ['Velmarine.Client.exe', 'Velmarine.Client.exe.updater.exe']);
    assert.ok((await readFile(file)).equals(next), 'the new program lies in the place of the old');
    assert.ok((await readFile(`${file}.updater.exe`)).equals(old));
    const left = (await readdir(lab.prefix.temp)).filter((name) => name.startsWith('Velmarine.'));
    assert.deepEqual(left, ['Velmarine.Update.log'], 'no download is left');

    // The window is visible, and the new program works.
    assert.ok(await waitUntil('the window', () => lab.display.clientArea(kTitle)));
    assert.equal(await program.state(), '未连接');
    await clickConnect(program);
    await program.waitForText('#s-state', '在线');
    assert.ok((await ping(lab, kPlc)).ok);
    await lab.display.screenshot(path.join(lab.artifacts, 'updated.png'));
  });
