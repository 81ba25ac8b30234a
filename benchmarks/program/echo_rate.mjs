// Counts how many small datagrams per second an echo service returns, with a fixed number in flight.
// Usage: node echo_rate.mjs ADDRESS SECONDS   (the echo service's port is 7; packets are of 64 bytes)
// Prints {"answered", "perSecond", "lost"}.
import dgram from 'node:dgram';
import { once } from 'node:events';

const kPort = 7;
const kUnderWay = 64;
const kPayloadBytes = 36;  // with the headers of IPv4 and UDP 64
const kSocketBytes = 4 << 20;
const kLostMs = 500;

const [address, seconds] = process.argv.slice(2);
const socket = dgram.createSocket({ type: 'udp4', recvBufferSize: kSocketBytes, sendBufferSize: kSocketBytes });
const payload = Buffer.alloc(kPayloadBytes, 0x55);
let answers = 0;
let lost = 0;
let lastMs = 0;
const send = () => socket.send(payload, kPort, address);

socket.bind(0);
await once(socket, 'listening');
socket.on('message', () => {
  answers += 1;
  lastMs = performance.now();
  send();
});
const began = performance.now();
const refill = () => { for (let i = 0; i < kUnderWay; i += 1) send(); };
refill();
const timer = setInterval(() => {
  const now = performance.now();
  if (now - began >= Number(seconds) * 1000) {
    clearInterval(timer);
    socket.close();
    console.log(JSON.stringify({ answered: answers, perSecond: (answers * 1000) / (now - began), lost }));
  } else if (now - lastMs > kLostMs) {
    lost += kUnderWay;
    refill();
  }
}, 50);
