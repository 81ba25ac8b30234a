// Sends one datagram and prints what comes back: [{from, text}].
// Usage: node broadcast.mjs TO PORT SOURCE_PORT TEXT EXPECTED WAIT_MS
import dgram from 'node:dgram';
import { once } from 'node:events';

import { printAnswers } from './answers.mjs';

const [to, port, sourcePort, text, expected, waitMs] = process.argv.slice(2);
const answers = [];
const socket = dgram.createSocket('udp4');
socket.on('message', (bytes, sender) => answers.push({
  from: `${sender.address}:${sender.port}`, text: bytes.toString(),
}));
socket.bind(Number(sourcePort));
await once(socket, 'listening');
socket.setBroadcast(true);
socket.send(text, Number(port), to);
await printAnswers(answers, { expected: Number(expected), waitMs: Number(waitMs) });
