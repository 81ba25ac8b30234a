// Numbered datagrams to an echo service, and the fate of each.
import dgram from 'node:dgram';
import { once } from 'node:events';
import { randomInt } from 'node:crypto';

const kHeaderBytes = 8;  // run, number
const kSocketBytes = 4 << 20;
const kPattern = Buffer.from({ length: 65536 }, (_, index) => index & 255);

/**
 * Sends `batch` datagrams every `intervalMs`, `count` in total, cycling through the payload `sizes` (at
 * least 8 bytes each). Times are milliseconds since `startMs` of the process's clock.
 */
export class UdpTraffic {
  #options;
  #socket = dgram.createSocket({
    type: 'udp4', recvBufferSize: kSocketBytes, sendBufferSize: kSocketBytes,
  });
  #run = randomInt(2 ** 32);
  #timer;
  #sentMs = [];
  #isAnswered = [];
  #counts = { received: 0, duplicated: 0, reordered: 0, late: 0, wrong: 0 };
  #newest = -1;  // the highest number that was answered

  constructor(options) { this.#options = options; }

  async start() {
    // A refused datagram, for example to an unreachable host, counts as lost.
    this.#socket.on('error', () => {});
    this.#socket.on('message', (bytes) => this.#receive(bytes));
    this.#socket.bind(0);
    await once(this.#socket, 'listening');
    this.#timer = setInterval(() => this.#tick(), this.#options.intervalMs);
  }

  #nowMs() { return performance.now() - this.#options.startMs; }

  #tick() {
    for (let i = 0; i < this.#options.batch; i += 1) {
      if (this.#sentMs.length === this.#options.count) {
        clearInterval(this.#timer);
        return;
      }
      this.#send(this.#sentMs.length);
    }
  }

  #payload(number) {
    const { sizes } = this.#options;
    const payload = Buffer.alloc(sizes[number % sizes.length]);
    payload.writeUInt32BE(this.#run, 0);
    payload.writeUInt32BE(number, 4);
    kPattern.copy(payload, kHeaderBytes, number & 255);
    return payload;
  }

  #send(number) {
    this.#sentMs.push(this.#nowMs());
    this.#socket.send(this.#payload(number), this.#options.port, this.#options.address, () => {});
  }

  #receive(bytes) {
    const isOurs = bytes.length >= kHeaderBytes && bytes.readUInt32BE(0) === this.#run;
    const number = isOurs ? bytes.readUInt32BE(4) : Infinity;
    if (number >= this.#sentMs.length || !bytes.equals(this.#payload(number))) {
      this.#counts.wrong += 1;
    } else if (this.#isAnswered[number]) {
      this.#counts.duplicated += 1;
    } else {
      this.#isAnswered[number] = true;
      this.#counts.received += 1;
      if (number < this.#newest) this.#counts.reordered += 1;
      if (this.#nowMs() - this.#sentMs[number] > this.#options.waitMs) this.#counts.late += 1;
      this.#newest = Math.max(this.#newest, number);
    }
  }

  /** Stops sending; late answers still count. */
  pause() { clearInterval(this.#timer); }

  isComplete() { return this.#counts.received === this.#sentMs.length; }

  /**
   * Counts the datagrams. One that is unanswered for `lateMs` is lost; a younger one is in flight.
   * `answeredSince` counts the answered ones from number `since` on, `late` those answered after more than
   * `waitMs`, `wrong` answers to nothing that was sent.
   */
  report({ lateMs, since = 0 }) {
    const limit = this.#nowMs() - lateMs;
    const gaps = [];
    let lost = 0;
    let answeredSince = 0;
    let isInGap = false;
    for (const [number, sentMs] of this.#sentMs.entries()) {
      const isLost = !this.#isAnswered[number] && sentMs <= limit;
      if (isInGap) gaps.at(-1).toMs = sentMs;
      if (isLost) {
        if (!isInGap) gaps.push({ from: number, fromMs: sentMs, toMs: sentMs, lost: 0 });
        gaps.at(-1).lost += 1;
        lost += 1;
      }
      isInGap = isLost;
      if (this.#isAnswered[number] && number >= since) answeredSince += 1;
    }
    return {
      sent: this.#sentMs.length, ...this.#counts, lost, answeredSince,
      longestGapMs: Math.max(0, ...gaps.map(({ fromMs, toMs }) => toMs - fromMs)), gaps,
    };
  }

  close() {
    this.pause();
    this.#socket.close();
  }
}
