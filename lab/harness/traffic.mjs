// Traffic that runs while a scenario disturbs its path, and reports its losses: numbered datagrams and a
// numbered TCP stream to an echo service.
import path from 'node:path';

import { kRepo } from './paths.mjs';
import { waitUntil } from './program.mjs';
import { caller } from './remote_call.mjs';

/** The payload of the largest packet that may go by UDP (1330 bytes). */
export const kLargestUdpPayload = 1302;
const kSizes = [32, 256, kLargestUdpPayload, 1400];
const kExitMs = 5000;

/**
 * Starts traffic from the engineer's namespace to `address`. Options: `port`; `waitMs`, the longest
 * time for an answer; `udp` {sizes, intervalMs, batch, count} and `tcp` {chunkBytes, intervalMs, stallMs} as
 * in traffic_udp.mjs and traffic_tcp.mjs, or false for none. Times are milliseconds since the start.
 */
export async function startTraffic(lab, address, { port = 7, waitMs = 2000, udp = {}, tcp = {} } = {}) {
  const child = lab.processes.fork('traffic', path.join(kRepo, 'lab/harness/traffic_main.mjs'),
    { namespace: lab.network.engineer, log: path.join(lab.artifacts, 'traffic.log') });
  const traffic = new Traffic(lab.processes, child);
  await traffic.start({
    address, port, waitMs,
    udp: udp && { sizes: kSizes, intervalMs: 20, batch: 1, count: null, ...udp },
    tcp: tcp && { chunkBytes: 512, intervalMs: 20, stallMs: 0, ...tcp },
  });
  return traffic;
}

class Traffic {
  #processes;
  #child;
  #call;

  constructor(processes, child) {
    this.#processes = processes;
    this.#child = child;
    this.#call = caller(child, 'traffic');
  }

  async start(options) { await this.#call('start', options); }

  /**
   * The current figures: {nowMs, udp: {sent, received, duplicated, reordered, late, wrong, lost,
   * answeredSince, longestGapMs, gaps: [{from, fromMs, toMs, lost}]}, tcp: {bytes, connections, failedConnects,
   * breaks: [{atMs, reason, unansweredBytes}], outOfOrder, wrongBytes, longestStallMs}}. Options as in
   * UdpTraffic.report().
   */
  async report(options = {}) { return this.#call('report', options); }

  /**
   * Waits until `datagrams` sent from now on have been answered and `bytes` more have returned over TCP.
   * Returns how long that took, in milliseconds.
   */
  async waitUntilFlowing({ datagrams = 10, bytes = 2048, timeoutMs = 60_000 } = {}) {
    const before = await this.report();
    let now;
    await waitUntil('traffic flowing', async () => {
      now = await this.report({ since: before.udp?.sent });
      return (!now.udp || now.udp.answeredSince >= datagrams) &&
        (!now.tcp || now.tcp.bytes - before.tcp.bytes >= bytes);
    }, timeoutMs);
    return now.nowMs - before.nowMs;
  }

  /** Waits until this many datagrams have been sent in total. */
  async waitUntilSent(datagrams, timeoutMs = 60_000) {
    await waitUntil(`${datagrams} datagrams sent`, async () => (await this.report()).udp.sent >= datagrams,
      timeoutMs);
  }

  /** Stops sending, waits for late answers, ends the process and returns the last report. */
  async stop() {
    const report = await this.#call('finish');
    this.#child.disconnect();
    await this.#processes.waitForExit(this.#child, kExitMs);
    return report;
  }
}

const kUdp = 17;
const kHeaderBytes = 28;  // IPv4 without options, UDP

/** The number of a datagram, from its whole IPv4 packet in hexadecimal; null if it is not UDP. */
export function datagramNumber(hex) {
  const packet = Buffer.from(hex, 'hex');
  return packet[9] === kUdp ? packet.readUInt32BE(kHeaderBytes + 4) : null;
}

/** A report as one line of text. */
export function describe({ udp, tcp }) {
  const parts = [];
  if (udp) {
    parts.push(`udp: ${udp.lost} of ${udp.sent} lost in ${udp.gaps.length} gaps, the longest ` +
      `${Math.round(udp.longestGapMs)} ms; ${udp.late} late, ${udp.duplicated} twice, ` +
      `${udp.reordered} out of order`);
  }
  if (tcp) {
    const breaks = tcp.breaks.map(({ atMs, reason }) => ` (${reason} at ${Math.round(atMs)} ms)`);
    parts.push(`tcp: ${tcp.bytes} bytes, ${tcp.breaks.length} breaks${breaks.join('')}, the longest ` +
      `stall ${Math.round(tcp.longestStallMs)} ms`);
  }
  return parts.join('; ');
}
