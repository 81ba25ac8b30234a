// HTTP and WebSocket on port 80, as devices' own pages and dashboards use them: Node's HTTP on both sides, and ws.
import { once } from 'node:events';
import http from 'node:http';
import { createRequire } from 'node:module';
import { setTimeout as sleep } from 'node:timers/promises';

import { mustBe, timed, within } from './support/requests.mjs';
import { startEach } from './support/sharing.mjs';

const { WebSocket, WebSocketServer } = createRequire(new URL('../package.json', import.meta.url))('ws');

const kPort = 80;
const kAtOnce = 50;
const kRoundsEach = 5;  // of 50 requests, for each of a caller's rounds fewer
const kPauseMs = 100;

export const title = `HTTP, ${kAtOnce} connections at once`;

/** The page with that number: some thousand bytes that differ from every other page. */
const page = (number) => `page ${number} `.repeat(200 + (number % 150));

async function start(address) {
  const server = http.createServer((request, response) => {
    response.end(page(Number(request.url.slice(1))));
  });
  const sockets = new WebSocketServer({ server });
  sockets.on('connection', (socket) => {
    socket.on('error', () => {});  // the other end reports it
    socket.on('message', (bytes, binary) => socket.send(bytes, { binary }));
  });
  server.listen(kPort, address);
  await once(server, 'listening');
  return { server, sockets };
}

async function stop({ server, sockets }) {
  for (const socket of sockets.clients) socket.terminate();
  sockets.close();
  server.closeAllConnections();
  await new Promise((done) => { server.close(done); });
}

/** One server per address. Returns a function that stops them. */
export async function serve({ addresses }) {
  return startEach(addresses, start, stop);
}

function get(address, number, { agent, timeoutMs }) {
  return new Promise((resolve, reject) => {
    const request = http.get({ host: address, port: kPort, path: `/${number}`, agent, timeout: timeoutMs });
    request.on('timeout', () => request.destroy(new Error(`HTTP: silent for ${timeoutMs} ms`)));
    request.on('error', reject);
    request.on('response', async (response) => {
      try {
        let body = '';
        for await (const bytes of response) body += bytes;
        resolve(body);
      } catch (error) {
        reject(error);
      }
    });
  });
}

/** Fetches many pages at once, each over its own connection. */
export async function use({ address, rounds, timeoutMs }) {
  const agent = new http.Agent({ keepAlive: false, maxSockets: kAtOnce });
  const requestMs = [];
  for (let round = 0; round < Math.ceil(rounds / kRoundsEach); round += 1) {
    await Promise.all(Array.from({ length: kAtOnce }, async (_, place) => {
      const number = round * kAtOnce + place;
      const started = performance.now();
      mustBe(`HTTP, page ${number}`, await get(address, number, { agent, timeoutMs }), page(number));
      requestMs.push(performance.now() - started);
    }));
  }
  return { requestMs, notes: { connections: requestMs.length } };
}

async function echo(socket, text, timeoutMs) {
  const [, [answer]] = await within(timeoutMs, 'WebSocket, answer',
    Promise.all([socket.send(text), once(socket, 'message')]));
  mustBe('WebSocket, answer', answer.toString(), text);
}

/** One WebSocket with an echoed message in each round or, with `hold`, now and then until it is released. */
async function useHeld({ address, rounds, timeoutMs, hold = false, released }) {
  const started = performance.now();
  const socket = new WebSocket(`ws://${address}:${kPort}/`, { handshakeTimeout: timeoutMs, perMessageDeflate: false });
  try {
    await once(socket, 'open');
    const connectMs = performance.now() - started;
    const requestMs = [];
    while (requestMs.length < rounds || (hold && !released.aborted)) {
      requestMs.push(...await timed(1, () => echo(socket, page(requestMs.length), timeoutMs)));
      if (hold) await sleep(kPauseMs);
    }
    socket.close();
    await within(timeoutMs, 'WebSocket, closing', once(socket, 'close'));
    return { requestMs, connectMs, notes: { heldSeconds: (performance.now() - started) / 1000 } };
  } finally {
    socket.terminate();
  }
}

export const variants = [{ title: 'WebSocket, held', use: useHeld, held: true }];
