// Protocols that any maker's devices speak, between two computers that are joined by a cable: what the lab
// shows through the tunnel works at all, and a wrong value does not pass.
import assert from 'node:assert/strict';
import { mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { kLabSuffix } from '../../lab/paths.mjs';
import { Processes, run, runOrFail } from '../../lab/processes.mjs';
import { connectHost } from '../../lab/protocols/host.mjs';

const kLimit = { timeout: 120_000 };
const kRounds = 20;
const kTimeoutMs = 4000;
const kEngineer = '192.0.2.1';
const kSite = ['192.0.2.10', '192.0.2.11'];
const kNames = ['opc_ua', 'bacnet', 'snmp', 'ftp', 'tftp', 'ssh', 'vnc', 'ntp', 'dns'];
const kHosts = ['site', 'tool'].map((host) => `${host}${kLabSuffix}-prot`);

const processes = new Processes();
let folder;
let site;
let tool;

async function joinHosts() {
  for (const host of kHosts) {
    await runOrFail(['ip', 'netns', 'add', host]);
    await runOrFail(['ip', '-n', host, 'link', 'set', 'lo', 'up']);
  }
  await runOrFail(['ip', 'link', 'add', 'lan0', 'netns', kHosts[0],
    'type', 'veth', 'peer', 'name', 'lan0', 'netns', kHosts[1]]);
  const owned = [...kSite.map((address) => [kHosts[0], address]), [kHosts[1], kEngineer]];
  for (const [host, address] of owned) {
    await runOrFail(['ip', '-n', host, 'addr', 'add', `${address}/24`, 'dev', 'lan0']);
  }
  for (const host of kHosts) await runOrFail(['ip', '-n', host, 'link', 'set', 'lan0', 'up']);
}

before(async () => {
  folder = await mkdtemp(path.join(tmpdir(), 'velmarine-protocols-'));
  await joinHosts();
  [site, tool] = kHosts.map((host) => connectHost(processes.fork(host,
    path.join(import.meta.dirname, '../../lab/protocols/host.mjs'),
    { namespace: host, log: path.join(folder, `${host}.log`) }), host));
}, kLimit);

after(async () => {
  await processes.stopAll();
  const left = [];
  for (const host of kHosts) {
    left.push(...(await run(['ip', 'netns', 'pids', host])).stdout.split('\n').filter(Boolean));
    await run(['ip', 'netns', 'del', host]);
  }
  await rm(folder, { recursive: true, force: true });
  assert.deepEqual(left, [], 'processes that outlived their protocol');
}, kLimit);

const useOn = (name, title, options) =>
  tool.use(name, title, { rounds: kRounds, timeoutMs: kTimeoutMs, folder, tunnelAddress: kEngineer, ...options });

async function served(name, body, options = {}) {
  await site.serve(name, { addresses: kSite, folder, ...options });
  try {
    await body();
  } finally {
    await site.end();
  }
}

for (const name of kNames) {
  const protocol = await import(`../../lab/protocols/${name}.mjs`);
  const all = [protocol, ...(protocol.variants ?? [])];
  test(`${protocol.title}: ${all.length} ways of use, at two addresses at a time`, kLimit, () =>
    served(name, async () => {
      for (const { title, settingNeeded } of all) {
        for (const setting of settingNeeded ? [false, true] : [undefined]) {
          const results = await Promise.all(kSite.map((address) => useOn(name, title, { address, setting })));
          for (const { requestMs } of results) assert.equal(requestMs.length, kRounds, title);
        }
      }
    }));
}
