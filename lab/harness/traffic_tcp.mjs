// A stream of numbers to an echo service over one TCP connection, which is reopened when it breaks.
import net from 'node:net';

const kNumberBytes = 4;
const kUnansweredBytes = 256 << 10;  // the most that is in flight
const kReopenMs = 200;
const kConnectMs = 5000;

/**
 * Writes `chunkBytes` every `intervalMs`. A connection without data for `stallMs` is closed and counts as
 * broken (0: never; TCP itself gives up after many minutes). Times are milliseconds since `startMs` of the
 * process's clock.
 */
export class TcpTraffic {
  #options;
  #socket = null;
  #timers = [];
  #isPaused = false;
  #isOpen = false;
  #written = 0;  // the next number to write; continues across connections
  #first = 0;    // of this connection
  #expected = 0;
  #rest = Buffer.alloc(0);
  #progressMs = 0;    // when data last arrived, on any connection
  #connectionMs = 0;  // the same, or this connection's start
  #result = {
    bytes: 0, connections: 0, failedConnects: 0, breaks: [], outOfOrder: 0, wrongBytes: 0,
    longestStallMs: 0,
  };

  constructor(options) { this.#options = options; }

  start() {
    this.#progressMs = this.#nowMs();
    this.#open();
    this.#timers.push(setInterval(() => this.#tick(), this.#options.intervalMs));
  }

  #nowMs() { return performance.now() - this.#options.startMs; }

  #open() {
    const { address, port } = this.#options;
    const socket = net.connect({ host: address, port, noDelay: true });
    let error = null;
    this.#socket = socket;
    this.#connectionMs = this.#nowMs();
    socket.on('connect', () => this.#begin());
    socket.on('data', (bytes) => this.#receive(bytes));
    socket.on('error', (cause) => { error = cause.code ?? cause.message; });
    socket.on('close', () => this.#ended(error ?? 'ended'));
  }

  #begin() {
    this.#isOpen = true;
    this.#result.connections += 1;
    this.#connectionMs = this.#nowMs();
    this.#first = this.#written;
    this.#expected = this.#written;
    this.#rest = Buffer.alloc(0);
  }

  #ended(reason) {
    if (this.#isOpen) {
      const unansweredBytes = (this.#written - this.#expected) * kNumberBytes;
      this.#result.breaks.push({ atMs: this.#nowMs(), reason, unansweredBytes });
    } else {
      this.#result.failedConnects += 1;
    }
    this.#isOpen = false;
    this.#socket = null;
    if (!this.#isPaused) this.#timers.push(setTimeout(() => this.#open(), kReopenMs));
  }

  #tick() {
    if (this.#socket === null) return;
    const idleMs = this.#nowMs() - this.#connectionMs;
    const limitMs = this.#isOpen ? this.#options.stallMs : kConnectMs;
    if (limitMs > 0 && idleMs > limitMs) {
      this.#socket.destroy(Object.assign(new Error('stalled'), { code: 'stalled' }));
    } else if (this.#isOpen) {
      this.#write();
    }
  }

  #write() {
    const { chunkBytes } = this.#options;
    if ((this.#written - this.#expected) * kNumberBytes + chunkBytes > kUnansweredBytes) return;
    const chunk = Buffer.alloc(chunkBytes - chunkBytes % kNumberBytes);
    for (let at = 0; at < chunk.length; at += kNumberBytes) {
      chunk.writeUInt32BE(this.#written % 2 ** 32, at);
      this.#written += 1;
    }
    this.#socket.write(chunk);
  }

  #receive(bytes) {
    this.#noteProgress();
    const all = Buffer.concat([this.#rest, bytes]);
    const whole = all.length - all.length % kNumberBytes;
    for (let at = 0; at < whole; at += kNumberBytes) this.#take(all.readUInt32BE(at));
    this.#rest = all.subarray(whole);
  }

  #take(number) {
    this.#result.bytes += kNumberBytes;
    if (number === this.#expected % 2 ** 32) {
      this.#expected += 1;
    } else if (number >= this.#first && number < this.#written) {
      this.#result.outOfOrder += 1;
      this.#expected = number + 1;
    } else {
      this.#result.wrongBytes += kNumberBytes;
      this.#expected += 1;
    }
  }

  #noteProgress() {
    const now = this.#nowMs();
    this.#result.longestStallMs = this.#stallMs(now);
    this.#progressMs = now;
    this.#connectionMs = now;
  }

  #stallMs(now) { return Math.max(this.#result.longestStallMs, now - this.#progressMs); }

  /** Stops writing; late data still counts. Connections are no longer reopened. */
  pause() {
    this.#isPaused = true;
    for (const timer of this.#timers) clearTimeout(timer);
  }

  isComplete() { return this.#isOpen && this.#expected === this.#written; }

  /** `bytes` returned; `breaks` are ends of open connections, with their unanswered bytes. */
  report() {
    const now = this.#isPaused ? this.#progressMs : this.#nowMs();
    return { ...this.#result, longestStallMs: this.#stallMs(now) };
  }

  close() {
    this.pause();
    this.#socket?.removeAllListeners('close');
    this.#socket?.destroy();
  }
}
