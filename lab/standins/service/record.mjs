// What the service was sent, with times that compare across one process: milliseconds of the
// monotonic clock.

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

  /** A breach of the protocol by the client, in the words of `ws` or, after "UDP: ", the relay's. */
  addProtocolError(message) { this.#protocolErrors.push({ timeMs: nowMs(), message }); }

  /** A packet that a client sent or was sent; `via` is 'udp' or 'webSocket'. */
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

  /** A datagram as it came or went, kept on request: {timeMs, direction, from, hex}; `from` is the client. */
  addDatagram({ direction, from, bytes }) {
    if (!this.keepDatagrams) return;
    this.#datagrams.push({ timeMs: nowMs(), direction, from, hex: bytes.toString('hex') });
  }

  /** A packet whose token is not its endpoint's: counted, the newest kept: {timeMs, from, token, bytes}. */
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
