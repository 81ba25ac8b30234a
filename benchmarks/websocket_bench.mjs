// Compares the relay connection with Boost.Beast and the `ws` library: messages of three sizes, sending and
// receiving, over loopback. Prints JSON as Google Benchmark does: nanoseconds per message, medians.
//
// The server is the same for all and cheaper than any client: it neither parses nor masks anything, but counts the expected
// bytes, or sends prepared frames, 64 KiB at a time. Every client is a process of its own; each round measures every figure
// of every client in turn.
import { execFile } from 'node:child_process';
import { createHash } from 'node:crypto';
import { once } from 'node:events';
import { createServer } from 'node:net';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

import { kBuild } from '../lab/harness/paths.mjs';
import { median } from './medians.mjs';

const kRounds = 5;
const kSliceBytes = 65536;
const kMostMessages = 400_000;
const kBytes = 400_000_000;  // per measurement, at most
const kTimeoutMs = 60_000;
const kSizes = [64, 1400, 65536];
const here = path.dirname(fileURLToPath(import.meta.url));
const program = path.join(kBuild, 'bench/benchmarks/websocket/websocket_client');
const kClients = [
  { name: 'WebSocket', command: [program, 'own'] },
  { name: 'Beast', command: [program, 'beast'] },
  { name: 'WsLibrary', command: [process.execPath, path.join(here, 'websocket/ws_client.mjs')] },
];

const countOf = (size) => Math.min(kMostMessages, Math.floor(kBytes / size));

/** A frame as a server writes it. */
function serverFrame(payload) {
  const { length } = payload;
  const header = Buffer.alloc(length < 126 ? 2 : length < 65536 ? 4 : 10);
  header[0] = 0x82;
  header[1] = length < 126 ? length : length < 65536 ? 126 : 127;
  if (header.length === 4) header.writeUInt16BE(length, 2);
  if (header.length === 10) header.writeBigUInt64BE(BigInt(length), 2);
  return Buffer.concat([header, payload]);
}

/** Bytes that a client sends for a payload of that length: a server's header and a key of four bytes. */
const clientBytes = (length) => serverFrame(Buffer.alloc(length)).length + 4;

/** Resolves with the bytes that arrived behind the request. */
async function upgrade(socket) {
  let text = '';
  while (!text.includes('\r\n\r\n')) text += (await once(socket, 'data'))[0].toString('latin1');
  const key = /^Sec-WebSocket-Key: *(.*?)\r$/im.exec(text)[1];
  const accept = createHash('sha1').update(`${key}258EAFA5-E914-47DA-95CA-C5AB0DC85B11`).digest('base64');
  socket.write(`HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Accept: ${accept}\r\n\r\n`);
}

async function take(socket, bytes) {
  for (let left = bytes; left > 0;) left -= (await once(socket, 'data'))[0].length;
}

async function sendAll(socket, size, count) {
  const frame = serverFrame(Buffer.alloc(size, 0x5a));
  const together = Math.max(1, Math.floor(kSliceBytes / frame.length));
  const slice = Buffer.concat(new Array(together).fill(frame));
  for (let left = count; left > 0; left -= together) {
    const now = left < together ? slice.subarray(0, left * frame.length) : slice;
    if (!socket.write(now)) await once(socket, 'drain');
  }
}

/** The other end of one measurement. */
async function serve(socket, { direction, size, count }) {
  socket.setNoDelay(true);
  socket.on('error', () => {});  // a client that has its figure closes without a handshake
  await upgrade(socket);
  if (direction === 'send') {
    await take(socket, count * clientBytes(size));
    socket.write(serverFrame(Buffer.from('all')));
  } else {
    await take(socket, clientBytes(1));
    await sendAll(socket, size, count);
  }
}

async function measure(server, client, direction, size) {
  const count = countOf(size);
  const served = once(server, 'connection').then(([socket]) => serve(socket, { direction, size, count }));
  const [file, ...args] = [...client.command, server.address().port, direction, size, count].map(String);
  const [{ stdout }] = await Promise.all([promisify(execFile)(file, args, { timeout: kTimeoutMs }), served]);
  return Number(stdout) / count * 1e9;
}

const server = createServer();
server.listen(0, '127.0.0.1');
await once(server, 'listening');
const figures = kSizes.flatMap((size) => ['send', 'receive'].flatMap((direction) => kClients.map((client) => (
  { client, direction, size, rounds: [], label: `${direction === 'send' ? 'Send' : 'Receive'}/${size}` }))));
for (let round = 0; round < kRounds; round += 1) {
  for (const figure of figures) figure.rounds.push(await measure(server, figure.client, figure.direction, figure.size));
}
server.close();
console.log(JSON.stringify({ benchmarks: figures.map(({ client, label, rounds }) => ({
  run_name: client.name + label, aggregate_name: 'median', real_time: median(rounds), time_unit: 'ns',
  ...(client.name !== 'WebSocket' && { anchor: `WebSocket${label}` }) })) }));
process.exit();
