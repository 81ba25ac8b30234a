// One lab: the network, the site, the service, the display and a Windows with the program in it.
// create() starts everything except the program; close() ends everything and returns what was left over.
import { mkdir, mkdtemp, readFile, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';

import { kProfilePrefix } from '../standins/browser/chromium.mjs';
import { connectBridge } from '../standins/browser/client.mjs';
import { Desktop } from './desktop.mjs';
import { Display } from './display.mjs';
import { kWorkFolderPrefix, processesHolding, temporaryFolders } from './leftovers.mjs';
import {
  kCloud, kCloudToSite, kDirectRoute, kOverlappingRoute, kSite, kTunnelAddress, Network,
} from './network.mjs';
import { NetworkFaults } from './network_faults.mjs';
import { kBrowserRuntime, kBuild, kLabSuffix, kRepo, kTunBridge } from './paths.mjs';
import { Processes, run } from './processes.mjs';
import { Program } from './program.mjs';
import { forgetRustDesk } from '../standins/rustdesk/rustdesk.mjs';
import { connectService } from '../standins/service/service.mjs';
import { WinePrefix } from './wine.mjs';

export const kServicePort = 31080;
export const kServiceUrl = `http://${kCloud}:${kServicePort}`;
export const kDeviceSecret = 'KEY-7F3A-90C2-11D4';
/** The service's default grant. */
export const kGrant = {
  connectionId: 'CONN-0001', assignedAddress: kTunnelAddress, routes: [kDirectRoute, kOverlappingRoute],
};

const kControllerPorts = { modbus: 502, web: 80 };
const kBridgePort = 7300;
const kDriverPort = 7002;
const kTunPort = 7001;
const kSitePort = 7100;
const kRelayToSitePort = 7101;
const kKillMs = 5000;
const kSignals = ['SIGINT', 'SIGTERM'];

export class Lab {
  #serviceChild;
  #serviceStarts = 0;
  #grant = [kGrant];
  #onSignal = () => this.close().finally(() => process.exit(130));

  /**
   * `artifacts` is the folder for logs and screenshots. Options: `settings`, the settings file's content
   * before the start (an object is written as JSON with the lab's service address, a string unchanged,
   * null for no file); `site: false` omits the controller; `controllerPorts` {modbus, web} frees its
   * usual ports for other servers; `closeOnSignal: false` leaves Ctrl+C to the caller.
   */
  static async create({ artifacts, settings = {}, site = true, controllerPorts = kControllerPorts, size,
    closeOnSignal = true } = {}) {
    const lab = new Lab();
    lab.controllerPorts = controllerPorts;
    lab.artifacts = artifacts;
    if (closeOnSignal) for (const signal of kSignals) process.once(signal, lab.#onSignal);
    await mkdir(artifacts, { recursive: true });
    lab.processes = new Processes();
    lab.network = new Network(kLabSuffix);
    lab.faults = new NetworkFaults(lab.network, lab.processes, kServicePort);
    lab.prefix = new WinePrefix(path.join(kBuild, `lab${kLabSuffix}/prefix`));
    lab.display = new Display();
    lab.workFolder = await mkdtemp(path.join(tmpdir(), kWorkFolderPrefix));
    try {
      await lab.prefix.ensure();
      await lab.network.create();
      await lab.#startHosts(site);
      await lab.#startDesk(settings, size);
    } catch (error) {
      await lab.close();
      throw error;
    }
    return lab;
  }

  #log(name) { return path.join(this.artifacts, `${name}.log`); }

  async #startHosts(site) {
    await this.processes.start('site tun', [kTunBridge, '--tun', 'site0', '--listen',
      `${kSite}:${kSitePort}`, '--peer', `${kCloudToSite}:${kRelayToSitePort}`],
    { namespace: this.network.site, log: this.#log('site-tun'), ready: /ready/ });
    await this.network.routeTunnelOnSite('site0');
    await this.restartService();
    if (site) await this.#startPlc();
  }

  // ---- the service's process

  /** Starts the service, or restarts it after killService(); it keeps only the last grant. */
  async restartService() {
    this.#serviceStarts += 1;
    const name = this.#serviceStarts === 1 ? 'service' : `service-${this.#serviceStarts}`;
    this.#serviceChild = this.processes.fork(name, path.join(kRepo, 'lab/standins/service/main.mjs'),
      { namespace: this.network.cloud, log: this.#log(name) });
    const service = await connectService(this.#serviceChild);
    const setGrant = async (...grant) => {
      this.#grant = grant;
      await service.setGrant(...grant);
    };
    this.service = { ...service, setGrant };
    await this.service.setGrant(...this.#grant);
    await this.service.listen({
      host: '0.0.0.0', port: kServicePort,
      site: { host: kSite, port: kSitePort, localPort: kRelayToSitePort },
    });
  }

  /** Ends the service like a crash: its record is lost, and the kernel resets its connections. */
  async killService() {
    this.#serviceChild.kill('SIGKILL');
    await this.processes.waitForExit(this.#serviceChild, kKillMs);
  }

  /**
   * Stops the service's process without ending it. The kernel still accepts connections and data until
   * its buffers are full. Calls of the service wait until continueService().
   */
  pauseService() { this.#serviceChild.kill('SIGSTOP'); }
  continueService() { this.#serviceChild.kill('SIGCONT'); }

  async #startPlc() {
    this.plcFile = path.join(this.workFolder, 'plc.bin');
    await run(['dd', 'if=/dev/urandom', `of=${this.plcFile}`, 'bs=1M', 'count=5', 'status=none']);
    const namespace = this.network.plc;
    await this.processes.start('plc', ['node', path.join(kRepo, 'lab/standins/plc/main.mjs'), this.plcFile,
      String(this.controllerPorts.modbus), String(this.controllerPorts.web)],
    { namespace, log: this.#log('plc'), ready: /ready/ });
    await this.processes.start('iperf3', ['iperf3', '-s', '--forceflush'],
      { namespace, log: this.#log('iperf3'), ready: /Server listening/ });
  }

  async #startDesk(settings, size) {
    const { engineer } = this.network;
    await this.display.start(this.processes, { ...size, log: this.#log('xvfb') });
    await this.processes.start('engineer tun', [kTunBridge, '--tun', 'wd0', '--listen',
      `127.0.0.1:${kTunPort}`, '--peer', `127.0.0.1:${kDriverPort}`],
    { namespace: engineer, log: this.#log('engineer-tun'), ready: /ready/ });
    await this.network.routeEngineerThrough('wd0');
    const child = this.processes.fork('browser bridge', path.join(kRepo, 'lab/standins/browser/main.mjs'),
      { namespace: engineer, log: this.#log('browser') });
    this.bridge = await connectBridge(child);
    await this.bridge.listen({ port: kBridgePort });
    await this.prefix.stopServer();
    await this.prefix.forgetProgram();
    await forgetRustDesk(this.prefix);
    this.desktop = new Desktop(this);
    this.rustDesk = this.desktop.makeRustDesk('rustdesk');
    await this.prefix.setBrowserRuntime(kBrowserRuntime, { namespace: engineer });
    await this.prefix.setProxyOverride(null, { namespace: engineer });
    await this.writeSettings(settings);
  }

  /** Writes the settings file for the program's next start; see create(). */
  async writeSettings(settings) {
    await mkdir(this.prefix.roaming, { recursive: true });
    if (settings === null) await rm(this.prefix.settingsFile, { force: true });
    else {
      const text = typeof settings === 'string' ? settings
        : JSON.stringify({ serverUrl: kServiceUrl, ...settings });
      await writeFile(this.prefix.settingsFile, text);
    }
  }

  /** Environment of the program and of other Windows commands. */
  get windowsEnv() {
    return {
      ...this.prefix.env, DISPLAY: this.display.name, LAB_WEBVIEW_PORT: String(kBridgePort),
      LAB_WINDIVERT_PORT: String(kDriverPort), LAB_WINDIVERT_PEER: String(kTunPort),
      LAB_WINDIVERT_LOG: this.#log('driver'), LAB_RUSTDESK: path.join(this.artifacts, 'rustdesk'),
    };
  }

  /**
   * Starts the program in the engineer's namespace and returns once the page is ready and the update
   * check has finished, unless `waitForPage` or `waitForUpdateCheck` is false. `file` is the program's
   * file, by default the built one; `args` are its arguments.
   */
  async startProgram({ env = {}, file, args, waitForPage, waitForUpdateCheck } = {}) {
    this.program = new Program(this);
    await this.program.start({ env, file, args, waitForPage, waitForUpdateCheck });
    return this.program;
  }

  /** Runs one of the engineer's tools. */
  async tool(command, options = {}) {
    return run(command, { namespace: this.network.engineer, ...options });
  }

  async driverLog() {
    return readFile(this.#log('driver'), 'utf8').catch(() => '');
  }

  /** Ends everything. Returns a list of leftovers: processes, namespaces, folders. */
  async close() {
    for (const signal of kSignals) process.off(signal, this.#onSignal);
    await this.program?.end();
    await this.program?.keepLog();
    await this.bridge?.closeAll().catch(() => {});
    await this.prefix.stopServer();
    if (this.#serviceChild) this.continueService();  // a stopped process cannot receive the request to end
    await this.processes.stopAll();
    const left = [];
    for (const host of ['engineer', 'cloud', 'site', 'plc']) {
      for (const pid of await this.network.processesIn(host)) left.push(`process ${pid} in ${host}`);
    }
    await this.network.remove();
    left.push(...(await this.network.leftovers()).map((name) => `namespace ${name}`));
    await rm(this.workFolder, { recursive: true, force: true });
    left.push(...(await processesHolding([this.prefix.folder, this.workFolder, kProfilePrefix])));
    left.push(...(await temporaryFolders()));
    return left;
  }
}
