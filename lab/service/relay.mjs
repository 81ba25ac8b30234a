// The WebSocket relay: one connection per client, one raw IPv4 packet per binary message. Packets go
// on to the site as UDP datagrams; what comes back goes to the client.
import { WebSocketServer } from 'ws';

import { nowMs } from './record.mjs';

const kPath = /^\/api\/relay\/client\/([^/?]+)\?engineerId=([^&]+)$/;
const kPingMs = 3000;  // the client takes a relay that is silent for 8 s for dead

export class Relay {
  #record;
  #toSite;
  #server = new WebSocketServer({
    noServer: true, perMessageDeflate: false, maxPayload: 16 << 20, clientTracking: false,
  });
  #clients = new Set();
  #pingTimer;
  upgrade = { refuseStatus: null, answer: null };
  isSilent = false;

  /** `toSite(packet)` takes what the client sends. */
  constructor(record, toSite) {
    this.#record = record;
    this.#toSite = toSite;
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
    this.#server.handleUpgrade(request, socket, head, (client) => this.#adopt(client, socket, match));
  }

  #adopt(client, socket, [, connectionId, engineerId]) {
    const entry = {
      client, socket, connectionId: decodeURIComponent(connectionId),
      engineerId: decodeURIComponent(engineerId), sinceMs: nowMs(),
    };
    this.#clients.add(entry);
    client.on('message', (data, isBinary) => {
      if (!isBinary) return;
      this.#record.addPacket('fromClient', data);
      if (!this.isSilent) this.#toSite(data);
    });
    client.on('error', (error) => this.#record.addProtocolError(error.message));
    client.on('close', () => this.#clients.delete(entry));
  }

  #ping() {
    if (this.isSilent) return;
    for (const { client } of this.#clients) client.ping();
  }

  /** A packet from the site, for the newest connection. */
  fromSite(packet) {
    const entry = this.newest();
    if (!entry || this.isSilent) {
      this.#record.addDropped();
      return;
    }
    this.#record.addPacket('toClient', packet);
    entry.client.send(packet, { binary: true });
  }

  newest() { return [...this.#clients].at(-1) ?? null; }
  connections() { return [...this.#clients]; }

  /** Destroys every connection without a close frame; returns when, in the record's time. */
  cutAll() {
    for (const { socket } of this.#clients) socket.resetAndDestroy();
    return nowMs();
  }

  close() {
    clearInterval(this.#pingTimer);
    this.cutAll();
    this.#server.close();
  }
}
