// Faults between the engineer and the relay, inside the lab's own namespaces: dropped datagrams and
// segments, a small path MTU, and a line that loses, delays and reorders.
//
// Packets are dropped where they arrive, so that the sender gets no error, as on a real network.
import { setTimeout as sleep } from 'node:timers/promises';

import { kCloud, kEngineer } from './network.mjs';
import { kWire } from './paths.mjs';
import { runOrFail } from './processes.mjs';

const kTable = 'lab_faults';
const kOrdinaryMtu = 1500;
const kWireDevice = 'wire0';
/** A common router's queue: a quarter of a second at 8 Mbit/s, a second at 2. */
const kRouterQueueBytes = 256 * 1024;
const kDirections = {
  both: ['toRelay', 'toClient'], toRelay: ['toRelay'], toClient: ['toClient'],
};

/** The host at which each direction arrives, and which port is the relay's. */
const kArrival = {
  toRelay: { host: 'cloud', port: 'dport', clientPort: 'sport' },
  toClient: { host: 'engineer', port: 'sport', clientPort: 'dport' },
};

export class NetworkFaults {
  #network;
  #processes;
  #port;
  #rules = { engineer: [], cloud: [] };
  #wire = null;  // {child, drainMs, output}

  /** `port` is the relay's, for TCP and UDP. */
  constructor(network, processes, port) {
    this.#network = network;
    this.#processes = processes;
    this.#port = port;
  }

  /** Drops the relay's datagrams: 'both' ways, only 'toRelay' or only 'toClient'. */
  async blockUdp(direction = 'both') {
    for (const way of kDirections[direction]) {
      const { host, port } = kArrival[way];
      this.#rules[host].push(`udp ${port} ${this.#port} drop`);
    }
    await this.#apply();
  }

  /**
   * Drops the relay's segments both ways, without a reset: all of them or, with `onlyPresent`, only
   * those of the current connections, while new ones work.
   */
  async dropTcp({ onlyPresent = false } = {}) {
    const ports = onlyPresent ? await this.#presentClientPorts() : null;
    for (const { host, port, clientPort } of Object.values(kArrival)) {
      const client = ports ? `tcp ${clientPort} { ${ports.join(', ')} }` : '';
      this.#rules[host].push(`tcp ${port} ${this.#port} ${client} drop`);
    }
    await this.#apply();
  }

  async #presentClientPorts() {
    const { stdout } = await runOrFail(['ss', '-tnH', 'state', 'established', 'dport', '=', `:${this.#port}`],
      { namespace: this.#network.engineer });
    const ports = stdout.split('\n').filter(Boolean).map((line) => /:(\d+)\s+\S+\s*$/.exec(line)[1]);
    if (ports.length === 0) throw new Error('There is no TCP connection to the relay.');
    return ports;
  }

  /**
   * Limits the path to IP packets of `mtu` bytes. Senders fragment larger datagrams; `dropFragments`
   * drops the fragments.
   */
  async limitMtu(mtu, { dropFragments = true } = {}) {
    await this.#setMtu(mtu);
    if (!dropFragments) return;
    for (const [host, sender] of [['engineer', kCloud], ['cloud', kEngineer]]) {
      this.#rules[host].push(`ip saddr ${sender} ip frag-off & 0x3fff != 0 drop`);
    }
    await this.#apply();
  }

  /**
   * In each direction, delays every packet by `delayMs`, loses `lossPercent` of them and holds
   * `reorderPercent` back for another `holdMs`; tenths of a percent are possible. Carries
   * `kilobitsPerSecond` (0: no limit) behind a queue of `queueBytes`, which drops packets when full.
   */
  async worsenLine({ delayMs = 0, lossPercent = 0, reorderPercent = 0, holdMs = 20, kilobitsPerSecond = 0,
    queueBytes = kRouterQueueBytes, seed = 1 } = {}) {
    await this.#removeWire();
    const { engineer, cloud } = this.#network;
    const permille = (percent) => String(Math.round(percent * 10));
    const child = await this.#processes.start('wire', [kWire, '--a', engineer, '--b', cloud,
      '--device', kWireDevice, '--delay', String(delayMs), '--loss', permille(lossPercent),
      '--reorder', permille(reorderPercent), '--hold', String(holdMs), '--rate', String(kilobitsPerSecond),
      '--queue', String(queueBytes), '--seed', String(seed)],
    { ready: /ready/ });
    const queueMs = kilobitsPerSecond === 0 ? 0 : (queueBytes * 8) / kilobitsPerSecond;
    const wire = { child, drainMs: delayMs + holdMs + queueMs, output: '' };
    child.stdout.on('data', (bytes) => { wire.output += bytes; });
    this.#wire = wire;
    await this.#route('replace');
  }

  // Host routes take precedence over the cable's network, so that the line replaces the cable.
  async #route(verb) {
    const { engineer, cloud } = this.#network;
    for (const [host, own, other] of [[engineer, kEngineer, kCloud], [cloud, kCloud, kEngineer]]) {
      await runOrFail(['ip', '-n', host, 'route', verb, `${other}/32`, 'dev', kWireDevice, 'src', own]);
    }
  }

  async #removeWire() {
    if (this.#wire === null) return null;
    const wire = this.#wire;
    await this.#route('del');
    await sleep(wire.drainMs + 50);
    await this.#processes.stop(wire.child);
    this.#wire = null;
    const { fromA, fromB } = JSON.parse(wire.output.trim().split('\n').at(-1));
    return { toRelay: fromA, toClient: fromB };
  }

  async #setMtu(mtu) {
    for (const [host, name] of [['engineer', 'lan0'], ['cloud', 'eng0']]) {
      await runOrFail(['ip', '-n', this.#network[host], 'link', 'set', name, 'mtu', String(mtu)]);
    }
  }

  /** Priority -450 comes before the kernel reassembles fragments. */
  async #apply() {
    for (const [host, rules] of Object.entries(this.#rules)) {
      const chain = ['chain arrival {', 'type filter hook prerouting priority -450', ...rules, '}'];
      const table = rules.length > 0 ? [`table ip ${kTable} {`, ...chain, '}'] : [];
      const text = [`table ip ${kTable} {}`, `delete table ip ${kTable}`, ...table, ''].join('\n');
      await runOrFail(['nft', '-f', '-'], { namespace: this.#network[host], input: text });
    }
  }

  /**
   * Ends every fault. Returns a worsened line's counts, {toRelay, toClient} of {carried, lost,
   * heldBack}, or null.
   */
  async clear() {
    this.#rules = { engineer: [], cloud: [] };
    await this.#apply();
    await this.#setMtu(kOrdinaryMtu);
    return this.#removeWire();
  }
}
