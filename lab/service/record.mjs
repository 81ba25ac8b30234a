// What the service was sent, with times that compare across one process: milliseconds of the
// monotonic clock.

export const nowMs = () => performance.now();

export class Record {
  #requests = [];
  #attempts = [];
  #packets = [];
  #protocolErrors = [];
  #counts = { fromClient: 0, toClient: 0, bytesFromClient: 0, bytesToClient: 0, dropped: 0 };
  keepPackets = false;

  /** One HTTP request: {timeMs, method, url, headers, body}. */
  addRequest(request) { this.#requests.push({ timeMs: nowMs(), ...request }); }

  /** One attempt to open a relay connection: {timeMs, url, headers, status}. */
  addAttempt(attempt) { this.#attempts.push({ timeMs: nowMs(), ...attempt }); }

  /** A breach of the WebSocket protocol by the client, in the words of `ws`. */
  addProtocolError(message) { this.#protocolErrors.push({ timeMs: nowMs(), message }); }

  addPacket(direction, packet) {
    const isFromClient = direction === 'fromClient';
    this.#counts[direction] += 1;
    this.#counts[isFromClient ? 'bytesFromClient' : 'bytesToClient'] += packet.length;
    if (this.keepPackets) {
      this.#packets.push({ timeMs: nowMs(), direction, hex: packet.toString('hex') });
    }
  }

  addDropped() { this.#counts.dropped += 1; }

  requests({ pathPrefix = '', method, sinceMs = 0 } = {}) {
    return this.#requests.filter((one) => one.url.startsWith(pathPrefix) && one.timeMs >= sinceMs &&
      (method === undefined || one.method === method));
  }

  relayAttempts({ sinceMs = 0 } = {}) {
    return this.#attempts.filter(({ timeMs }) => timeMs >= sinceMs);
  }

  packets() { return this.#packets; }
  counts() { return { ...this.#counts }; }
  protocolErrors() { return this.#protocolErrors; }
}
