// The lab's network: four hosts as namespaces on one machine, joined by virtual cables.
//
//   engineer 10.10.0.2 -- 10.10.0.1 cloud 10.20.0.1 -- 10.20.0.2 site 192.168.77.1 -- 192.168.77.10 plc
//                                                               site 10.10.0.254   -- 10.10.0.10    plc
//
// The site's second network, 10.10.0.0/24, overlaps the engineer's own. No namespace has a route out
// of the lab.
import { mkdir, readdir, rm, writeFile } from 'node:fs/promises';

import { run, runOrFail } from './processes.mjs';

export const kEngineer = '10.10.0.2';
export const kCloud = '10.10.0.1';
export const kCloudToSite = '10.20.0.1';
export const kSite = '10.20.0.2';
export const kPlc = '192.168.77.10';
export const kPlcOverlapping = '10.10.0.10';
export const kTunnelAddress = '10.88.0.2';
export const kDirectRoute = '192.168.77.0/24';
export const kOverlappingRoute = '10.10.0.0/24';

const kHosts = ['engineer', 'cloud', 'site', 'plc'];

/** One lab's namespaces. `suffix` separates labs on one machine ("" for the plain names). */
export class Network {
  #isOurs = false;  // another lab's namespaces must not be touched

  constructor(suffix = '') {
    this.suffix = suffix;
    for (const host of kHosts) this[host] = host + suffix;
  }

  async create() {
    await this.#refuseForeign();
    this.#isOurs = true;
    for (const host of kHosts) {
      await runOrFail(['ip', 'netns', 'add', this[host]]);
      await this.#onlyHostsFile(this[host]);
      await this.#ip(host, 'link set lo up');
    }
    await this.#cable('engineer', 'lan0', [`${kEngineer}/24`], 'cloud', 'eng0', [`${kCloud}/24`]);
    await this.#cable('cloud', 'site0', [`${kCloudToSite}/24`], 'site', 'wan0', [`${kSite}/24`]);
    await this.#cable('site', 'lan0', ['192.168.77.1/24', '10.10.0.254/24'],
      'plc', 'lan0', [`${kPlc}/24`, `${kPlcOverlapping}/24`]);
    await this.#ip('plc', 'route add default via 192.168.77.1');
    await runOrFail(['sysctl', '-qw', 'net.ipv4.ip_forward=1'], { namespace: this.site });
    // Windows uses no TCP timestamps by default; with them, Linux's TCP reacts differently to losses.
    await runOrFail(['sysctl', '-qw', 'net.ipv4.tcp_timestamps=0'], { namespace: this.engineer });
  }

  /**
   * Routes at the tunnel's end on site: replies to the tunnel address enter its TUN, and broadcasts from
   * it to one of the site's networks are forwarded into that network.
   */
  async routeTunnelOnSite(tun) {
    await this.#ip('site', `route add ${kTunnelAddress}/32 dev ${tun}`);
    await runOrFail(['sysctl', '-qw', 'net.ipv4.conf.all.bc_forwarding=1',
      `net.ipv4.conf.${tun}.bc_forwarding=1`], { namespace: this.site });
  }

  /** Makes `host` report that `network` is unreachable (ICMP type 3, code 1). */
  async refuseNetwork(host, network) {
    await runOrFail(['sysctl', '-qw', 'net.ipv4.ip_forward=1'], { namespace: this[host] });
    await this.#ip(host, `route add unreachable ${network}`);
  }

  /** Routes the engineer's packets for `network` through the cable instead of the tunnel. */
  async routeEngineerByCable(network) {
    await this.#ip('engineer', `route add ${network} via ${kCloud}`);
  }

  /** Routes everything outside the engineer's own network into the stand-in driver's TUN. */
  async routeEngineerThrough(tun) {
    await this.#ip('engineer', `route add default dev ${tun} src ${kEngineer}`);
  }

  async remove() {
    if (!this.#isOurs) return;
    for (const host of kHosts) {
      for (const pid of await this.processesIn(host)) {
        try { process.kill(pid, 'SIGKILL'); } catch { /* ended meanwhile */ }
      }
      await run(['ip', 'netns', 'del', this[host]]);
      await rm(`/etc/netns/${this[host]}`, { recursive: true, force: true });
    }
  }

  /** Process ids inside one host; none after a proper end. */
  async processesIn(host) {
    const { code, stdout } = await run(['ip', 'netns', 'pids', this[host]]);
    return code === 0 ? stdout.split('\n').filter(Boolean).map(Number) : [];
  }

  /** The hosts of this lab that still exist. */
  async leftovers() {
    if (!this.#isOurs) return [];
    return this.#existing();
  }

  async #existing() {
    const names = await readdir('/run/netns').catch(() => []);
    return kHosts.map((host) => this[host]).filter((name) => names.includes(name));
  }

  async #refuseForeign() {
    const existing = await this.#existing();
    if (existing.length > 0) {
      throw new Error(`Namespaces of another lab exist (${existing.join(', ')}). ` +
        'If none is running, remove them: ip netns del NAME');
    }
  }

  /** Replaces one host's names for addresses: {name: address}. */
  async setNames(host, names) {
    const lines = Object.entries(names).map(([name, address]) => `${address} ${name}\n`);
    // Written in place, because the namespace has this file mounted as /etc/hosts.
    await writeFile(`/etc/netns/${this[host]}/hosts`, `127.0.0.1 localhost\n${lines.join('')}`);
  }

  /**
   * Makes `host` ask the name server at `address` for names that its hosts file lacks. A silent name
   * server makes each such look-up slow.
   */
  async setNameServer(host, address) {
    const folder = `/etc/netns/${this[host]}`;
    await writeFile(`${folder}/nsswitch.conf`, 'hosts: files dns\n');
    await writeFile(`${folder}/resolv.conf`, `nameserver ${address}\noptions timeout:30 attempts:3\n`);
  }

  // Only the hosts file is used, so that unknown names fail at once.
  async #onlyHostsFile(name) {
    const folder = `/etc/netns/${name}`;
    await mkdir(folder, { recursive: true });
    await writeFile(`${folder}/nsswitch.conf`, 'hosts: files\n');
    await writeFile(`${folder}/hosts`, '127.0.0.1 localhost\n');
    await writeFile(`${folder}/resolv.conf`, '');
  }

  async #cable(hostA, nameA, addressesA, hostB, nameB, addressesB) {
    await runOrFail(['ip', 'link', 'add', nameA, 'netns', this[hostA],
      'type', 'veth', 'peer', 'name', nameB, 'netns', this[hostB]]);
    for (const [host, name, addresses] of [[hostA, nameA, addressesA], [hostB, nameB, addressesB]]) {
      for (const address of addresses) await this.#ip(host, `addr add ${address} dev ${name}`);
      await this.#ip(host, `link set ${name} up`);
    }
  }

  async #ip(host, words) {
    await runOrFail(['ip', '-n', this[host], ...words.split(' ')]);
  }
}
