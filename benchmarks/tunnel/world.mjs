// The benchmark's network: two namespaces per contestant, the engineer and the site, joined by a virtual
// cable. All pairs have the same addresses.
//
//   engineer 10.50.0.2 -- cable -- 10.50.0.1 site
//        TUN 10.60.0.2 -- tunnel -- 192.168.77.10 TUN
import { mkdir, readdir, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';

import { run, runOrFail } from '../../lab/harness/processes.mjs';

export const kEngineerOuter = '10.50.0.2';
export const kSiteOuter = '10.50.0.1';
export const kEngineer = '10.60.0.2';
export const kAssigned = '10.88.0.2';  // the address that the session gives the engineer's packets
export const kSite = '192.168.77.10';
export const kSiteNetwork = '192.168.77.0/24';
// What the session clamps TCP to: 1310 bytes of data and two headers. The same for everybody.
export const kMtu = 1350;
const kQueuePackets = 500;  // Linux's own choice for a TUN device
const kPrefix = 'velbench-';
/** The TUN device names. They contain the process id: WireGuard names its control sockets after the device, in a folder that all namespaces share. */
export const kDevices = { engineer: `velbe-${process.pid}`, site: `velbs-${process.pid}` };
const kControlSockets = '/var/run/wireguard';

/** The command line that runs `command` in a namespace; it is killed when this process dies. */
export function inside(namespace, command) {
  return ['nsenter', `--net=/run/netns/${namespace}`, 'setpriv', '--pdeathsig', 'KILL', ...command];
}

export class World {
  #namespaces = [];

  /** Makes the two namespaces of a new contestant and returns their names: {engineer, site}. */
  async addPair(name) {
    const pair = {};
    for (const end of ['engineer', 'site']) {
      pair[end] = `${kPrefix}${process.pid}-${name}-${end}`;
      this.#namespaces.push(pair[end]);
      await runOrFail(['ip', 'netns', 'add', pair[end]]);
      // The system's own IPv6 solicitations would wake idle tunnels.
      await runOrFail(inside(pair[end], ['sysctl', '-qw', 'net.ipv6.conf.all.disable_ipv6=1',
        'net.ipv6.conf.default.disable_ipv6=1']));
      await runOrFail(['ip', '-n', pair[end], 'link', 'set', 'lo', 'up']);
    }
    await runOrFail(['ip', 'link', 'add', 'cable', 'netns', pair.engineer,
      'type', 'veth', 'peer', 'name', 'cable', 'netns', pair.site]);
    for (const [end, address] of [['engineer', kEngineerOuter], ['site', kSiteOuter]]) {
      await runOrFail(['ip', '-n', pair[end], 'addr', 'add', `${address}/24`, 'dev', 'cable']);
      await runOrFail(['ip', '-n', pair[end], 'link', 'set', 'cable', 'up']);
    }
    return pair;
  }

  /** Sets addresses, routes, MTU and queue of the TUN devices that a contestant made in its namespaces. */
  async bringUp(pair) {
    const ends = [['engineer', kEngineer, [kSiteNetwork]], ['site', kSite, [kEngineer, kAssigned]]];
    for (const [end, address, routes] of ends) {
      const ip = (words) => runOrFail(['ip', '-n', pair[end], ...words.split(' ')]);
      await ip(`link set ${kDevices[end]} mtu ${kMtu} txqueuelen ${kQueuePackets} up`);
      await ip(`addr add ${address}/32 dev ${kDevices[end]}`);
      for (const route of routes) await ip(`route add ${route} dev ${kDevices[end]} src ${address}`);
    }
  }

  /** Makes a folder for keys. */
  async makeFolder() {
    this.folder = path.join(tmpdir(), `${kPrefix}${process.pid}`);
    await mkdir(this.folder, { mode: 0o700 });
  }

  async remove() {
    for (const name of this.#namespaces) await run(['ip', 'netns', 'del', name]);
    this.#namespaces = [];
    if (this.folder) await rm(this.folder, { recursive: true, force: true });
  }

  /** Removes leftovers of a benchmark that was killed; its processes died with it. */
  static async removeLeftovers() {
    const isLeft = (name) => {
      const [, pid] = /^velb(?:ench|[es])-(\d+)/.exec(name) ?? [];
      return pid !== undefined && !isAlive(Number(pid));
    };
    const leftIn = async (folder) => (await readdir(folder).catch(() => [])).filter(isLeft);
    for (const name of await leftIn('/run/netns')) await run(['ip', 'netns', 'del', name]);
    for (const folder of [tmpdir(), kControlSockets]) {
      for (const name of await leftIn(folder)) await rm(path.join(folder, name), { recursive: true });
    }
  }
}

function isAlive(pid) {
  try {
    process.kill(pid, 0);
    return true;
  } catch {
    return false;
  }
}
