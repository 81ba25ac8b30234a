// The datagrams between a client and the relay, byte by byte; numbers are big-endian.
//
//   hello             "TNR1", 2, then connection id and engineer id: u16 byte count, UTF-8
//   acknowledgement   "TNR1", 3, the hello's type, u64 token: 14 bytes
//   packet            "TNR1", 4, u64 token, one whole IPv4 packet
//
// A token has eight bytes; outside this file it is their hexadecimal digits.
import { randomBytes } from 'node:crypto';

const kMagic = Buffer.from('TNR1', 'latin1');
export const DatagramType = { hello: 2, acknowledgement: 3, packet: 4 };
export const kNoToken = '0'.repeat(16);
export const kAcknowledgementBytes = 14;
export const kPacketHeaderBytes = 13;
/** Larger packets use the WebSocket, in both directions. */
export const kMaxUdpPacketBytes = 1330;
export const kMaxDatagramBytes = 1400;

const head = (type) => Buffer.concat([kMagic, Buffer.from([type])]);

/** Eight random bytes, not all zero, because zero means none. */
export function newToken() {
  for (;;) {
    const token = randomBytes(8).toString('hex');
    if (token !== kNoToken) return token;
  }
}

export function hello(connectionId, engineerId) {
  const texts = [connectionId, engineerId].map((text) => {
    const bytes = Buffer.from(text, 'utf8');
    return Buffer.concat([Buffer.from([bytes.length >> 8, bytes.length & 255]), bytes]);
  });
  return Buffer.concat([head(DatagramType.hello), ...texts]);
}

export function acknowledgement(helloType, token) {
  return Buffer.concat([head(DatagramType.acknowledgement), Buffer.from([helloType]), Buffer.from(token, 'hex')]);
}

export function packetDatagram(token, packet) {
  return Buffer.concat([head(DatagramType.packet), Buffer.from(token, 'hex'), packet]);
}

function fail(what) { throw new Error(`UDP: ${what}`); }

/** Two texts that must fill `bytes` exactly. */
function parseTexts(bytes) {
  const decoder = new TextDecoder('utf-8', { fatal: true, ignoreBOM: true });
  const texts = [];
  let rest = bytes;
  for (const name of ['connection id', 'engineer id']) {
    if (rest.length < 2) fail(`a hello that ends before the ${name}'s length`);
    const length = rest.readUInt16BE(0);
    if (length > rest.length - 2) fail(`a hello that ends within the ${name}`);
    if (length === 0) fail(`a hello with an empty ${name}`);
    try {
      texts.push(decoder.decode(rest.subarray(2, 2 + length)));
    } catch {
      fail(`a hello whose ${name} is not UTF-8`);
    }
    if (texts.at(-1) !== texts.at(-1).trim()) fail(`a hello whose ${name} is not trimmed`);
    rest = rest.subarray(2 + length);
  }
  if (rest.length > 0) fail(`a hello with ${rest.length} bytes after its texts`);
  return texts;
}

/**
 * A client's datagram: {type: 2, connectionId, engineerId} or {type: 4, token, packet}. Throws for
 * anything else.
 */
export function parseFromClient(bytes) {
  if (bytes.length < 5 || !bytes.subarray(0, 4).equals(kMagic)) fail(`${bytes.length} bytes without the magic`);
  const type = bytes[4];
  if (type === DatagramType.hello) {
    const [connectionId, engineerId] = parseTexts(bytes.subarray(5));
    return { type, connectionId, engineerId };
  }
  if (type !== DatagramType.packet) fail(`a datagram of type ${type}`);
  if (bytes.length <= kPacketHeaderBytes) fail('a packet datagram without a packet');
  const packet = bytes.subarray(kPacketHeaderBytes);
  if (packet.length > kMaxUdpPacketBytes) fail(`a packet of ${packet.length} bytes`);
  return { type, token: bytes.subarray(5, kPacketHeaderBytes).toString('hex'), packet };
}

/** Answers to a hello, right and wrong. Each takes the right token and returns the datagram, or null for none. */
export const kHelloAnswers = {
  proper: (token) => acknowledgement(DatagramType.hello, token),
  none: () => null,
  short: (token) => acknowledgement(DatagramType.hello, token).subarray(0, -1),
  long: (token) => Buffer.concat([acknowledgement(DatagramType.hello, token), Buffer.from([0])]),
  wrongType: (token) => {
    const bytes = acknowledgement(DatagramType.hello, token);
    bytes[4] = 5;
    return bytes;
  },
  wrongMagic: (token) => {
    const bytes = acknowledgement(DatagramType.hello, token);
    bytes[3] = 0x32;
    return bytes;
  },
  zeroToken: () => acknowledgement(DatagramType.hello, kNoToken),
  otherHelloType: (token) => acknowledgement(1, token),
};
