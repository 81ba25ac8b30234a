// One lab with a slow line between the engineer and the relay, and what ping and Modbus see through it.
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

import { kDeviceSecret } from '../../lab/harness/lab.mjs';
import { kCloud, kEngineer, kPlc } from '../../lab/harness/network.mjs';
import { kBuild, kProgramFile, kRepo } from '../../lab/harness/paths.mjs';
import { runOrFail } from '../../lab/harness/processes.mjs';
import { readPings, readRates } from './tool_output.mjs';

const kModbusRate = path.join(kRepo, 'benchmarks/line/modbus_rate.mjs');
const kShortProgram = path.join(kBuild, 'windows/benchmarks/short_queue/Velmarine.Client.exe');
const kDelayMs = 40;  // each way
const kPingMs = 100;
const kEndSeconds = 1;  // for answers to the last requests
const kDrainMs = 500;
const kLoadPort = 5202;
/** Of the relay: the service's own queue, and the system's buffer per connection. */
const kRelayBytes = { stated: { waiting: 8 << 20, system: 4 << 20 }, short: { waiting: 64 << 10, system: 128 << 10 } };
const kPrograms = { stated: kProgramFile, short: kShortProgram };

/** How long a load runs before it is measured, and for how long it is measured. */
export const kWarmSeconds = { rest: 0, upload: 5, download: 5 };
export const kSeconds = { rest: 4, upload: 7, download: 7 };

/** TCP settings of the transfer's two sides and of the WebSocket, as on Windows. Set by route, so they affect new connections. */
export async function useCubic({ engineer, cloud, plc }) {
  const routes = [[engineer, `10.10.0.0/24 dev lan0 scope link src ${kEngineer}`], [engineer, `default dev wd0 src ${kEngineer}`],
    [cloud, `10.10.0.0/24 dev eng0 scope link src ${kCloud}`], [plc, 'default via 192.168.77.1']];
  for (const [host, route] of routes) {
    await runOrFail(['ip', '-n', host, 'route', 'replace', ...route.split(' '), 'congctl', 'cubic']);
  }
}

/** Sets the queues and buffers of both ends to stated or short; the system's limit affects the relay's new connections. */
export async function startProgram(lab, ends) {
  const { waiting, system } = kRelayBytes[ends];
  await lab.service.setWaitingBytes(waiting);
  await runOrFail(['sysctl', '-qw', `net.ipv4.tcp_wmem=4096 16384 ${system}`], { namespace: lab.network.cloud });
  return lab.startProgram({ file: kPrograms[ends] });
}

/**
 * With and without UDP for small packets. Without it the relay must not send datagrams either: it would keep using the
 * previous connection's endpoint.
 */
const kUdpWays = {
  udp: { helloAnswer: ['proper'], sendPackets: 'afterHello' }, webSocket: { helloAnswer: ['none'], sendPackets: 'never' },
};

export async function connect(lab, way) {
  await lab.service.setUdp(kUdpWays[way]);
  await lab.program.type('#c-secret', kDeviceSecret);
  await lab.program.click('#c-connect');
  await lab.program.waitForText('#s-state', '在线');
}

export async function disconnect(lab) {
  await lab.program.click('#c-stop');
  await lab.program.waitForText('#s-state', '未连接');
}

/** Starts a transfer: {client, server}, both children. */
async function startLoad(lab, load) {
  if (load === 'rest') return null;
  const { processes, network: { engineer, plc }, artifacts } = lab;
  const log = path.join(artifacts, `${load}.log`);
  const server = await processes.start('load server', ['iperf3', '--forceflush', '-s', '-1', '-p', String(kLoadPort)],
    { namespace: plc, ready: /Server listening/ });
  const client = await processes.start(load, ['iperf3', '--forceflush', '-c', kPlc, '-p', String(kLoadPort), '-t', '120',
    ...(load === 'download' ? ['-R'] : [])], { namespace: engineer, log, ready: /connected to/ });
  return { client, server, receiver: load === 'download' ? client : server };
}

/** Ends the transfer. Returns its rate over the last seconds in Mbit/s. */
async function endLoad({ processes }, load, running) {
  if (running === null) return {};
  const { client, server, receiver } = running;
  if (processes.hasEnded(client)) throw new Error(`The transfer ended early:\n${processes.outputOf(client)}`);
  const rates = readRates(processes.outputOf(receiver)).slice(-kSeconds[load]);
  for (const child of [client, server]) await processes.stop(child, 'SIGKILL');
  if (rates.length === 0) throw new Error('The transfer told of no second.');
  return { megabits: rates.reduce((sum, rate) => sum + rate) / rates.length };
}

/**
 * Measures ping and Modbus in parallel under a load, on a line that was idle before: {times, lost, requestMs, megabits}, in
 * milliseconds and, if there is a transfer, its rate in Mbit/s.
 */
export async function measure(lab, kilobitsPerSecond, load) {
  const warmSeconds = kWarmSeconds[load];
  const seconds = kSeconds[load];
  const endSeconds = warmSeconds + seconds + kEndSeconds;
  await lab.faults.worsenLine({ delayMs: kDelayMs, kilobitsPerSecond });
  const running = await startLoad(lab, load);
  const [ping, modbus] = await Promise.all([
    lab.tool(['ping', '-n', '-i', String(kPingMs / 1000), '-w', String(endSeconds), kPlc]),
    lab.tool([process.execPath, kModbusRate, kPlc, String(lab.controllerPorts.modbus), String(warmSeconds), String(seconds)]),
  ]);
  const transfer = await endLoad(lab, load, running);
  await lab.faults.clear();
  await sleep(kDrainMs);  // until the cable's queue is empty
  if (modbus.code !== 0) throw new Error(`Modbus: ${modbus.stderr}`);
  const { times, lost, answered } = readPings(ping.stdout, { intervalMs: kPingMs, warmSeconds, seconds, endSeconds });
  if (answered === 0) throw new Error(`No ping was answered.\n${ping.stdout}`);
  return { times, lost, requestMs: JSON.parse(modbus.stdout).requestMs, ...transfer };
}
