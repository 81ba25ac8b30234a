// The WebSocket relay: one connection per client, one raw IPv4 packet per binary message. Packets are
// forwarded to the site as UDP datagrams; replies go to the client with their destination address.
import { WebSocketServer } from 'ws';

import { frame, Opcode } from './faults.mjs';
import { nowMs } from './record.mjs';

const kPath = /^\/api\/relay\/client\/([^/?]+)\?engineerId=([^&]+)$/;
const kPingMs = 3000;  // the client gives up a relay that is silent for 8 s
const kWaitingBytes = 8 << 20;
const kDestination = 16;  // offset of the destination in an IPv4 header (RFC 791, section 3.1)

/** The destination of an IPv4 packet in dotted form; null for anything else. */
function destinationOf(packet) {
  if (packet.length < 20 || packet[0] >> 4 !== 4) return null;
  return packet.subarray(kDestination, kDestination + 4).join('.');
}

export class Relay {
  #record;
  #toSite;
  #addressOf;
  #udp;
  #server = new WebSocketServer({
    noServer: true, perMessageDeflate: false, maxPayload: 16 << 20, clientTracking: false,
  });
  #clients = new Set();
  #pingTimer;
  upgrade = { refuseStatus: null, answer: null };
  isSilent = false;
  /** The most that waits for a client that does not read, besides the system's buffers; the rest is dropped. */
  waitingBytes = kWaitingBytes;
  /** An OrderWatch, or null. */
  order = null;
  /** A packet to send in one piece with the response to the next handshake; null: none. */
  firstPacket = null;

  /**
   * `toSite(packet)` receives the clients' packets; `addressOf(connectionId)` returns the granted address;
   * `udp` is the UDP side.
   */
  constructor(record, { toSite, addressOf, udp }) {
    this.#record = record;
    this.#toSite = toSite;
    this.#addressOf = addressOf;
    this.#udp = udp;
    this.#pingTimer = setInterval(() => this.#ping(), kPingMs);
    this.#pingTimer.unref();
  }

  /** Answers one upgrade request of the HTTP server. */
  handleUpgrade(request, socket, head) {
    const match = kPath.exec(request.url);
    const status = this.upgrade.refuseStatus ?? (match ? 101 : 404);
    this.#record.addAttempt({ url: request.url, headers: request.headers, status });
    socket.on('error', () => {});
    if (this.upgrade.answer !== null) {
      this.upgrade.answer(request, socket);
      return;
    }
    if (status !== 101) {
      socket.end(`HTTP/1.1 ${status} Refused\r\nContent-Length: 0\r\nConnection: close\r\n\r\n`);
      return;
    }
    socket.setNoDelay(true);
    socket.cork();
    this.#server.handleUpgrade(request, socket, head, (client) => this.#adopt(client, socket, match));
    socket.uncork();
  }

  #adopt(client, socket, [, connectionId, engineerId]) {
    const entry = {
      client, socket, connectionId: decodeURIComponent(connectionId),
      engineerId: decodeURIComponent(engineerId), sinceMs: nowMs(),
    };
    entry.address = this.#addressOf(entry.connectionId);
    if (this.firstPacket !== null) {
      socket.write(frame(Opcode.binary, this.firstPacket));
      this.firstPacket = null;
    }
    this.#clients.add(entry);
    client.on('message', (data, isBinary) => {
      if (!isBinary) return;
      this.#record.addPacket('fromClient', data, 'webSocket');
      this.#udp.noteWebSocketPacket(entry.connectionId, data);
      this.order?.take(entry, data);
      if (!this.isSilent) this.#toSite(data);
    });
    client.on('error', (error) => this.#record.addProtocolError(error.message));
    client.on('close', () => this.#clients.delete(entry));
  }

  #ping() {
    if (this.isSilent) return;
    for (const { client } of this.#clients) client.ping();
  }

  /**
   * Sends a packet from the site to the newest connection with its destination address. A connection
   * whose id was never granted has no address and gets every IPv4 packet.
   */
  fromSite(packet) {
    const destination = destinationOf(packet);
    const takes = ({ address }) => destination !== null && (address ?? destination) === destination;
    const entry = this.connections().findLast(takes);
    if (entry && !this.isSilent && this.#udp.deliver(entry.connectionId, packet)) return;
    this.#deliver(entry, packet);
  }

  /** Sends any bytes as one message on the newest connection. */
  toNewest(packet) { this.#deliver(this.newest(), packet); }

  #deliver(entry, packet) {
    if (!entry || this.isSilent || entry.client.bufferedAmount > this.waitingBytes) {
      this.#record.addDropped();
      return;
    }
    this.#record.addPacket('toClient', packet, 'webSocket');
    this.order?.takeReturned(packet);
    entry.client.send(packet, { binary: true });
  }

  newest() { return [...this.#clients].at(-1) ?? null; }
  connections() { return [...this.#clients]; }

  /**
   * Destroys connections without a close frame: all, or those of one connection id. Returns the time by
   * the record's clock.
   */
  cut(connectionId = null) {
    for (const entry of this.#clients) {
      if (connectionId === null || entry.connectionId === connectionId) entry.socket.resetAndDestroy();
    }
    return nowMs();
  }

  close() {
    clearInterval(this.#pingTimer);
    this.cut();
    this.#server.close();
  }
}
