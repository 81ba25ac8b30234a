// The requests and packets that the service received, with times in milliseconds of the monotonic clock.

export const nowMs = () => performance.now();
const kWrongTokensKept = 1000;

export class Record {
  #requests = [];
  #attempts = [];
  #packets = [];
  #protocolErrors = [];
  #hellos = [];
  #datagrams = [];
  #wrongTokens = [];
  #counts = {
    fromClient: 0, toClient: 0, bytesFromClient: 0, bytesToClient: 0, dropped: 0,
    udpFromClient: 0, udpToClient: 0, webSocketFromClient: 0, webSocketToClient: 0, wrongToken: 0,
  };
  keepPackets = false;
  keepDatagrams = false;

  /** One HTTP request: {timeMs, method, url, headers, body}. */
  addRequest(request) { this.#requests.push({ timeMs: nowMs(), ...request }); }

  /** One attempt to open a relay connection: {timeMs, url, headers, status}. */
  addAttempt(attempt) { this.#attempts.push({ timeMs: nowMs(), ...attempt }); }

  /** A client's protocol error, in the words of `ws` or, after "UDP: ", of the relay. */
  addProtocolError(message) { this.#protocolErrors.push({ timeMs: nowMs(), message }); }

  /** A packet from or to a client; `via` is 'udp' or 'webSocket'. */
  addPacket(direction, packet, via) {
    const isFromClient = direction === 'fromClient';
    const end = isFromClient ? 'FromClient' : 'ToClient';
    this.#counts[direction] += 1;
    this.#counts[via + end] += 1;
    this.#counts[`bytes${end}`] += packet.length;
    if (this.keepPackets) {
      this.#packets.push({ timeMs: nowMs(), direction, via, hex: packet.toString('hex') });
    }
  }

  addDropped() { this.#counts.dropped += 1; }

  /** A well-formed hello: {timeMs, from, connectionId, engineerId, hex, isAnswered}. */
  addHello(hello) { this.#hellos.push({ timeMs: nowMs(), ...hello }); }

  /** A raw datagram in either direction, kept on request: {timeMs, direction, from, hex}; `from` is the client. */
  addDatagram({ direction, from, bytes }) {
    if (!this.keepDatagrams) return;
    this.#datagrams.push({ timeMs: nowMs(), direction, from, hex: bytes.toString('hex') });
  }

  /** A packet with a wrong token for its endpoint; counted, the newest kept: {timeMs, from, token, bytes}. */
  addWrongToken(packet) {
    this.#counts.wrongToken += 1;
    this.#wrongTokens.push({ timeMs: nowMs(), ...packet });
    if (this.#wrongTokens.length > kWrongTokensKept) this.#wrongTokens.shift();
  }

  requests({ pathPrefix = '', method, sinceMs = 0 } = {}) {
    return this.#requests.filter((one) => one.url.startsWith(pathPrefix) && one.timeMs >= sinceMs &&
      (method === undefined || one.method === method));
  }

  relayAttempts({ sinceMs = 0 } = {}) {
    return this.#attempts.filter(({ timeMs }) => timeMs >= sinceMs);
  }

  hellos({ sinceMs = 0 } = {}) { return this.#hellos.filter(({ timeMs }) => timeMs >= sinceMs); }

  packets() { return this.#packets; }
  forgetPackets() { this.#packets = []; }
  datagrams() { return this.#datagrams; }
  wrongTokens() { return this.#wrongTokens; }
  counts() { return { ...this.#counts }; }
  protocolErrors() { return this.#protocolErrors; }
}
