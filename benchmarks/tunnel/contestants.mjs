// The contestants: the floors, this project's session, and its peers. Each `start` brings up both ends
// and returns the engineer's process.
import { mkdir, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

import { kBuild } from '../../lab/harness/paths.mjs';
import { run, runOrFail } from '../../lab/harness/processes.mjs';
import { inside, kAssigned, kDevices, kEngineerOuter, kMtu, kSiteNetwork, kSiteOuter } from './world.mjs';

const kPort = '4000';
const kSocketBytes = String(4 << 20);
const program = (name) => path.join(kBuild, 'bench/benchmarks/tunnel', name);
/** Starts the site's end, then the engineer's; returns the latter. */
async function startBoth({ processes, name, pair }, commands, ready = {}) {
  const started = {};
  for (const end of ['site', 'engineer']) {
    started[end] = await processes.start(`${name} (${end})`, inside(pair[end], commands[end]),
      { ready: ready[end] });
  }
  return started.engineer;
}

const kReady = { site: /^ready$/m, engineer: /^ready$/m };

const floorUdp = (context) => startBoth(context, {
  site: [program('floor'), 'udp', kDevices.site, String(kMtu), kEngineerOuter, kPort],
  engineer: [program('floor'), 'udp', kDevices.engineer, String(kMtu), kSiteOuter, kPort],
}, kReady);

const floorTcp = (context) => startBoth(context, {
  site: [program('floor'), 'listen', kDevices.site, String(kMtu), kPort],
  engineer: [program('floor'), 'connect', kDevices.engineer, String(kMtu), kSiteOuter, kPort],
}, kReady);

const session = (way) => (context) => startBoth(context, {
  site: [program('relay'), kDevices.site, String(kMtu), kPort, way],
  engineer: [program('session'), kDevices.engineer, String(kMtu), `http://${kSiteOuter}:${kPort}`,
    kAssigned, kSiteNetwork, way],
}, kReady);

/** Makes a key with its certificate; the other end recognises it by the certificate's fingerprint. */
async function makeCertificate(folder, name) {
  const file = (extension) => path.join(folder, `${name}.${extension}`);
  await runOrFail(['openssl', 'req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1',
    '-nodes', '-days', '2', '-subj', `/CN=${name}`, '-keyout', file('key'), '-out', file('crt')]);
  const { stdout } = await runOrFail(['openssl', 'x509', '-in', file('crt'), '-noout', '-fingerprint', '-sha256']);
  return { key: file('key'), certificate: file('crt'), fingerprint: stdout.trim().split('=')[1] };
}

/**
 * OpenVPN between two ends with TLS, as required from version 2.6 on. `cipher` protects the packets: none (and no
 * authentication) or AES-256-GCM. Without its kernel module, with the settings for speed.
 */
const openVpn = (transport, cipher) => async (context) => {
  const folder = path.join(context.folder, context.name);
  await mkdir(folder, { recursive: true });
  const keys = { site: await makeCertificate(folder, 'site'), engineer: await makeCertificate(folder, 'engineer') };
  const common = ['--dev-type', 'tun', '--tun-mtu', String(kMtu), '--disable-dco', '--data-ciphers', cipher,
    '--reneg-sec', '0', '--reneg-bytes', '0', '--sndbuf', kSocketBytes, '--rcvbuf', kSocketBytes,
    ...(cipher === 'none' ? ['--cipher', 'none', '--auth', 'none'] : []),
    ...(transport === 'udp' ? ['--fast-io'] : ['--socket-flags', 'TCP_NODELAY'])];
  const own = (end, other) => ['openvpn', ...common, '--dev', kDevices[end], '--cert', keys[end].certificate,
    '--key', keys[end].key, '--peer-fingerprint', keys[other].fingerprint];
  const isTcp = transport === 'tcp';
  const site = [...own('site', 'engineer'), '--tls-server', '--dh', 'none', '--local', kSiteOuter, '--port', kPort,
    '--proto', isTcp ? 'tcp-server' : 'udp'];
  const engineer = [...own('engineer', 'site'), '--tls-client', '--nobind', '--remote', kSiteOuter, kPort,
    '--proto', isTcp ? 'tcp-client' : 'udp'];
  return startBoth(context, { site, engineer },
    { site: isTcp ? /Listening for incoming TCP/ : /link local/, engineer: /Initialization Sequence Completed/ });
};

async function makeWireGuardKey(folder, end) {
  const { stdout } = await runOrFail(['wg', 'genkey']);
  const file = path.join(folder, end);
  await writeFile(file, stdout, { mode: 0o600 });
  return { file, known: (await runOrFail(['wg', 'pubkey'], { input: stdout })).stdout.trim() };
}

/** Configures a device; retries until wireguard-go answers on its control socket. */
async function setWireGuard(namespace, device, words) {
  for (let tries = 1; ; tries += 1) {
    const result = await run(inside(namespace, ['wg', 'set', device, ...words]));
    if (result.code === 0) return;
    if (tries === 50) throw new Error(`wg set failed: ${result.stderr}`);
    await sleep(50);
  }
}

async function wireGuard(context) {
  const command = (end) => ['wireguard-go', '-f', kDevices[end]];
  const engineer = await startBoth(context, { site: command('site'), engineer: command('engineer') });
  const folder = path.join(context.folder, context.name);
  await mkdir(folder, { recursive: true });
  const keys = { site: await makeWireGuardKey(folder, 'site'), engineer: await makeWireGuardKey(folder, 'engineer') };
  const set = (end, other, own, peer) => setWireGuard(context.pair[end], kDevices[end],
    ['private-key', keys[end].file, ...own, 'peer', keys[other].known, 'allowed-ips', '0.0.0.0/0', ...peer]);
  await set('site', 'engineer', ['listen-port', kPort], []);
  await set('engineer', 'site', [], ['endpoint', `${kSiteOuter}:${kPort}`]);
  return engineer;
}

/** In the order of the table. `anchor(figure)` names the contestant to compare a figure with. */
export const kContestants = [
  { name: 'FloorUdp', title: 'floor UDP', start: floorUdp },
  { name: 'FloorTcp', title: 'floor TCP', start: floorTcp },
  { name: 'Tunnel', title: 'ours', start: session('udp'),
    anchor: (figure) => (figure.isBulk ? 'FloorTcp' : 'FloorUdp') },
  { name: 'TunnelWebSocket', title: 'ours, no UDP', start: session('websocket'), anchor: () => 'FloorTcp' },
  { name: 'OpenVpnUdp', title: 'OpenVPN UDP', start: openVpn('udp', 'none'), anchor: () => 'Tunnel' },
  { name: 'OpenVpnUdpAes', title: 'UDP, AES', start: openVpn('udp', 'AES-256-GCM'), anchor: () => 'Tunnel' },
  { name: 'OpenVpnTcp', title: 'OpenVPN TCP', start: openVpn('tcp', 'none'), anchor: () => 'TunnelWebSocket' },
  { name: 'OpenVpnTcpAes', title: 'TCP, AES', start: openVpn('tcp', 'AES-256-GCM'), anchor: () => 'TunnelWebSocket' },
  { name: 'WireGuard', title: 'wireguard-go', start: wireGuard, anchor: () => 'Tunnel' },
];

export const kPacketsProgram = program('packets');
