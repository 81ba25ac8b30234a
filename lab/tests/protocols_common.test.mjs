// Vendor-independent protocols between two computers joined by a cable: the lab's tools work without the tunnel,
// and a wrong value is detected.
import assert from 'node:assert/strict';
import { mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';

import { kLabSuffix } from '../harness/paths.mjs';
import { Processes, run, runOrFail } from '../harness/processes.mjs';
import { connectHost } from '../protocols/host.mjs';
import { kWrongAnswer } from '../protocols/support/requests.mjs';

const kLimit = { timeout: 120_000 };
const kRounds = 20;
const kTimeoutMs = 4000;
const kEngineer = '192.0.2.1';
const kSite = ['192.0.2.10', '192.0.2.11'];
const kNames = ['opc_ua', 'bacnet', 'snmp', 'http', 'ftp', 'tftp', 'ssh', 'vnc', 'ntp', 'dns'];
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
    path.join(import.meta.dirname, '../protocols/host.mjs'),
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
  const protocol = await import(`../protocols/${name}.mjs`);
  const all = [protocol, ...(protocol.variants ?? [])];
  test(`${protocol.title}: ${all.length} ways of use, at two addresses at a time`, kLimit, () =>
    served(name, async () => {
      for (const { title, settingNeeded } of all) {
        for (const setting of settingNeeded ? [false, true] : [undefined]) {
          const results = await Promise.all(kSite.map((address) => useOn(name, title, { address, setting })));
          for (const { requestMs } of results) assert.ok(requestMs.length >= kRounds, title);
        }
      }
    }));
}

// ---- wrong values

const kFalsified = '127.0.0.9';  // in the tool's namespace: a server with false answers

/** Uses the protocol through a falsifier with these arguments; use() must fail with `error`. */
async function refuses(name, title, port, words, error) {
  await served(name, async () => {
    const falsifier = await processes.start('falsifier', ['node',
      path.join(import.meta.dirname, 'protocols_falsifier.mjs'), kFalsified, String(port), kSite[0], ...words],
    { namespace: kHosts[1], ready: /ready/ });
    try {
      await assert.rejects(useOn(name, title, { address: kFalsified, setting: true }), error);
    } finally {
      await processes.stop(falsifier);
    }
  });
}

// Values on the wire: OPC UA's doubles little-endian, BACnet's reals and SNMP's integers after their tags.
const hex = (text) => Buffer.from(text).toString('hex');
const kFalse = [
  ['opc_ua', 'OPC UA', 4840, ['000000000000d03f', '000000000000e03f'], /value of .* wanted 0\.25, got 0\.5/],
  ['opc_ua', 'OPC UA subscription', 4840, ['000000000000f03f', '0000000000000040'],
    /notification: wanted 1, got 2/],
  ['bacnet', 'BACnet/IP', 47808, ['443f000000', '443f800000'], /present value: wanted 0\.5, got 1/],
  ['bacnet', 'BACnet/IP change of value', 47808, ['443f400000', '443f800000'],
    /change of value: wanted 0\.75, got 1/],
  ['snmp', 'SNMP v2c', 161, ['020203e8', '020203e9'], /SNMP set: wanted 1000, got 1001/],
  ['http', 'HTTP, 50 connections at once', 80, [hex(' 7 page'), hex(' 8 page')], /HTTP, page 7: wanted page 7 .*page 8/s],
  ['http', 'WebSocket, held', 80, [hex(' 7 page'), hex(' 8 page')], /WebSocket, answer: wanted page 7/],
  ['ntp', 'NTP', 123, ['@35', '1'], /"offset":[+-]?0\.[45]/],
  ['dns', 'DNS by UDP', 53, ['c0000200', 'c0000263'], /wanted 192\.0\.2\.0, got 192\.0\.2\.99/],
  ['dns', 'DNS by TCP', 53, ['c0000200', 'c0000263'], /wanted 192\.0\.2\.0, got 192\.0\.2\.99/],
];
for (const [name, title, port, words, reason] of kFalse) {
  test(`${title}: a value altered in transit is noticed`, kLimit, () =>
    refuses(name, title, port, words, { name: kWrongAnswer, message: reason }));
}

for (const [name, file] of [['ftp', 'ftp'], ['tftp', 'tftp'], ['ssh', 'ssh/files']]) {
  test(`${name}: a file other than the one on site is noticed`, kLimit, () => served(name, async () => {
    const { title } = await import(`../protocols/${name}.mjs`);
    await writeFile(path.join(folder, file, 'firmware.bin'), 'another');
    await assert.rejects(useOn(name, title, { address: kSite[0], megabytes: 1 }),
      { name: kWrongAnswer, message: /firmware\.bin: the bytes differ \(7 came/ });
  }));
}

test('VNC: a wrong picture is noticed', kLimit, () => served('vnc', () =>
  assert.rejects(useOn('vnc', 'VNC', { address: kSite[0] }),
    { name: kWrongAnswer, message: /VNC: another picture/ }),
{ shown: 2 }));

test('SNMP v3: a wrong byte is refused', kLimit, () =>
  refuses('snmp', 'SNMP v3, with passwords', 161, ['@-1', '1'], { message: /digest/i }));

test('a missing server is an error in time', kLimit, async () => {
  for (const name of kNames) {
    const { title } = await import(`../protocols/${name}.mjs`);
    await assert.rejects(useOn(name, title, { address: '192.0.2.99', timeoutMs: 1500 }),
      ({ name: kind }) => kind !== kWrongAnswer, title);
  }
});
