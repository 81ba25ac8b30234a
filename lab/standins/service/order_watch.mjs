// Whether the numbered datagrams of one client's connection arrive in order and without a hole, and
// whether their answers leave in order. Only
// those count that are too large for the UDP path, so that all of a connection's take the WebSocket; a
// sender that uses them must number them without leaving any out (traffic_udp.mjs with large sizes
// alone).
import { kMaxUdpPacketBytes } from './udp_datagrams.mjs';

const kUdp = 17;
const kUdpHeaderBytes = 8;
const kNumberedBytes = 8;  // the sender's run, then the number

/**
 * {run, number} of a large numbered datagram to `port`, or with `portOffset` 0 from it; null for any
 * other packet.
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

  /** `port`: where the numbered datagrams go. */
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

  /** Takes one message for a client, whichever its connection. */
  takeReturned(packet) {
    const found = numberOf(packet, this.#port, 0);
    if (found === null) return;
    const newest = this.#newestReturned.get(found.run) ?? -1;
    if (found.number < newest) this.#sums.returnedOutOfOrder += 1;
    this.#newestReturned.set(found.run, Math.max(newest, found.number));
  }

  /**
   * {connections, messages, outOfOrder, missing, returnedOutOfOrder}: missing are the holes within
   * one connection; what was returned out of order, a receiver may see so.
   */
  sums() { return { ...this.#sums }; }
}
