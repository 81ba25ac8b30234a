// The report of `--check`: for a healthy computer, and for one with local faults.
import assert from 'node:assert/strict';
import { cp, mkdir, readdir, readFile, rm, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { kBrowserRuntime, kProgramFile } from '../../lab/harness/paths.mjs';
import { runOrFail } from '../../lab/harness/processes.mjs';
import { layOutFiles, runCheck } from './check_report.mjs';
import { kDeviceSecret, scenario } from './scenario.mjs';

const kAll = ['program', 'windows', 'rights', 'folders', 'running', 'settings', 'webview2', 'power', 'driver-files',
  'driver-service', 'driver-open', 'driver-checksums', 'networks', 'proxy', 'neighbours', 'service-tcp',
  'service-udp', 'service-reply', 'clock'];
/** The findings about power and the driver's adapter in the lab's Windows. */
const kOfTheLab = ['power', 'neighbours'];
const kHidden = '【已隐去】';

scenario('the report of a healthy computer finds everything normal that the lab can provide',
  { start: false }, async (lab) => {
    await layOutFiles(lab);
    const before = (await lab.service.requests()).length;
    const report = await runCheck(lab);
    assert.deepEqual(Object.keys(report.verdicts), kAll);
    for (const id of kAll) {
      if (!kOfTheLab.includes(id)) assert.equal(report.verdicts[id], '正常', `${id}\n${report.part(id)}`);
    }
    assert.match(report.part('driver-open'), /截取句柄已打开（124 个网段）/);
    assert.match(report.part('driver-checksums'), /ICMP：正确\r\n.*TCP：正确\r\n.*UDP：正确/);
    assert.match(report.part('service-udp'), /UDP 通/);
    const asked = (await lab.service.requests()).slice(before).map(({ method, url }) => `${method} ${url}`).sort();
    assert.deepEqual(asked.map((line) => line.replace(/=.*/, '=')), ['GET /', 'GET /api/updates/client?currentVersion=']);
    assert.deepEqual(await readdir(report.folder), ['报告.txt'], 'no log, no other file');
    assert.equal((await lab.driverLog()).match(/^open /gm).length, 2, 'the client opened nothing');
  });

scenario('a report without a file name is written to the desktop', { start: false }, async (lab) => {
  const folder = path.join(lab.workFolder, 'run');
  await mkdir(folder);
  const child = await lab.processes.start('check', lab.prefix.command(lab.prefix.windowsPath(kProgramFile), ['--check']),
    { namespace: lab.network.engineer, env: lab.windowsEnv, cwd: folder });
  assert.equal(await lab.processes.waitForExit(child, 60_000), 0);
  const found = [];
  for (const place of [path.join(lab.prefix.user, 'Desktop'), lab.prefix.temp]) {
    for (const name of await readdir(place).catch(() => [])) {
      if (/^Velmarine\.Check_\d{8}_\d{6}\.txt$/.test(name)) found.push(path.join(place, name));
    }
  }
  for (const file of found) await rm(file);
  assert.equal(found.length, 1);
  assert.deepEqual(await readdir(folder), [], 'no log folder');
});

scenario('a report that cannot be written ends with exit code 1', { start: false }, async (lab) => {
  const child = await lab.processes.start('check',
    lab.prefix.command(lab.prefix.windowsPath(kProgramFile), ['--check', 'C:\\no such folder\\a.txt']),
    { namespace: lab.network.engineer, env: lab.windowsEnv, cwd: lab.workFolder });
  assert.equal(await lab.processes.waitForExit(child, 60_000), 1);
});

/** The files of a folder with their texts. */
const snapshot = async (folder) => Promise.all((await readdir(folder)).sort()
  .map(async (name) => [name, await readFile(path.join(folder, name), 'utf8')]));

const kSecrets = [kDeviceSecret, 'Pumpe-4711-geheim', 'NR 77/88', 'ENG-12345678', '987654321', 'pass wort 1',
  'CONN-9-x', 'alt-geheim-22', 'halb-geheim-33'];

scenario('no key, password or id of the settings, the profiles, a damaged file or the log is in the report',
  { start: false, settings: {
    deviceSecret: kDeviceSecret, deviceNumber: 'NR 77/88', engineerId: 'ENG-12345678', rustDeskId: '987654321',
    rustDeskAccessPassword: 'pass wort 1', connectionId: 'CONN-9-x',
    siteProfiles: [{ name: '水厂', serverUrl: '', deviceNumber: '', deviceSecret: 'Pumpe-4711-geheim', targetNetwork: 'ALL', sharedNetworks: [] }],
  } }, async (lab) => {
    await writeFile(path.join(lab.prefix.roaming, 'Client.settings.damaged-20260101_000000.json'),
      '"deviceSecret":"alt-geheim-22","x":1,"deviceSecret": "halb-geheim-33');
    const folder = path.join(lab.workFolder, 'check');
    await mkdir(path.join(folder, 'Log/202603'), { recursive: true });
    const older = Array.from({ length: 400 }, (_, i) => `[08:00:00] Zeile ${i}`);
    const lines = kSecrets.map((secret) => `[09:00:00] 值：${secret}，${encodeURIComponent(secret)}。`);
    await writeFile(path.join(folder, 'Log/202603/20260301_080000.log'), `${older.join('\r\n')}\r\n`);
    await writeFile(path.join(folder, 'Log/202603/20260302_080000.log'), `${lines.join('\r\n')}\r\n[09:00:01] KEY-UNKNOWN-1 end\r\n`);
    const before = await snapshot(lab.prefix.roaming);
    const { text, verdicts, part } = await runCheck(lab, { folder });
    assert.deepEqual(await snapshot(lab.prefix.roaming), before, 'no settings file was touched');
    for (const secret of [...kSecrets, 'KEY-UNKNOWN-1']) {
      assert.ok(!text.toLowerCase().includes(secret.toLowerCase()), secret);
      assert.ok(!text.includes(encodeURIComponent(secret)), secret);
    }
    assert.ok(text.includes(`[09:00:01] ${kHidden} end\r\n`));
    assert.ok(text.includes('Zeile 399') && !text.includes('Zeile 50\r'), 'the last 300 lines');
    assert.match(part('settings'), /站点档案 1 个/);
    assert.match(part('settings'), /另存了 1 个/);
    assert.equal(verdicts.settings, '提示');
    assert.ok(!text.includes('水厂'));
  });

scenario('a damaged settings file and a missing WebView2 are reported',
  { start: false, settings: '{"engineerId":"ENG-1' }, async (lab) => {
    await lab.prefix.setBrowserRuntime(null, { namespace: lab.network.engineer });
    const { verdicts, part } = await runCheck(lab);
    await lab.prefix.setBrowserRuntime(kBrowserRuntime, { namespace: lab.network.engineer });
    assert.equal(verdicts.settings, '异常');
    assert.match(part('settings'), /设置文件坏了/);
    assert.equal(verdicts.webview2, '异常');
    assert.match(part('webview2'), /没有可用的 WebView2 运行时/);
    assert.equal(verdicts['driver-files'], '异常', 'no client has laid them out');
    assert.match(part('driver-files'), /缺少驱动文件/);
    assert.equal(verdicts['driver-open'], '提示');
    assert.deepEqual(await readdir(lab.prefix.local).catch(() => []), [], 'the check lays nothing out');
  });

scenario('a driver that fails, is foreign or counts wrong is reported', { start: false }, async (lab) => {
  await layOutFiles(lab);
  const blocked = await runCheck(lab, { env: { LAB_WINDIVERT_OPEN_ERROR: '577' } });
  assert.equal(blocked.verdicts['driver-open'], '异常');
  assert.match(blocked.part('driver-open'), /错误 577：系统不接受驱动文件的数字签名/);
  const left = await runCheck(lab, { env: { LAB_WINDIVERT_OPEN_ERROR: '1058', LAB_WINDIVERT_FAIL_OPEN: '1' } });
  assert.equal(left.verdicts['driver-open'], '提示');
  const failing = await runCheck(lab, { env: { LAB_WINDIVERT_FAIL_CHECKSUM: '2' } });
  assert.equal(failing.verdicts['driver-checksums'], '异常');
  assert.match(failing.part('driver-checksums'), /TCP 的校验和不对/);
  const library = path.join(lab.prefix.runtimeFolder, 'WinDivert.dll');
  await cp(library, `${library}.own`);
  await writeFile(library, 'no library');
  const foreign = await runCheck(lab);
  assert.equal(foreign.verdicts['driver-files'], '异常');
  assert.match(foreign.part('driver-files'), /不是本程序自带的/);
  assert.equal(foreign.verdicts['driver-open'], '提示');
  assert.match(foreign.part('driver-open'), /没有试/);
});

scenario('a log folder that is full, nearly full or read-only is reported', { start: false }, async (lab) => {
  const folder = path.join(lab.workFolder, 'check');
  const log = path.join(folder, 'Log');
  await mkdir(log, { recursive: true });
  const withDisk = async (options, body) => {
    await runOrFail(['mount', '-t', 'tmpfs', '-o', options, 'tmpfs', log]);
    try {
      await body();
      await lab.prefix.stopServer();  // the server only knows the disks present at its start
      return await runCheck(lab, { folder, file: path.join(lab.workFolder, '报告.txt') });
    } finally {
      await lab.prefix.stopServer();
      await runOrFail(['umount', log]);
    }
  };
  const small = await withDisk('size=1m', () => {});
  assert.equal(small.verdicts.folders, '异常');
  assert.match(small.part('folders'), /异常：日志文件夹所在的磁盘几乎满了：只剩 [01] MB\r\n办法：/);
  assert.doesNotMatch(small.part('folders'), /不能写入/);
  const full = await withDisk('size=64k', () => writeFile(path.join(log, 'a'), Buffer.alloc(65536)));
  assert.match(full.part('folders'), /异常：日志文件夹不能写入：错误 112/);
  const readOnly = await withDisk('size=64m,ro', () => {});
  assert.match(readOnly.part('folders'), /异常：日志文件夹不能写入：错误 \d+/);
});
