// Uses every protocol through the tunnel, by both routes, and reports the result of each.
import path from 'node:path';

import { kPlc, kPlcOverlapping } from '../harness/network.mjs';
import { kRepo } from '../harness/paths.mjs';
import { connectHost } from './host.mjs';
import { kWrongAnswer } from './support/requests.mjs';

/** In the table's order. */
export const kProtocols = ['modbus_tcp', 'siemens_s7', 'opc_ua', 'bacnet', 'snmp', 'http', 'ftp', 'tftp', 'ssh', 'vnc', 'ntp', 'dns'];

/** The address that the engineer types for a device, by route. */
export const kRoutes = { direct: kPlc, NAT: '172.31.0.10' };

const kHost = path.join(kRepo, 'lab/protocols/host.mjs');
// snap7 occupies one of libuv's threads for each pending request.
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

/** The servers on site and the tools at the engineer's end, each a process in its namespace. */
export class Survey {
  #site;
  #tools;
  #folder;

  /** `names` are the kProtocols to serve. */
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
   * wrong}, `wrong` if the answer was not the right one; `options` for the protocol's use().
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

  /** Like use(), first without the setting in the row; {setting: true} if it works only with it. */
  async useAsNeeded(row, route, options) {
    const first = await this.use(row, route, row.settingNeeded ? { ...options, setting: false } : options);
    if (first.works || !row.settingNeeded) return { setting: false, ...first };
    const second = await this.use(row, route, { ...options, setting: true });
    return { setting: true, without: first.error, ...second };
  }

  /** Ends the uses that were started with `hold`. */
  async release() { await this.#tools.release(); }

  async end() { await this.#site.end(); }
}
