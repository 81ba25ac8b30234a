// Measures the program's throughput in the lab, compared with a Windows program that only receives from the lab's
// driver and sends back to it.
//
// That loop has its own TUN device and port. It exchanges the addresses of each packet, so a server at the engineer's own
// address receives it: for each packet that the program captures and sends to the relay, or receives and injects, the
// loop captures one and injects it. The rest of the program's path (relay, site, controller) needs processor time that the
// loop has for itself; the processor time reported beside each rate excludes it.
import { readFile } from 'node:fs/promises';
import path from 'node:path';

import { kEngineer, kPlc } from '../../lab/harness/network.mjs';
import { kBuild, kRepo, kTunBridge } from '../../lab/harness/paths.mjs';
import { runOrFail } from '../../lab/harness/processes.mjs';
import { iperf } from '../../lab/harness/tools.mjs';
import { cpuMsOf } from './process_figures.mjs';

const kLoopProgram = path.join(kBuild, 'windows/benchmarks/driver_loop.exe');
const kEchoRate = path.join(kRepo, 'benchmarks/program/echo_rate.mjs');
const kTun = 'wd1';
const kTunPort = 7003;
const kDriverPort = 7004;
const kLoopNetwork = '192.168.78.0/24';
const kLoopTarget = '192.168.78.10';
const kSeconds = 2;
const kBitsPerMegabyte = 8;  // megabits

/** Starts the loop and its servers. Returns the loop's process. */
export async function startLoop(lab) {
  const { processes, network: { engineer: namespace }, prefix } = lab;
  await processes.start('loop tun', [kTunBridge, '--tun', kTun, '--listen', `127.0.0.1:${kTunPort}`,
    '--peer', `127.0.0.1:${kDriverPort}`], { namespace, ready: /ready/ });
  await runOrFail(['ip', '-n', namespace, 'route', 'add', kLoopNetwork, 'dev', kTun, 'src', kEngineer]);
  const env = { ...lab.windowsEnv, LAB_WINDIVERT_PORT: String(kDriverPort), LAB_WINDIVERT_PEER: String(kTunPort),
    LAB_WINDIVERT_LOG: path.join(lab.artifacts, 'loop-driver.log') };
  const loop = await processes.start('driver loop', prefix.command(prefix.windowsPath(kLoopProgram), ['outbound and ip']),
    { namespace, env, log: path.join(lab.artifacts, 'loop.log'), ready: /ready/ });
  await processes.start('iperf3', ['iperf3', '-s', '--forceflush'], { namespace, ready: /Server listening/ });
  await processes.start('echo', [process.execPath, '--input-type=module', '-e',
    `import { startEcho } from ${JSON.stringify(path.join(kRepo, 'lab/standins/plc/echo.mjs'))};
     await startEcho({ host: '${kEngineer}' });
     console.log('ready');`], { namespace, ready: /ready/ });
  return loop;
}

/** The process of the Wine server that both programs share. */
async function wineServer(lab) {
  for (const pid of await lab.network.processesIn('engineer')) {
    if ((await readFile(`/proc/${pid}/comm`, 'utf8').catch(() => '')).startsWith('wineserver')) return pid;
  }
  throw new Error('There is no Wine server.');
}

/** Runs `body` and returns the processor time that `pids` used in the meantime. */
async function withCpu(pids, body) {
  const sum = async () => (await Promise.all(pids.map(cpuMsOf))).reduce((all, ms) => all + ms);
  const before = await sum();
  const result = await body();
  return { ...result, cpuMs: await sum() - before };
}

async function transfer(lab, address, reverse) {
  const { ok, error, figures } = await iperf(lab, address, { reverse, seconds: kSeconds });
  if (!ok) throw new Error(`iperf3 to ${address}: ${error}`);
  return { ms: (kBitsPerMegabyte * 1000) / figures.megabitsPerSecond, count: figures.bytes / 1e6 };
}

async function echoes(lab, address) {
  const { code, stdout, stderr } = await lab.tool([process.execPath, kEchoRate, address, String(kSeconds)]);
  if (code !== 0) throw new Error(`Echoes of ${address}: ${stderr}`);
  const { answered, perSecond } = JSON.parse(stdout);
  return { ms: 1000 / perSecond, count: answered };
}

/** One round of both in turns: time per megabyte each way and per round trip of a small packet. */
export async function measureTraffic(lab, loop, figures) {
  const server = await wineServer(lab);
  const targets = [['', kPlc, lab.program.child.pid], ['_Anchor', kLoopTarget, loop.pid]];
  for (const [suffix, address, pid] of targets) {
    const add = async (name, argument, unit, factor, body) => {
      const { ms, count, cpuMs } = await withCpu([pid, server], body);
      figures.add(`Program${name}${suffix}${argument}`, unit, ms * factor);
      figures.add(`Program${name}Cpu${suffix}${argument}`, unit, (cpuMs / count) * factor);
    };
    await add('UploadMegabyte', '', 'ms', 1, () => transfer(lab, address, false));
    await add('DownloadMegabyte', '', 'ms', 1, () => transfer(lab, address, true));
    await add('SmallPacket', '/64', 'us', 1000, () => echoes(lab, address));
  }
}
