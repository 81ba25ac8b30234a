// Checks that the numbered datagrams of one client's connection arrive in order and without gaps, and
// that their answers leave in order. Only datagrams too large for the UDP path count, because all of
// these use the WebSocket. The sender must number them without gaps (traffic_udp.mjs with only large
// sizes).
import { kMaxUdpPacketBytes } from './udp_datagrams.mjs';

const kUdp = 17;
const kUdpHeaderBytes = 8;
const kNumberedBytes = 8;  // the sender's run, then the number

/**
 * {run, number} of a large numbered datagram to `port` (with `portOffset` 0: from it); null for any other
 * packet.
 */
function numberOf(packet, port, portOffset = 2) {
  if (packet.length <= kMaxUdpPacketBytes || packet[0] >> 4 !== 4 || packet[9] !== kUdp) return null;
  const headerBytes = (packet[0] & 15) * 4;
  const payload = headerBytes + kUdpHeaderBytes;
  if (packet.length < payload + kNumberedBytes ||
      packet.readUInt16BE(headerBytes + portOffset) !== port) {
    return null;
  }
  return { run: packet.readUInt32BE(payload), number: packet.readUInt32BE(payload + 4) };
}

export class OrderWatch {
  #port;
  #last = new WeakMap();  // by connection: the newest number of each run
  #newestReturned = new Map();  // by run
  #sums = { connections: 0, messages: 0, outOfOrder: 0, missing: 0, returnedOutOfOrder: 0 };

  /** `port` is the destination of the numbered datagrams. */
  constructor(port) { this.#port = port; }

  /** Takes one message of `connection`, any object. */
  take(connection, packet) {
    const found = numberOf(packet, this.#port);
    if (found === null) return;
    if (!this.#last.has(connection)) {
      this.#last.set(connection, new Map());
      this.#sums.connections += 1;
    }
    const runs = this.#last.get(connection);
    const last = runs.get(found.run);
    this.#sums.messages += 1;
    if (last !== undefined && found.number <= last) this.#sums.outOfOrder += 1;
    else {
      if (last !== undefined) this.#sums.missing += found.number - last - 1;
      runs.set(found.run, found.number);
    }
  }

  /** Takes one message for a client, on any connection. */
  takeReturned(packet) {
    const found = numberOf(packet, this.#port, 0);
    if (found === null) return;
    const newest = this.#newestReturned.get(found.run) ?? -1;
    if (found.number < newest) this.#sums.returnedOutOfOrder += 1;
    this.#newestReturned.set(found.run, Math.max(newest, found.number));
  }

  /**
   * {connections, messages, outOfOrder, missing, returnedOutOfOrder}: `missing` are gaps within one
   * connection; a receiver may see those returned out of order as reordered.
   */
  sums() { return { ...this.#sums }; }
}
