// The central service of the lab: HTTP interface, WebSocket relay and UDP relay on one port number.
// It records all requests, and every answer can be scripted. For loopback or a lab namespace only.
import dgram from 'node:dgram';
import { once } from 'node:events';
import http from 'node:http';

import { caller } from '../../harness/remote_call.mjs';
import { kHandshakes, writeFault } from './faults.mjs';
import { httpApi } from './http_api.mjs';
import { OrderWatch } from './order_watch.mjs';
import { nowMs, Record } from './record.mjs';
import { Relay } from './relay.mjs';
import { Replies } from './replies.mjs';
import { UdpRelay } from './udp_relay.mjs';

const kSocketBytes = 4 << 20;
const kKeepAliveMs = 60_000;

export class LabService {
  #record = new Record();
  #replies = new Replies();
  #udp = new UdpRelay(this.#record, { toSite: (packet) => this.#toSite(packet) });
  #relay = new Relay(this.#record, {
    toSite: (packet) => this.#toSite(packet),
    addressOf: (connectionId) => this.#replies.addressOf(connectionId),
    udp: this.#udp,
  });
  #http = null;
  #siteSocket = null;
  #options = null;
  #sockets = new Set();

  /**
   * Listens on `host`:`port` (0: any) for HTTP and WebSocket (TCP) and for datagrams (UDP). Packets are
   * forwarded to `site` {host, port, localPort}, one per datagram; without `site` they end here.
   * Returns {port}.
   */
  async listen({ host = '127.0.0.1', port = 0, site = null } = {}) {
    this.#options = { host, port, site };
    await this.resumeListening();
    this.#options.port = this.#http.address().port;
    await this.#udp.bind(this.#options.port, host);
    if (site) await this.#openSite(site);
    return { port: this.#options.port };
  }

  async #openSite({ localPort = 0 }) {
    this.#siteSocket = dgram.createSocket({
      type: 'udp4', recvBufferSize: kSocketBytes, sendBufferSize: kSocketBytes,
    });
    this.#siteSocket.on('error', () => {});
    this.#siteSocket.on('message', (packet) => this.#relay.fromSite(packet));
    this.#siteSocket.bind(localPort);
    await once(this.#siteSocket, 'listening');
  }

  #toSite(packet) {
    const { site } = this.#options;
    if (site) this.#siteSocket.send(packet, site.port, site.host);
  }

  /**
   * Closes the listening TCP port and every connection, so that connecting is refused. The UDP port stays
   * open.
   */
  async stopListening() {
    const server = this.#http;
    this.#http = null;
    server.close();
    for (const socket of this.#sockets) socket.destroy();
    await once(server, 'close');
  }

  async resumeListening() {
    // After a pause, the connection of a waiting request must not count as idle for too long.
    const server = http.createServer({ keepAliveTimeout: kKeepAliveMs }, httpApi(this.#record, this.#replies));
    server.on('connection', (socket) => {
      this.#sockets.add(socket);
      socket.on('close', () => this.#sockets.delete(socket));
    });
    server.on('upgrade', (...args) => this.#relay.handleUpgrade(...args));
    server.listen(this.#options.port, this.#options.host);
    await once(server, 'listening');
    this.#http = server;
  }

  async close() {
    this.#relay.close();
    if (this.#http) await this.stopListening();
    this.#udp.close();
    this.#siteSocket?.close();
  }

  // ---- its answers; see Replies

  setGrant(grant, options) { this.#replies.setGrant(grant, options); }
  granted() { return this.#replies.granted(); }
  setDevices(devices) { this.#replies.setDevices(devices); }
  setDesktop(desktop) { this.#replies.setDesktop(desktop); }
  setReply(reply) { this.#replies.set(reply); }
  refuseNext(refusal) { this.#replies.refuseNext(refusal); }
  releaseReplies() { this.#replies.release(); }
  resetReplies() { this.#replies.reset(); }

  // ---- the relay

  /** Limits the bytes that wait for a client that does not read. */
  setWaitingBytes(bytes) { this.#relay.waitingBytes = bytes; }
  /** Refuses upgrades with `status`, or answers them with the named one of kHandshakes. */
  refuseUpgrade({ status = null, handshake = null }) {
    if (handshake !== null && !Object.hasOwn(kHandshakes, handshake)) {
      throw new Error(`There is no handshake ${handshake}.`);
    }
    this.#relay.upgrade = {
      refuseStatus: status, answer: handshake === null ? null : kHandshakes[handshake],
    };
  }
  acceptUpgrades() { this.#relay.upgrade = { refuseStatus: null, answer: null }; }
  /** Ends relay connections (all, or one id's) without a close frame; returns the time. */
  cutRelay({ connectionId = null } = {}) { return this.#relay.cut(connectionId); }
  /** The next upgrade's response carries the packet (hexadecimal) in the same TCP segment. */
  sendWithHandshake({ packet }) { this.#relay.firstPacket = Buffer.from(packet, 'hex'); }
  /** A silent relay keeps its connections but sends no pings, answers no hellos and carries no packets. */
  setSilent(isSilent) {
    this.#relay.isSilent = isSilent;
    this.#udp.isSilent = isSilent;
  }
  /** Writes a fault of faults.mjs onto the newest connection; `packet` in hexadecimal. */
  writeFault({ name, packet = '' }) {
    const entry = this.#relay.newest();
    if (!entry) throw new Error('There is no relay connection.');
    writeFault(entry, name, Buffer.from(packet, 'hex'));
  }
  /** Sends a message on the newest connection, whatever its destination; `packet` in hexadecimal. */
  sendToClient({ packet }) { this.#relay.toNewest(Buffer.from(packet, 'hex')); }
  relayConnections() { return this.#relay.connections().length; }
  relayClients() {
    return this.#relay.connections().map(({ connectionId, engineerId, sinceMs }) =>
      ({ connectionId, engineerId, sinceMs }));
  }

  // ---- the relay's UDP side

  /**
   * Sets the treatment of datagrams; members left out keep their value:
   *   helloAnswer    the name of one of kHelloAnswers ('proper', 'none', 'short', ...), or a list from
   *                  which each hello takes one; the last one stays
   *   carryPackets   false: packets are received and recorded, but not forwarded
   *   sendPackets    when small packets from the site go by UDP: 'afterHello', 'likeClient' (while
   *                  the client's newest small packet came so, which shows that it has the token)
   *                  or 'never'
   */
  setUdp(ways) { this.#udp.setWays(ways); }
  /** The next hello gets a new token, which invalidates the old one. */
  renewToken() { this.#udp.renewToken(); }
  /** Sends any bytes (hexadecimal) as one datagram to the newest acknowledged client. */
  sendDatagram({ hex }) { this.#udp.sendRaw(Buffer.from(hex, 'hex')); }
  /** Sends it a packet (hexadecimal), with `token` (16 hexadecimal digits) or the right one. */
  sendUdpPacket({ packet, token = null }) { this.#udp.sendPacket(Buffer.from(packet, 'hex'), token); }
  udpEndpoints() { return this.#udp.endpoints(); }

  // ---- its record; see Record

  /** The record's clock. */
  nowMs() { return nowMs(); }
  /** Starts watching the order of numbered datagrams to `port`; see OrderWatch. */
  watchOrder({ port }) { this.#relay.order = new OrderWatch(port); }
  order() { return this.#relay.order.sums(); }
  requests(filter) { return this.#record.requests(filter); }
  relayAttempts(filter) { return this.#record.relayAttempts(filter); }
  protocolErrors() { return this.#record.protocolErrors(); }
  counts() { return this.#record.counts(); }
  keepPackets(keep) { this.#record.keepPackets = keep; }
  packets() { return this.#record.packets(); }
  forgetPackets() { this.#record.forgetPackets(); }
  hellos(filter) { return this.#record.hellos(filter); }
  wrongTokens() { return this.#record.wrongTokens(); }
  keepDatagrams(keep) { this.#record.keepDatagrams = keep; }
  datagrams() { return this.#record.datagrams(); }
}

/** The methods that may be called from another process. */
export const kMethods = Object.getOwnPropertyNames(LabService.prototype)
  .filter((name) => name !== 'constructor');

/** The methods of the LabService in a process forked from main.mjs, each as a promise. */
export async function connectService(child) {
  const call = caller(child, 'service');
  return Object.fromEntries(kMethods.map((method) => [method, (...args) => call(method, ...args)]));
}
