// The program is killed, as by the task manager or a power cut. The next start removes its entries from the proxy
// bypass list, and 断开 then finds nothing to clean up.
import assert from 'node:assert/strict';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

import { kProgramFile } from '../../lab/harness/paths.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { Random } from '../../lab/harness/random.mjs';
import { clickConnect, connect, occurrences, scenario } from './scenario.mjs';

const kBefore = 'localhost;<local>;10.1.*';
const kStarting = '就绪。';
const kStopping = '正在停止软件隧道...';
const kEntries = /192\.168\.77\.\*;10\.10\.0\.\*/;
const kSlowServiceMs = 800;
const kSecondStartMs = 15_000;
const kCleaned = '已清理上次运行遗留的系统代理旁路：';

const seed = Number(process.env.SEED ?? Math.floor(Math.random() * 1e6));

const proxyOverride = (lab) => lab.prefix.proxyOverride({ namespace: lab.network.engineer });

const slowly = (lab, path) => lab.service.setReply({ path, delayMs: kSlowServiceMs });

// Each brings the program into a state and returns the state's duration in milliseconds.
const kMoments = {
  async 'before the connection is granted'(lab, program) {
    await slowly(lab, '/api/connections/request');
    await clickConnect(program);
    await waitUntil('the request', async () =>
      (await lab.service.requests({ pathPrefix: '/api/connections/request' })).length > 0);
    return kSlowServiceMs - 200;
  },
  // Without acknowledged hellos the start takes seconds.
  async 'while the tunnel starts'(lab, program) {
    await lab.service.setUdp({ helloAnswer: 'none' });
    const earlier = (await lab.service.relayAttempts({})).length;
    await clickConnect(program);
    await waitUntil('the relay connection', async () =>
      (await lab.service.relayAttempts({})).length > earlier);
    assert.match(await proxyOverride(lab), kEntries);
    return 2_000;
  },
  async 'while connected'(lab, program) {
    await connect(program);
    assert.match(await proxyOverride(lab), kEntries);
    return 1_500;
  },
  async 'while disconnecting'(lab, program) {
    await connect(program);
    await slowly(lab, '/api/connections/CONN-0001/disconnect');
    await program.click('#c-stop');
    return kSlowServiceMs + 500;
  },
};

/** A start after a run that left `left` on the list: that run's entries are removed, and a line reports it. */
async function startsTidily(lab, left) {
  const program = await lab.startProgram();
  assert.equal(await proxyOverride(lab), kBefore);
  const added = left.split(';').slice(kBefore.split(';').length);
  const line = added.length > 0 ? `${kCleaned}${added.join(';')}\r\n` : kCleaned;
  assert.equal(occurrences(await program.log(), line), added.length > 0 ? 1 : 0, `${left}: ${await program.log()}`);
  return program;
}

/** Clicks 断开 and waits until the job has ended. */
async function disconnect(program) {
  await program.click('#c-stop');
  await waitUntil('the outcome of 断开', async () =>
    ![kStarting, kStopping].includes(await program.statusLine()));
}

scenario(`a run killed at any moment leaves nothing on the list after the next start (seed ${seed})`, {},
  async (lab, program, t) => {
    const random = new Random(seed);
    await lab.prefix.setProxyOverride(kBefore, { namespace: lab.network.engineer });
    let running = program;
    for (const [name, reach] of Object.entries(kMoments)) {
      const lastsMs = await reach(lab, running);
      const afterMs = random.integer(0, lastsMs);
      await sleep(afterMs);
      await running.kill();
      const left = await proxyOverride(lab);
      t.diagnostic(`killed ${afterMs} ms into "${name}": ${left}`);

      await lab.service.resetReplies();
      await lab.service.setUdp({ helloAnswer: 'proper' });
      running = await startsTidily(lab, left);
      await disconnect(running);
      assert.equal(await proxyOverride(lab), kBefore, `${name}, after ${afterMs} ms`);
      assert.equal((await lab.prefix.readSettings()).routesText, '');
    }
  });

// Notifying other programs takes long if one of them does not answer; the kill happens during that time.
scenario('a run killed while it adds to the list leaves nothing on it after the next start', {},
  async (lab, program) => {
    const { engineer: namespace } = lab.network;
    await lab.prefix.setProxyOverride(kBefore, { namespace });
    const heard = await lab.desktop.startSettingWatch({ busyMs: 20_000 });
    await clickConnect(program);
    await waitUntil('the programs told', () => heard().length > 0);
    await program.kill();
    const left = await proxyOverride(lab);
    assert.match(left, kEntries);

    // The other program, which still does not answer, does not delay the start.
    const next = await startsTidily(lab, left);
    await disconnect(next);
    assert.equal(await proxyOverride(lab), kBefore);
    assert.equal((await lab.service.requests({ pathPrefix: '/api/connections/CONN-0001/disconnect' })).length, 1);
  });

// 10.10.0.* was already on the list before the connection, which needs it too.
scenario("the user's own entries stay on the list after a kill, and each leftover is reported once", {},
  async (lab, program) => {
    const { engineer: namespace } = lab.network;
    await lab.prefix.setProxyOverride('localhost;10.10.0.*', { namespace });
    await connect(program);
    assert.equal(await proxyOverride(lab), 'localhost;10.10.0.*;192.168.77.*');
    await lab.prefix.setProxyOverride('localhost;10.10.0.*;192.168.77.*;intern', { namespace });
    await program.kill();

    const next = await lab.startProgram();
    assert.equal(await proxyOverride(lab), 'localhost;10.10.0.*;intern');
    assert.equal(occurrences(await next.log(), `${kCleaned}192.168.77.*\r\n`), 1);
    await next.kill();
    const third = await lab.startProgram();
    assert.equal(occurrences(await third.log(), kCleaned), 0);
    assert.equal(await proxyOverride(lab), 'localhost;10.10.0.*;intern');
  });

scenario("a second start keeps the running program's entries", {}, async (lab, program) => {
  const { engineer: namespace } = lab.network;
  await lab.prefix.setProxyOverride(kBefore, { namespace });
  await connect(program);
  const connected = await proxyOverride(lab);
  assert.match(connected, kEntries);
  const second = await lab.processes.start('second start', lab.prefix.command(lab.prefix.windowsPath(kProgramFile)),
    { namespace, env: lab.windowsEnv, cwd: program.folder, log: path.join(lab.artifacts, 'second-start.log') });
  assert.equal(await lab.processes.waitForExit(second, kSecondStartMs), 0);
  assert.equal(await proxyOverride(lab), connected);
  await program.click('#c-stop');
  await program.waitForText('#c-statusline', /远程调试会话已断开。/);
  assert.equal(await proxyOverride(lab), kBefore);
});

scenario('a tunnel that does not start leaves nothing on the list', {}, async (lab, program) => {
  const { engineer: namespace } = lab.network;
  await lab.prefix.setProxyOverride('localhost', { namespace });
  await lab.service.refuseUpgrade({ status: 503 });
  await clickConnect(program);
  await program.waitForLog('Error: WebSocket HTTP upgrade failed, status 503');
  assert.equal(await proxyOverride(lab), 'localhost');
});
