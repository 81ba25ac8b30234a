// The service's HTTP interface: records every request, then answers it by Replies.
import { readFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

import express from 'express';

const kTrickleBytes = 1024;

/** An express application over `record` and `replies`. */
export function httpApi(record, replies) {
  const app = express();
  app.disable('x-powered-by');
  app.disable('etag');
  app.use(express.text({ type: () => true, limit: '8mb' }));
  app.use(async (request, response) => {
    const body = typeof request.body === 'string' ? request.body : '';
    record.addRequest({ method: request.method, url: request.originalUrl, headers: request.headers, body });
    await answer(response, replies.take({ method: request.method, path: request.path, body }));
  });
  return app;
}

async function answer(response, reply) {
  if (reply.delayMs) await sleep(reply.delayMs);
  await reply.held;
  const { socket } = response;
  if (!socket) return;  // the client has disconnected
  if (reply.cut) {
    socket.destroy();
    return;
  }
  if (reply.raw !== undefined) {
    socket.end(Buffer.from(reply.raw, 'latin1'));
    return;
  }
  const body = reply.file === undefined ? Buffer.from(reply.body ?? '', 'utf8') : await readFile(reply.file);
  response.status(reply.status);
  response.set({ 'content-type': 'application/json; charset=utf-8', ...reply.headers });
  if (reply.trickleMs !== undefined) {
    await trickle(response, body, reply.trickleMs);
    return;
  }
  if (reply.truncateTo === undefined) {
    response.end(body);
    return;
  }
  response.set('content-length', String(body.length));
  response.flushHeaders();
  response.write(body.subarray(0, reply.truncateTo), () => socket.destroy());
}

async function trickle(response, body, everyMs) {
  response.set('content-length', String(body.length));
  for (let at = 0; at < body.length && !response.destroyed; at += kTrickleBytes) {
    response.write(body.subarray(at, at + kTrickleBytes));
    await sleep(everyMs);
  }
  response.end();
}
