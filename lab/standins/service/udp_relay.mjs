// The UDP side of the relay: hellos are acknowledged with a token, which packets must carry. A client's
// endpoint is the source of its newest hello, valid for 45 s.
import dgram from 'node:dgram';
import { once } from 'node:events';

import { nowMs } from './record.mjs';
import {
  DatagramType, kHelloAnswers, kMaxUdpPacketBytes, newToken, packetDatagram, parseFromClient,
} from './udp_datagrams.mjs';

const kSocketBytes = 4 << 20;
const kEndpointMs = 45_000;
const kSendPackets = ['afterHello', 'likeClient', 'never'];

export class UdpRelay {
  #record;
  #toSite;
  #socket = dgram.createSocket({ type: 'udp4', recvBufferSize: kSocketBytes, sendBufferSize: kSocketBytes });
  #endpoints = new Map();  // by connection id, newest hello last
  #ways = { helloAnswer: ['proper'], carryPackets: true, sendPackets: 'afterHello' };
  #renewNext = false;
  isSilent = false;

  /** `toSite(packet)` receives the clients' packets. */
  constructor(record, { toSite }) {
    this.#record = record;
    this.#toSite = toSite;
    this.#socket.on('error', () => {});
    this.#socket.on('message', (bytes, { address, port }) => this.#take(bytes, { address, port }));
  }

  async bind(port, host) {
    this.#socket.bind(port, host);
    await once(this.#socket, 'listening');
  }

  /**
   * Changes its behaviour; see LabService.setUdp(). Members left out keep their value.
   */
  setWays(ways) {
    for (const name of Object.keys(ways)) {
      if (!Object.hasOwn(this.#ways, name)) throw new Error(`The UDP relay has no way ${name}.`);
    }
    const next = { ...this.#ways, ...ways };
    next.helloAnswer = [next.helloAnswer].flat();
    for (const name of next.helloAnswer) {
      if (!Object.hasOwn(kHelloAnswers, name)) throw new Error(`There is no answer ${name} to a hello.`);
    }
    if (!kSendPackets.includes(next.sendPackets)) throw new Error(`Packets cannot be sent ${next.sendPackets}.`);
    this.#ways = next;
  }

  /** The next hello is acknowledged with a new token; packets with the old one are then dropped. */
  renewToken() { this.#renewNext = true; }

  #take(bytes, source) {
    const from = `${source.address}:${source.port}`;
    this.#record.addDatagram({ direction: 'fromClient', from, bytes });
    let datagram;
    try {
      datagram = parseFromClient(bytes);
    } catch (error) {
      this.#record.addProtocolError(error.message);
      return;
    }
    if (datagram.type === DatagramType.hello) this.#takeHello(datagram, bytes, source, from);
    else this.#takePacket(datagram, from);
  }

  #takeHello({ connectionId, engineerId }, bytes, source, from) {
    const old = this.#endpoints.get(connectionId);
    const keepsToken = old?.from === from && !this.#renewNext;
    const way = this.isSilent ? 'none' : this.#nextAnswer();
    const answer = kHelloAnswers[way](keepsToken ? old.token : newToken());
    this.#record.addHello({ from, connectionId, engineerId, hex: bytes.toString('hex'), isAnswered: answer !== null });
    if (answer === null) return;
    this.#send(answer, { ...source, from });
    if (way !== 'proper') return;
    this.#renewNext = false;
    this.#endpoints.delete(connectionId);
    this.#endpoints.set(connectionId, {
      ...source, from, connectionId, engineerId, token: answer.subarray(6).toString('hex'), helloMs: nowMs(),
      isUsed: keepsToken && old.isUsed,
    });
  }

  #nextAnswer() {
    const { helloAnswer } = this.#ways;
    return helloAnswer.length > 1 ? helloAnswer.shift() : helloAnswer[0];
  }

  #takePacket({ token, packet }, from) {
    const endpoint = [...this.#endpoints.values()].find((one) => one.from === from);
    if (endpoint?.token !== token) {
      this.#record.addWrongToken({ from, token, bytes: packet.length });
      return;
    }
    endpoint.isUsed = true;
    this.#record.addPacket('fromClient', packet, 'udp');
    if (this.#ways.carryPackets && !this.isSilent) this.#toSite(packet);
  }

  /** A packet from a connection's WebSocket; a small one shows that the client does not use UDP. */
  noteWebSocketPacket(connectionId, packet) {
    const endpoint = this.#endpoints.get(connectionId);
    if (endpoint && packet.length <= kMaxUdpPacketBytes) endpoint.isUsed = false;
  }

  /** Sends a packet from the site to a connection's endpoint; false if it must use the WebSocket. */
  deliver(connectionId, packet) {
    const endpoint = this.#endpoints.get(connectionId);
    if (!endpoint || packet.length > kMaxUdpPacketBytes) return false;
    const { sendPackets } = this.#ways;
    if (sendPackets === 'never' || (sendPackets === 'likeClient' && !endpoint.isUsed)) return false;
    if (nowMs() - endpoint.helloMs > kEndpointMs) return false;
    this.#record.addPacket('toClient', packet, 'udp');
    this.#send(packetDatagram(endpoint.token, packet), endpoint);
    return true;
  }

  /** Sends any bytes as one datagram to the newest endpoint. */
  sendRaw(bytes) { this.#send(bytes, this.#newest()); }

  /** Sends a packet datagram to the newest endpoint, with the given token or the endpoint's own. */
  sendPacket(packet, token = null) {
    const endpoint = this.#newest();
    this.#send(packetDatagram(token ?? endpoint.token, packet), endpoint);
  }

  #newest() {
    const endpoint = [...this.#endpoints.values()].at(-1);
    if (!endpoint) throw new Error('No client has said hello by UDP.');
    return endpoint;
  }

  #send(bytes, { address, port, from }) {
    this.#record.addDatagram({ direction: 'toClient', from, bytes });
    this.#socket.send(bytes, port, address);
  }

  /** The acknowledged clients, newest last: [{connectionId, engineerId, from, token, helloMs}]. */
  endpoints() {
    return [...this.#endpoints.values()].map(({ connectionId, engineerId, from, token, helloMs }) =>
      ({ connectionId, engineerId, from, token, helloMs }));
  }

  close() { this.#socket.close(); }
}
