// As client_main.cpp, with the `ws` library: node ws_client.mjs PORT send|receive MESSAGE_BYTES COUNT
import { createRequire } from 'node:module';

const require = createRequire(new URL('../../lab/package.json', import.meta.url));
const WebSocket = require('ws');

const [port, direction, bytes, countText] = process.argv.slice(2);
const count = Number(countText);
const message = Buffer.alloc(Number(bytes), 0x5a);
const kAhead = 4 << 20;  // bytes that may wait in the library, as in the other clients' sockets
const socket = new WebSocket(`ws://127.0.0.1:${port}/`, { perMessageDeflate: false, skipUTF8Validation: true });
let start = 0n;
let left = count;

function finish() {
  console.log((Number(process.hrtime.bigint() - start) / 1e9).toFixed(9));
  socket.terminate();
}

function sendMore() {
  while (left > 0 && socket.bufferedAmount < kAhead) {
    left -= 1;
    socket.send(message);
  }
  if (left > 0) setImmediate(sendMore);
}

socket.on('open', () => {
  if (direction === 'receive') {
    socket.send(Buffer.alloc(1));
    return;
  }
  start = process.hrtime.bigint();
  sendMore();
});
socket.on('message', (data) => {
  if (direction === 'send') return finish();
  if (left === count) start = process.hrtime.bigint();
  if (data.length !== message.length) throw new Error('another message');
  left -= 1;
  if (left === 0) finish();
});
