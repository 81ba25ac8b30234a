// 桌面 points every RustDesk of the computer at the service's own servers.
import assert from 'node:assert/strict';
import { mkdir, readFile, rm, stat, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { runOrFail } from '../../lab/harness/processes.mjs';
import { opensRustDesk } from './desktop.mjs';
import { scenario } from './scenario.mjs';

const kSmallBytes = 900_000;  // the size of an installed program is not checked
const kOpened = '远程桌面已打开：777。';

const kServer = {
  rendezvousServer: 'rd.例.example:21116', relayServer: 'a\\b\'c"d', apiServer: 'http://10.10.0.1:21114',
  key: 'pQ+/9=\'\\', windowsDownloadUrl: '',
};
const kConfig = `rendezvous_server = 'rd.例.example:21116'

[options]
custom-rendezvous-server = 'rd.例.example:21116'
relay-server = 'a\\\\b\\'c"d'
key = 'pQ+/9=\\'\\\\'
api-server = 'http://10.10.0.1:21114'
`;

/** Other answers of a service, and the resulting files; undefined: unchanged. */
const kOtherServers = [
  [{ rendezvousServer: 'rd2' }, `rendezvous_server = 'rd2'

[options]
custom-rendezvous-server = 'rd2'
relay-server = ''
key = ''
`],
  [{ ...kServer, rendezvousServer: '' }],
  [{ ...kServer, rendezvousServer: 21116 }],
  [undefined],
  ['rd3'],
  [[kServer]],
  [{ rendezvousServer: 'rd4', relayServer: 5, key: null, apiServer: ['x'] }, `rendezvous_server = 'rd4'

[options]
custom-rendezvous-server = 'rd4'
relay-server = ''
key = ''
`],
];

async function opens(lab, program, server) {
  await lab.service.setDesktop({ rustDeskId: '777', server });
  await opensRustDesk(lab, program, kOpened);
}

/** Every possible configuration file has these bytes, except those in `exceptions`. */
async function allHold(lab, config, exceptions = []) {
  const files = await lab.rustDesk.configFiles();
  for (const [name, file] of Object.entries(files)) {
    if (exceptions.includes(name)) continue;
    assert.equal((await readFile(file)).toString('latin1'), Buffer.from(config).toString('latin1'), file);
  }
  return Object.values(files);
}

const changeTimes = (files) => Promise.all(files.map(async (file) => (await stat(file)).mtimeMs));

/** Replaces one user's file by a folder, and a service account's folder by a file. */
async function unwritableOnesArePassedOver(lab, program) {
  const { 工程师二: user, LocalService: service } = await lab.rustDesk.configFiles();
  await rm(user);
  await mkdir(user);
  await rm(path.dirname(service), { recursive: true });
  await writeFile(path.dirname(service), 'in the way');
  await opens(lab, program, { rendezvousServer: 'rd5', apiServer: 'x' });
  await allHold(lab, kOtherServers[0][1].replaceAll('rd2', 'rd5') + "api-server = 'x'\n", ['工程师二', 'LocalService']);
  assert.equal(await readFile(path.dirname(service), 'utf8'), 'in the way');
}

scenario("桌面 rewrites every RustDesk configuration of the computer with the service's servers",
  { start: false }, async (lab) => {
    for (const user of ['Ops', '工程师二', '中间', 'zz last']) await lab.rustDesk.addUser(user);
    const saved = path.join(lab.workFolder, '便携 工具/my desk.exe');
    await lab.rustDesk.putFile(saved, { bytes: kSmallBytes });
    await lab.rustDesk.install('C:\\Program Files\\RustDesk\\rustdesk.exe');
    await lab.rustDesk.plan({ lifeMs: 3000 });
    const { Ops } = await lab.rustDesk.configFiles();
    await mkdir(path.dirname(Ops), { recursive: true });
    await writeFile(Ops, `rendezvous_server = 'public.example'\n${'old = 1\n'.repeat(100)}`);
    const rustDeskPath = lab.prefix.windowsPath(saved);
    await lab.writeSettings({ deviceNumber: 'DEV-7', rustDeskPath });
    const program = await lab.startProgram();

    await opens(lab, program, kServer);
    const [{ commandLine }] = await lab.rustDesk.events({ event: 'started' });
    assert.equal(commandLine, `"${rustDeskPath}" "--connect" "777"`, 'the program used last goes before all');
    const files = await allHold(lab, kConfig);
    assert.equal(files.length, 8, 'six users and two service accounts');
    const { stdout } = await runOrFail(['find', path.join(lab.prefix.folder, 'drive_c'), '-iname', 'RustDesk2.toml*']);
    assert.deepEqual(stdout.trim().split('\n').sort(), files.toSorted());

    let config = kConfig;
    for (const [server, text] of kOtherServers) {
      const before = await changeTimes(files);
      await opens(lab, program, server);
      config = text ?? config;
      await allHold(lab, config);
      if (text === undefined) assert.deepEqual(await changeTimes(files), before, 'nothing is written');
    }
    await unwritableOnesArePassedOver(lab, program);
  });
