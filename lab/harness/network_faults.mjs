// Faults of the way between the engineer and the relay, inside the lab's own namespaces: datagrams
// and segments that vanish, a small path MTU, and a line that loses, delays and reorders.
//
// Everything is dropped where it arrives, so that its sender learns nothing, as on a real way.
import { setTimeout as sleep } from 'node:timers/promises';

import { kCloud, kEngineer } from './network.mjs';
import { kWire } from './paths.mjs';
import { runOrFail } from './processes.mjs';

const kTable = 'lab_faults';
const kOrdinaryMtu = 1500;
const kWireDevice = 'wire0';
/** What a common router holds for a line: a quarter of a second at 8 Mbit/s, a second at 2. */
const kRouterQueueBytes = 256 * 1024;
const kDirections = {
  both: ['toRelay', 'toClient'], toRelay: ['toRelay'], toClient: ['toClient'],
};

/** Where packets of one direction arrive, and which of their ports is the relay's. */
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

  /** `port` is the relay's, by TCP and UDP. */
  constructor(network, processes, port) {
    this.#network = network;
    this.#processes = processes;
    this.#port = port;
  }

  /** Datagrams of the relay's port vanish: 'both' ways, only 'toRelay' or only 'toClient'. */
  async blockUdp(direction = 'both') {
    for (const way of kDirections[direction]) {
      const { host, port } = kArrival[way];
      this.#rules[host].push(`udp ${port} ${this.#port} drop`);
    }
    await this.#apply();
  }

  /**
   * Segments of the relay's port vanish without a reset, both ways: all of them or, with
   * `onlyPresent`, those of the connections that there are now, while new ones work.
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
   * The path carries IP packets of at most `mtu` bytes. A sender cuts larger datagrams; their
   * fragments are dropped when `dropFragments`.
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
   * The line delays every packet by `delayMs`, loses `lossPercent` of them and holds
   * `reorderPercent` back for `holdMs` more, in each direction. Tenths of a percent count. It carries
   * `kilobitsPerSecond` (0: no limit) with a queue of `queueBytes` before it; what finds that full is lost.
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

  // Host routes win over the cable's own network, so that the line stands in for the cable.
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

  /** Before the kernel puts fragments together: priority -450 comes ahead of that. */
  async #apply() {
    for (const [host, rules] of Object.entries(this.#rules)) {
      const chain = ['chain arrival {', 'type filter hook prerouting priority -450', ...rules, '}'];
      const table = rules.length > 0 ? [`table ip ${kTable} {`, ...chain, '}'] : [];
      const text = [`table ip ${kTable} {}`, `delete table ip ${kTable}`, ...table, ''].join('\n');
      await runOrFail(['nft', '-f', '-'], { namespace: this.#network[host], input: text });
    }
  }

  /**
   * Ends every fault. Returns what a worsened line did, {toRelay, toClient} of {carried, lost,
   * heldBack}, or null when there was none.
   */
  async clear() {
    this.#rules = { engineer: [], cloud: [] };
    await this.#apply();
    await this.#setMtu(kOrdinaryMtu);
    return this.#removeWire();
  }
}
