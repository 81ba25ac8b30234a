// The lab's network: four hosts as namespaces on one machine, joined by virtual cables.
//
//   engineer 10.10.0.2 -- 10.10.0.1 cloud 10.20.0.1 -- 10.20.0.2 site 192.168.77.1 -- 192.168.77.10 plc
//                                                               site 10.10.0.254   -- 10.10.0.10    plc
//
// The site's second network, 10.10.0.0/24, has the addresses of the engineer's own. No namespace has
// a way out of the lab.
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

/** One lab's namespaces. `suffix` keeps two labs on one machine apart ("" for the plain names). */
export class Network {
  #isOurs = false;  // namespaces of another lab are left alone

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
    // Windows asks for no TCP timestamps unless told to; with them Linux's TCP acts differently on losses.
    await runOrFail(['sysctl', '-qw', 'net.ipv4.tcp_timestamps=0'], { namespace: this.engineer });
  }

  /**
   * What stands behind the tunnel's end on site: replies to the tunnel address go into its TUN, and
   * broadcasts to one of the site's networks that come out of it go on into that network.
   */
  async routeTunnelOnSite(tun) {
    await this.#ip('site', `route add ${kTunnelAddress}/32 dev ${tun}`);
    await runOrFail(['sysctl', '-qw', 'net.ipv4.conf.all.bc_forwarding=1',
      `net.ipv4.conf.${tun}.bc_forwarding=1`], { namespace: this.site });
  }

  /** From now on `host` answers for `network` that it cannot be reached (ICMP type 3, code 1). */
  async refuseNetwork(host, network) {
    await runOrFail(['sysctl', '-qw', 'net.ipv4.ip_forward=1'], { namespace: this[host] });
    await this.#ip(host, `route add unreachable ${network}`);
  }

  /** The engineer's computer has a way to `network` that leads not through the tunnel but by the cable. */
  async routeEngineerByCable(network) {
    await this.#ip('engineer', `route add ${network} via ${kCloud}`);
  }

  /** All that is not on the engineer's own network reaches the stand-in driver's TUN. */
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

  /** Process ids inside one host; a lab that ended properly has none left. */
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

  /** Gives one host's processes names for addresses, {name: address}, in the place of earlier ones. */
  async setNames(host, names) {
    const lines = Object.entries(names).map(([name, address]) => `${address} ${name}\n`);
    // Written in place: the processes have this very file as their /etc/hosts.
    await writeFile(`/etc/netns/${this[host]}/hosts`, `127.0.0.1 localhost\n${lines.join('')}`);
  }

  /**
   * `host` asks the name server at `address` for what its hosts file does not name. A name server that is
   * silent makes each such look-up last.
   */
  async setNameServer(host, address) {
    const folder = `/etc/netns/${this[host]}`;
    await writeFile(`${folder}/nsswitch.conf`, 'hosts: files dns\n');
    await writeFile(`${folder}/resolv.conf`, `nameserver ${address}\noptions timeout:30 attempts:3\n`);
  }

  // Names are answered from the hosts file alone, so that an unknown one fails at once.
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
