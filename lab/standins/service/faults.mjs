// Bytes that a relay must not send, written directly to the newest connection without `ws`, and
// handshakes that a relay must not answer with.
import { randomBytes } from 'node:crypto';

export const Opcode = { continuation: 0, text: 1, binary: 2, close: 8, ping: 9, pong: 10 };
const kLimit = 4 << 20;

/** One WebSocket frame as a server sends it (RFC 6455, section 5.2); `mask` adds a client's mask. */
export function frame(opcode, payload, { fin = true, mask = false } = {}) {
  const { length } = payload;
  const head = [(fin ? 0x80 : 0) | opcode];
  const maskBit = mask ? 0x80 : 0;
  if (length < 126) head.push(maskBit | length);
  else if (length < 65536) head.push(maskBit | 126, length >> 8, length & 255);
  else {
    head.push(maskBit | 127);
    for (let shift = 56n; shift >= 0n; shift -= 8n) head.push(Number((BigInt(length) >> shift) & 255n));
  }
  if (!mask) return Buffer.concat([Buffer.from(head), payload]);
  const key = randomBytes(4);
  const masked = Buffer.from(payload.map((byte, i) => byte ^ key[i % 4]));
  return Buffer.concat([Buffer.from(head), key, masked]);
}

const third = (packet) => Math.max(1, Math.floor(packet.length / 3));

/** The bytes of each fault, given one valid packet for the client. */
const kFaults = {
  maskedFrame: (packet) => frame(Opcode.binary, packet, { mask: true }),
  fragmentsWithPings: (packet) => Buffer.concat([
    frame(Opcode.binary, packet.subarray(0, third(packet)), { fin: false }),
    frame(Opcode.ping, Buffer.from('between')),
    frame(Opcode.continuation, packet.subarray(third(packet), 2 * third(packet)), { fin: false }),
    frame(Opcode.ping, Buffer.from('again')),
    frame(Opcode.continuation, packet.subarray(2 * third(packet))),
  ]),
  textFrame: () => frame(Opcode.text, Buffer.from('not a packet')),
  closeInTheMiddle: (packet) => Buffer.concat([
    frame(Opcode.binary, packet, { fin: false }), frame(Opcode.close, Buffer.from([3, 232])),
  ]),
  largestMessage: () => frame(Opcode.binary, Buffer.alloc(kLimit)),
  tooLargeMessage: () => frame(Opcode.binary, Buffer.alloc(kLimit + 1)),
  /** Reserved bits are set and the length is huge, so that no reader may accept it as a frame. */
  garbage: () => Buffer.concat([Buffer.alloc(10, 0xff), randomBytes(4086)]),
  /** As a proxy in front of the relay might answer. */
  httpReply: () => Buffer.from('HTTP/1.1 502 Bad Gateway\r\nContent-Type: text/html\r\n\r\n' +
    '<html><body><h1>502 Bad Gateway</h1>The server returned an invalid response.</body></html>\r\n'),
  closeFrame: () => frame(Opcode.close, Buffer.from([3, 232])),
  unknownOpcode: (packet) => frame(11, packet),
  emptyMessage: () => frame(Opcode.binary, Buffer.alloc(0)),
  hugeLength: () => Buffer.from([0x80 | Opcode.binary, 127, ...Array(8).fill(0x7f)]),
  /** Ends the connection in the middle of a frame. */
  cutInTheMiddle: (packet) => frame(Opcode.binary, packet).subarray(0, 2 + third(packet)),
};

/** Writes the fault `name` onto a relay connection. */
export function writeFault(entry, name, packet) {
  if (!Object.hasOwn(kFaults, name)) throw new Error(`There is no fault ${name}.`);
  const bytes = kFaults[name](packet);
  if (name === 'cutInTheMiddle') entry.socket.end(bytes);
  else entry.socket.write(bytes);
}

/** Bad answers to the upgrade request. */
export const kHandshakes = {
  oversizedHeader: (request, socket) =>
    socket.write(`HTTP/1.1 101 Switching Protocols\r\nX-Filler: ${'x'.repeat(20_000)}`),
  garbage: (request, socket) => socket.end('220 mail.example ready\r\n\r\n'),
  silent: () => {},
  cut: (request, socket) => socket.resetAndDestroy(),
};
