// The service as a separate process, called through its IPC channel.
import assert from 'node:assert/strict';
import { fork } from 'node:child_process';
import { once } from 'node:events';
import { test } from 'node:test';
import { fileURLToPath } from 'node:url';

import { connectService, kMethods, LabService } from '../standins/service/service.mjs';
import { until } from './service_harness.mjs';

const kMain = fileURLToPath(new URL('../standins/service/main.mjs', import.meta.url));
const kLimit = { timeout: 20_000 };

async function withProcess(body) {
  const child = fork(kMain, { silent: true });
  const ended = once(child, 'exit');
  try {
    await body(await connectService(child), child, ended);
  } finally {
    if (child.connected) child.disconnect();
    await ended;
  }
}

test('offers every method of the service to its parent', kLimit, () => withProcess(async (remote) => {
  assert.deepEqual(Object.keys(remote).sort(), [...kMethods].sort());
  assert.ok(kMethods.includes('listen') && !kMethods.includes('constructor'));
  for (const name of kMethods) assert.equal(typeof LabService.prototype[name], 'function');
}));

test('answers HTTP and its parent', kLimit, () => withProcess(async (remote) => {
  const { port } = await remote.listen({});
  await remote.refuseNext({ code: 'DEVICE_OFFLINE', message: '离线' });
  const url = `http://127.0.0.1:${port}/api/connections/request`;
  const reply = await (await fetch(url, { method: 'POST', body: '{}' })).json();
  assert.equal(reply.message, '离线');
  const [request] = await remote.requests({ pathPrefix: '/api/connections' });
  assert.equal(request.body, '{}');
}));

test('passes an error on as a rejection and keeps running', kLimit, () => withProcess(async (remote, child) => {
  await remote.listen({});
  await assert.rejects(remote.writeFault({ name: 'garbage' }), { message: 'There is no relay connection.' });
  child.removeAllListeners('message');
  const foreign = once(child, 'message');
  child.send({ id: 99, method: 'constructor', args: [] });
  assert.deepEqual((await foreign)[0].error, { name: 'Error', message: 'The service has no method constructor.' });
}));

test('ends when its parent disconnects, and calls then fail', kLimit, () => withProcess(async (remote, child, ended) => {
  const { port } = await remote.listen({});
  child.disconnect();
  assert.deepEqual(await ended, [0, null]);
  await assert.rejects(remote.counts(), /has ended/);
  await until(() => fetch(`http://127.0.0.1:${port}/`).then(() => false, () => true));
}));

for (const signal of ['SIGTERM', 'SIGINT']) {
  test(`ends at ${signal} with code 0, including its connections`, kLimit, () => withProcess(async (remote, child, ended) => {
    const { port } = await remote.listen({});
    await remote.setReply({ path: '/slow', delayMs: 60_000 });
    const pending = fetch(`http://127.0.0.1:${port}/slow`).catch(() => 'cut');
    await until(async () => (await remote.requests({ pathPrefix: '/slow' })).length === 1);
    child.kill(signal);
    assert.deepEqual(await ended, [0, null]);
    assert.equal(await pending, 'cut');
  }));
}
