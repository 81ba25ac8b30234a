// Uses every protocol through the tunnel, by both routes, and tells what became of each.
import path from 'node:path';

import { kPlc, kPlcOverlapping } from '../harness/network.mjs';
import { kRepo } from '../harness/paths.mjs';
import { connectHost } from './host.mjs';
import { kWrongAnswer } from './support/requests.mjs';

/** In the order of the table. */
export const kProtocols = ['modbus_tcp', 'siemens_s7', 'opc_ua', 'bacnet', 'snmp', 'http', 'ftp', 'tftp', 'ssh', 'vnc', 'ntp', 'dns'];

/** What the engineer types for a device, by the way that leads to it. */
export const kRoutes = { direct: kPlc, NAT: '172.31.0.10' };

const kHost = path.join(kRepo, 'lab/protocols/host.mjs');
// snap7 occupies one of libuv's threads for each request that is under way.
const kThreads = { UV_THREADPOOL_SIZE: '16' };
const kServeMs = 60_000;

/** Every row of the table: {name, title, settingNeeded, held}. */
export async function listUses() {
  const uses = [];
  for (const name of kProtocols) {
    const protocol = await import(`./${name}.mjs`);
    for (const { title, settingNeeded, held = false } of [protocol, ...(protocol.variants ?? [])]) {
      uses.push({ name, title, settingNeeded, held });
    }
  }
  return uses;
}

const nth = (sorted, share) => sorted[Math.min(sorted.length - 1, Math.floor(sorted.length * share))];

/** Median and 99th percentile of times. */
export function percentiles(times) {
  const sorted = times.toSorted((a, b) => a - b);
  return { medianMs: nth(sorted, 0.5), p99Ms: nth(sorted, 0.99) };
}

/** The servers on site and the tools at the engineer's, each a process in its namespace. */
export class Survey {
  #site;
  #tools;
  #folder;

  /** `names` are those of kProtocols to serve. */
  static async start(lab, { names = kProtocols } = {}) {
    const survey = new Survey();
    survey.#folder = lab.workFolder;
    [survey.#site, survey.#tools] = ['plc', 'engineer'].map((host) => connectHost(
      lab.processes.fork(`${host}'s protocols`, kHost, {
        namespace: lab.network[host], env: kThreads, log: path.join(lab.artifacts, `protocols-${host}.log`),
      }), host));
    for (const name of names) {
      await survey.#site.serve(name,
        { addresses: [kPlc, kPlcOverlapping], folder: survey.#folder, timeoutMs: kServeMs });
    }
    return survey;
  }

  /**
   * Uses one row's protocol by one route. Returns {works, requestMs, connectMs, notes} or {works: false, error,
   * wrong}, `wrong` when an answer came that is not the right one; `options` as the protocol's use() has them.
   */
  async use({ name, title }, route, options) {
    try {
      const result = await this.#tools.use(name, title,
        { address: kRoutes[route], folder: this.#folder, ...options });
      return { works: true, ...result };
    } catch (error) {
      return { works: false, requestMs: [], error: error.message, wrong: error.name === kWrongAnswer };
    }
  }

  /** As use(), without the setting that the row names first; {setting: true} where only with it it works. */
  async useAsNeeded(row, route, options) {
    const first = await this.use(row, route, row.settingNeeded ? { ...options, setting: false } : options);
    if (first.works || !row.settingNeeded) return { setting: false, ...first };
    const second = await this.use(row, route, { ...options, setting: true });
    return { setting: true, without: first.error, ...second };
  }

  /** Has those uses end that were begun with `hold`. */
  async release() { await this.#tools.release(); }

  async end() { await this.#site.end(); }
}
