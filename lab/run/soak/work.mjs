// The protocols at work during a soak: each has its own loop, which uses it by both routes in turn.
import { setTimeout as sleep } from 'node:timers/promises';

import { kRoutes, listUses } from '../../protocols/survey.mjs';
import { within } from '../../protocols/support/requests.mjs';

const kTimeoutMs = 8000;
const kOwnLimitMs = kTimeoutMs + 2000;  // external programs must report their own time-out before they are killed
const kRounds = 6;
const kPauseMs = 1000;  // two cores run the program, both sides' tools and the transfers
const kHeldMs = 10_000;
const kLastTries = 3;  // a busy machine may lose a datagram without any fault
const kUseMs = 120_000;  // longer than all time-outs of a use together: anything longer hangs

/**
 * By title: `options` of a use, and `lateMs`, the time after a fault in which a use may still fail because of it: one
 * step's time-out, or more if a tool waits for several.
 */
const kWork = {
  'Modbus TCP, several masters': {},
  'Siemens S7': {},
  'OPC UA': { options: { setting: true }, lateMs: 3 * kTimeoutMs },  // connecting has two time-outs, closing one
  'BACnet/IP': {},
  'SNMP v2c': {},
  'HTTP, 50 connections at once': { options: { rounds: 5 } },
  'WebSocket, held': { options: { rounds: 1, hold: true } },
  'FTP, passive (EPSV)': {},
  SSH: { options: { megabytes: 0 }, lateMs: 2 * kTimeoutMs },  // the longest log-in
  'DNS by UDP': {},
};

const chosen = (await listUses()).filter(({ title }) => title in kWork);

/** The protocols that the site has to serve. */
export const kServed = [...new Set(chosen.map(({ name }) => name))];

/** Whether the fault or its after-effects can have caused the failure. */
const explains = ({ fromMs, untilMs }, failedAtMs, lateMs) => failedAtMs >= fromMs && failedAtMs <= untilMs + lateMs;

export class Work {
  #survey;
  #begun = performance.now();
  #ending = false;
  #loops;

  /** Starts all loops; they run until stop(). */
  constructor(survey) {
    this.#survey = survey;
    this.#loops = chosen.map((row) => {
      const record = { row, uses: 0, requests: 0, reconnects: 0, failures: [] };
      return { record, done: this.#run(record) };
    });
  }

  async #run(record) {
    const routes = Object.keys(kRoutes);
    for (let round = 0; !this.#ending; round += 1) {
      const route = routes[round % routes.length];
      const { works, requestMs, error, wrong } = await this.#use(record.row, route);
      record.uses += 1;
      record.requests += requestMs.length;
      if (!works) {
        const atMs = performance.now();
        record.failures.push({ atMs, atSeconds: (atMs - this.#begun) / 1000, route, error, wrong });
        if (!this.#ending) record.reconnects += 1;
      }
      await sleep(kPauseMs);
    }
  }

  async #use(row, route, more = {}) {
    const options = { rounds: kRounds, timeoutMs: kTimeoutMs, ...kWork[row.title].options, ...more };
    const timer = options.hold ? setTimeout(() => this.#survey.release(), kHeldMs) : undefined;
    try {
      return await within(kUseMs, row.title, this.#survey.use(row, route, options));
    } catch (error) {
      return { works: false, requestMs: [], error: error.message, wrong: false };
    } finally {
      clearTimeout(timer);
    }
  }

  /** Waits until each loop has finished its current use. */
  async stop() {
    this.#ending = true;
    await this.#survey.release();
    await Promise.all(this.#loops.map(({ done }) => done));
  }

  /**
   * Uses each protocol once more by both routes, one protocol after another: [{title, route, works, tries, error}].
   * Requires stop() first.
   */
  async useAll() {
    const results = [];
    for (const row of chosen) {
      results.push(...await Promise.all(Object.keys(kRoutes).map((route) => this.#useAtLast(row, route))));
    }
    return results;
  }

  /** A wrong answer is not retried. */
  async #useAtLast(row, route) {
    for (let tries = 1; ; tries += 1) {
      const { works, error, wrong } = await this.#use(row, route, { hold: false });
      if (works || wrong || tries === kLastTries) return { title: row.title, route, works, tries, error };
    }
  }

  /**
   * {title, uses, requests, reconnects, failures, wrong, unexplained} of each protocol; `requests` counts right answers
   * in successful uses. `faults` are {fromMs, untilMs}, until traffic flows again.
   */
  report(faults) {
    return this.#loops.map(({ record: { row: { title }, ...counts } }) => {
      const { lateMs = kOwnLimitMs } = kWork[title];
      const isExplained = ({ atMs }) => faults.some((fault) => explains(fault, atMs, lateMs));
      return {
        title, ...counts, wrong: counts.failures.filter(({ wrong }) => wrong),
        unexplained: counts.failures.filter((failure) => !isExplained(failure)),
      };
    });
  }
}

const describe = (title, what, { atSeconds, route, error }) =>
  `${title}, ${route}, ${what} at ${atSeconds.toFixed(1)} s: ${error}`;

/** The report as a table, followed by its errors. */
export function writeTable(work) {
  const lines = [['protocol', 'right answers', 'uses', 'failed', 'reconnects', 'wrong', 'unexplained'],
    ...work.map(({ title, requests, uses, failures, reconnects, wrong, unexplained }) =>
      [title, requests, uses, failures.length, reconnects, wrong.length, unexplained.length])];
  const widths = lines[0].map((_, column) => Math.max(...lines.map((cells) => String(cells[column]).length)));
  const table = lines.map((cells) => cells.map((cell, column) =>
    (column === 0 ? String(cell).padEnd(widths[0]) : String(cell).padStart(widths[column]))).join('  '));
  const bad = work.flatMap(({ title, wrong, unexplained }) => [
    ...wrong.map((one) => describe(title, 'answered wrongly', one)),
    ...unexplained.map((one) => describe(title, 'failed without a fault', one)),
  ]);
  return [...table, ...bad].join('\n');
}
