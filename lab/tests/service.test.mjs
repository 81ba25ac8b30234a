// The lab's service, HTTP side: its record and its scripted answers.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import net from 'node:net';
import { once } from 'node:events';

import { each, until } from './service_harness.mjs';

each('grants a connection and records the request', async ({ service, post }) => {
  const grant = { connectionId: 'C7', assignedAddress: '10.88.0.9/24', routes: ['10.0.0.0/8'] };
  service.setGrant(grant);
  const reply = await (await post('/api/connections/request', '{"a":"密钥"}')).json();
  assert.deepEqual(reply, { success: true, code: '', message: '', data: grant });
  const [request] = service.requests({ pathPrefix: '/api/connections' });
  assert.equal(request.body, '{"a":"密钥"}');
  assert.equal(request.method, 'POST');
  assert.equal(request.url, '/api/connections/request');
});

each('numbers its grants on request, and lists all of them', async ({ service, post }) => {
  const grant = { connectionId: 'C', assignedAddress: '10.88.0.9', routes: ['10.0.0.0/8'] };
  const connect = async () => (await (await post('/api/connections/request')).json()).data?.connectionId;
  service.setGrant(grant, { numbered: true });
  const ids = [await connect(), await connect()];
  service.refuseNext({ code: 'DEVICE_OFFLINE' });
  assert.equal(await connect(), undefined);
  service.setReply({ path: '/api/connections/request', delayMs: 1, times: 1 });
  ids.push(await connect());
  assert.equal(new Set(ids).size, 3);
  for (const [index, id] of ids.entries()) assert.match(id, new RegExp(`^C-\\d+-${index + 1}$`));
  assert.deepEqual(service.granted(), ids);
  service.setGrant(grant);
  assert.equal(await connect(), 'C');
  assert.deepEqual(service.granted(), [...ids, 'C']);
});

const kOwnReplies = [
  ['POST', '/api/connections/request', 200, (data) => data.routes.length === 1],
  ['POST', '/api/connections/C%201/disconnect', 200, (data) => data === null],
  ['POST', '/api/devices/resolve', 200, (data) => data.deviceNumber && data.sharedNetworks.length === 1],
  ['POST', '/api/devices/DEV%201/remote-desktop/session', 200, (data) => data.rustDeskId && data.accessPassword],
  ['GET', '/api/updates/client?currentVersion=1.0.4', 200, (data) => data.updateAvailable === false],
  ['GET', '/api/connections/request', 404, (data) => data === null],
  ['POST', '/nowhere', 404, (data) => data === null],
];
for (const [method, path, status, isRight] of kOwnReplies) {
  each(`answers ${method} ${path} with ${status} and an envelope`, async ({ request }) => {
    const response = await request(path, { method });
    assert.equal(response.status, status);
    assert.match(response.headers.get('content-type'), /^application\/json; charset=utf-8$/);
    const { success, data } = await response.json();
    assert.equal(success, status === 200);
    assert.ok(isRight(data), JSON.stringify(data));
  });
}

each('refuses the given number of times, then grants', async ({ service, post }) => {
  service.refuseNext({ code: 'DEVICE_OFFLINE', message: '离线', times: 2 });
  const replies = [];
  for (let i = 0; i < 3; i += 1) {
    const { success, code, message } = await (await post('/api/connections/request')).json();
    replies.push([success, code, message]);
  }
  assert.deepEqual(replies, [
    [false, 'DEVICE_OFFLINE', '离线'], [false, 'DEVICE_OFFLINE', '离线'], [true, '', '']]);
});

each('answers with scripted status, headers, body and delay until reset', async ({ service, post }) => {
  const body = '<html>';
  service.setReply({
    path: '/api/devices', status: 502, headers: { 'Content-Type': 'text/html' }, body, delayMs: 120 });
  const started = performance.now();
  const reply = await post('/api/devices/resolve');
  assert.ok(performance.now() - started > 110);
  assert.equal(reply.status, 502);
  assert.match(reply.headers.get('content-type'), /^text\/html/);
  assert.equal(await reply.text(), body);
  assert.equal((await post('/api/devices/resolve')).status, 502);
  assert.equal((await post('/api/connections/request')).status, 200, 'another path');
  service.resetReplies();
  assert.equal((await post('/api/devices/resolve')).status, 200);
});

each('resolves the given devices by their keys, and no others', async ({ service, request }) => {
  const device = { deviceSecret: 'KEY-1', deviceNumber: 'DEV-1', deviceName: '水厂', sharedNetworks: [] };
  service.setDevices([device]);
  const resolve = async (deviceSecret) => (await request('/api/devices/resolve',
    { method: 'POST', body: JSON.stringify({ deviceSecret }) })).json();
  const { deviceSecret, ...known } = device;
  assert.deepEqual(await resolve(deviceSecret), { success: true, code: '', message: '', data: known });
  assert.deepEqual(await resolve('KEY-2'),
    { success: false, code: 'DEVICE_NOT_FOUND', message: '密钥无效', data: null });
});

each('grants the given desktop session', async ({ service, post }) => {
  for (const desktop of [{ rustDeskId: '7', server: { key: 'K=' } }, 'no object', null]) {
    service.setDesktop(desktop);
    const reply = await (await post('/api/devices/DEV%201/remote-desktop/session')).json();
    assert.deepEqual(reply, { success: true, code: '', message: '', data: desktop });
  }
});

each('sends a local file, and truncates it on request', async ({ service, request }) => {
  const bytes = await readFile(process.execPath);
  service.setReply({ path: '/node', file: process.execPath, headers: { 'content-type': 'application/octet-stream' } });
  const response = await request('/node');
  assert.equal(response.headers.get('content-type'), 'application/octet-stream');
  assert.ok(bytes.equals(Buffer.from(await response.arrayBuffer())));
  service.setReply({ path: '/node', file: process.execPath, truncateTo: 1000 });
  await assert.rejects(async () => (await request('/node')).arrayBuffer());
});

each('delays its own reply', async ({ service, post }) => {
  service.setReply({ path: '/api/connections/request', delayMs: 120, times: 1 });
  const started = performance.now();
  assert.equal((await (await post('/api/connections/request')).json()).success, true);
  assert.ok(performance.now() - started > 110);
});

each('holds a reply until it is released', async ({ service, post }) => {
  service.setReply({ path: '/api/connections/request', hold: true, times: 1 });
  let isAnswered = false;
  const answered = post('/api/connections/request').then((reply) => { isAnswered = true; return reply; });
  assert.equal((await post('/api/devices/resolve')).status, 200, 'others are answered');
  assert.equal(isAnswered, false);
  service.releaseReplies();
  assert.equal((await (await answered).json()).success, true);
  assert.equal((await post('/api/connections/request')).status, 200, 'the next is not held');
});

each('survives a client that does not wait for a delayed reply', async ({ service, request, post }) => {
  service.setReply({ path: '/slow', delayMs: 60, cut: true });
  await assert.rejects(request('/slow', { signal: AbortSignal.timeout(20) }));
  await until(() => service.requests({ pathPrefix: '/slow' }).length === 1);
  await new Promise((resolve) => { setTimeout(resolve, 80); });
  assert.equal((await post('/api/devices/resolve')).status, 200);
});

each('cuts a connection and writes raw bytes', async ({ service, port, post }) => {
  service.setReply({ path: '/cut', cut: true });
  await assert.rejects(post('/cut'));
  service.setReply({ path: '/raw', raw: 'nothing like HTTP\r\n\xff' });
  const socket = net.connect(port, '127.0.0.1');
  socket.write('GET /raw HTTP/1.1\r\nHost: x\r\n\r\n');
  const parts = [];
  for await (const part of socket) parts.push(part);
  assert.equal(Buffer.concat(parts).toString('latin1'), 'nothing like HTTP\r\n\xff');
});

each('states the whole length and ends in the middle of the body', async ({ service, port }) => {
  service.setReply({ path: '/short', body: '0123456789', truncateTo: 4 });
  const socket = net.connect(port, '127.0.0.1');
  socket.write('GET /short HTTP/1.1\r\nHost: x\r\n\r\n');
  const parts = [];
  for await (const part of socket) parts.push(part);
  const [head, body] = Buffer.concat(parts).toString().split('\r\n\r\n');
  assert.match(head, /content-length: 10\b/i);
  assert.equal(body, '0123');
});

each('finds requests by path, method and time', async ({ service, request, post }) => {
  await post('/api/devices/resolve', 'a');
  await request('/api/devices/resolve');
  await post('/api/updates/client', 'b');
  const all = service.requests();
  assert.equal(all.length, 3);
  assert.ok(all[0].timeMs <= all[1].timeMs && all[1].timeMs <= all[2].timeMs);
  assert.deepEqual(service.requests({ method: 'GET' }), [all[1]]);
  assert.deepEqual(service.requests({ pathPrefix: '/api/devices', method: 'POST' }), [all[0]]);
  assert.deepEqual(service.requests({ sinceMs: all[2].timeMs }), [all[2]]);
});

each('stops listening, which refuses connections, and resumes on the same port', async ({ service, port, post }) => {
  await service.stopListening();
  const [error] = await once(net.connect(port, '127.0.0.1'), 'error');
  assert.equal(error.code, 'ECONNREFUSED');
  await service.resumeListening();
  assert.equal((await post('/api/devices/resolve')).status, 200);
});
