// A soak: a working day of mixed traffic and real protocols through the tunnel, with faults at random moments and, after
// each recovery, an engineer who does several things at once. The printed seed repeats a run.
// Usage: node lab/run/soak/main.mjs [MINUTES] [SEED]
import { randomInt } from 'node:crypto';
import { mkdir, rm, writeFile } from 'node:fs/promises';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

import { endedConnections, Engineer, wrongReports } from '../../harness/acts.mjs';
import { kDeviceSecret, kGrant, Lab } from '../../harness/lab.mjs';
import { kPlc } from '../../harness/network.mjs';
import { kBuild } from '../../harness/paths.mjs';
import { Survey } from '../../protocols/survey.mjs';
import { download, modbus, ping } from '../../harness/tools.mjs';
import { describe, startTraffic } from '../../harness/traffic.mjs';
import { kSoakFaults } from './faults.mjs';
import { Random } from '../../harness/random.mjs';
import { Usage } from './usage.mjs';
import { kServed, Work, writeTable } from './work.mjs';

const kFolder = path.join(kBuild, 'soak');
const kOverlappingPlc = '172.31.0.10';  // 10.10.0.10 on site, from the engineer's computer
const kEchoPort = 7;
// The usual ports are used by the protocols at work.
const kControllerPorts = { modbus: 1502, web: 8080 };
const kLargePayload = 1400;  // too large for the UDP path
const kTransferSeconds = 240;
const kSilentSeconds = 60;
const kRecoveryMs = 90_000;
// Allowed growth without a leak: the page's log and the flow tables, 80 bytes per flow.
const kMegabytes = 16;
const kHandles = 10;

// Only at the end: a transfer that waits for data sends nothing from which a new tunnel could learn its flow.
const kNewConnections = 5;

const minutes = Number(process.argv[2] ?? 30);
const seed = Number(process.argv[3] ?? randomInt(2 ** 31));
const random = new Random(seed);
const order = { connections: 0, messages: 0, outOfOrder: 0, missing: 0, returnedOutOfOrder: 0 };
const protocolErrors = [];
const connections = { granted: [], ended: [] };
let lab;
let ending = false;

/** Saves the service's record, which is lost when it is killed. */
async function takeRecord() {
  for (const [name, value] of Object.entries(await lab.service.order())) order[name] += value;
  protocolErrors.push(...await lab.service.protocolErrors());
  connections.granted.push(...await lab.service.granted());
  connections.ended.push(...await endedConnections(lab.service));
}

/**
 * Like an engineer, restarts a download that has been silent for a minute: after several faults in a row, TCP waits for
 * minutes before it retries, even if the tunnel already works again.
 */
async function downloadPersistently(results, address) {
  const end = performance.now() + kTransferSeconds * 1000;
  for (;;) {
    const seconds = Math.ceil((end - performance.now()) / 1000);
    const result = await download(lab, address, { seconds, silentSeconds: kSilentSeconds });
    if (!result.silent || performance.now() + 1000 > end) return result;
    results.restarts += 1;
  }
}

async function useTools(results) {
  for (let round = 0; !ending; round += 1) {
    const address = round % 2 === 0 ? kPlc : kOverlappingPlc;
    results.downloads.push(await downloadPersistently(results, address));
    for (const [name, tool] of [['modbus', modbus], ['pings', ping]]) {
      const { ok } = await tool(lab, address);
      results[name][ok ? 'ok' : 'failed'] += 1;
    }
  }
}

async function runFaults(traffic, engineer, report) {
  const started = performance.now();
  const end = started + minutes * 60_000;
  while (performance.now() < end) {
    await sleep(random.between(1, 6) * 1000);
    const fault = random.choice(kSoakFaults);
    const fromMs = performance.now();
    const atSeconds = (fromMs - started) / 1000;
    const entry = { atSeconds, name: fault.name, fromMs, untilMs: Infinity };
    report.faults.push(entry);
    const killing = fault.name === 'service killed';
    if (killing) await takeRecord();
    const what = await fault.run(lab, random);
    if (killing) await lab.service.watchOrder({ port: kEchoPort });
    Object.assign(entry, { what });
    process.stdout.write(`${atSeconds.toFixed(0).padStart(5)} s  ${fault.name}${what ? `: ${what}` : ''}; `);
    const recoveries = await Promise.all(traffic.map((one) => one.waitUntilFlowing({ timeoutMs: kRecoveryMs })));
    entry.recoverySeconds = Math.max(...recoveries) / 1000;
    entry.untilMs = performance.now();
    const { acts } = await engineer.round('#c-test');
    console.log(`traffic after ${entry.recoverySeconds.toFixed(1)} s; ${['test', ...acts.map(({ act }) => act)].join(', ')}`);
  }
}

async function connect() {
  const program = await lab.startProgram();
  await program.type('#c-secret', kDeviceSecret);
  await program.click('#c-connect');
  await program.waitForText('#s-state', '在线');
}

function judge({ tools, small, large, usage, finalTools, finalUses, work, engineer, reports }) {
  const { megabytes, threads, handles } = usage;
  return {
    'every transfer complete and its hash right': tools.downloads.every(({ ok }) => ok),
    'TCP stream in order and unbroken': small.tcp.outOfOrder === 0 && small.tcp.wrongBytes === 0 &&
      small.tcp.breaks.length === 0,
    'datagrams as they were sent': small.udp.wrong === 0 && large.udp.wrong === 0,
    // Data waiting in a lost connection may reach the relay after newer packets and be answered late.
    'order kept on each WebSocket, both ways': order.outOfOrder === 0 &&
      large.udp.reordered <= order.returnedOutOfOrder,
    'nothing lost on a WebSocket that lives': order.missing === 0 && order.messages > 0,
    'every protocol at work': work.every(({ requests }) => requests > 0),
    'no request answered wrongly': work.every(({ wrong }) => wrong.length === 0),
    'no use failed but by a fault': work.every(({ unexplained }) => unexplained.length === 0),
    'what was done beside a job stays done': engineer.wrong.length === 0 && engineer.acts > 0,
    'each connection reported ended once': reports.length === 0,
    'no frame or datagram that the relay refuses': protocolErrors.length === 0,
    'memory bounded': megabytes.last - megabytes.first < kMegabytes,
    'threads bounded': threads.last <= threads.first + 2,
    'handles bounded': handles.last - handles.first < kHandles,
    'all tools work afterwards': finalTools.every(({ ok }) => ok),
    'all protocols work afterwards': finalUses.every(({ works }) => works),
  };
}

async function soak() {
  const report = { minutes, seed, faults: [] };
  await lab.service.watchOrder({ port: kEchoPort });
  await lab.service.setGrant(kGrant, { numbered: true });
  const [survey] = await Promise.all([Survey.start(lab, { names: kServed }), connect()]);
  const engineer = new Engineer(lab, random);
  const small = await startTraffic(lab, kPlc, { udp: { sizes: [32, 256, 1302] } });
  const large = await startTraffic(lab, kOverlappingPlc, { udp: { sizes: [kLargePayload] }, tcp: false });
  await Promise.all([small, large].map((one) => one.waitUntilFlowing()));
  const usage = new Usage();
  await usage.start(lab);
  report.tools = { downloads: [], restarts: 0, modbus: { ok: 0, failed: 0 }, pings: { ok: 0, failed: 0 } };
  const tools = useTools(report.tools);
  const work = new Work(survey);
  await runFaults([small, large], engineer, report);
  ending = true;
  await Promise.all([work.stop(), tools]);
  report.work = work.report(report.faults);
  report.usage = await usage.stop();
  report.small = await small.stop();
  report.large = await large.stop();
  for (let i = 0; i < kNewConnections; i += 1) await engineer.round('#c-connect');
  report.finalTools = [];
  for (const address of [kPlc, kOverlappingPlc]) {
    for (const tool of [ping, download, modbus]) report.finalTools.push(await tool(lab, address));
  }
  report.finalUses = await work.useAll();
  await survey.end();
  await takeRecord();
  report.engineer = { rounds: engineer.rounds, acts: engineer.acts, wrong: engineer.wrong };
  report.reports = wrongReports({ ...connections, inForce: (await lab.prefix.readSettings()).connectionId });
  Object.assign(report, { order, protocolErrors, checks: judge(report) });
  return report;
}

function print({ small, large, tools, usage, engineer, reports, work, finalUses, checks }) {
  console.log(`\nsmall datagrams and stream: ${describe(small)}\nlarge datagrams: ${describe(large)}`);
  console.log(`over WebSockets: ${JSON.stringify(order)}`);
  const { length } = tools.downloads;
  console.log(`transfers: ${length}, ${tools.restarts} restarted; modbus ${JSON.stringify(tools.modbus)}; pings ${JSON.stringify(tools.pings)}`);
  for (const [name, { first, last, highest }] of Object.entries(usage)) {
    console.log(`${name}: ${first.toFixed(1)} at first, ${last.toFixed(1)} at last, ${highest.toFixed(1)} at most`);
  }
  console.log(`beside ${engineer.rounds} jobs: ${engineer.acts} acts`);
  for (const { round, done, text } of engineer.wrong) console.log(`job ${round} (${done}): ${text}`);
  for (const text of reports) console.log(text);
  console.log(`\n${writeTable(work)}`);
  for (const { title, route, error } of finalUses.filter(({ works }) => !works)) {
    console.log(`afterwards, ${title}, ${route}: ${error}`);
  }
  for (const [name, ok] of Object.entries(checks)) console.log(`${ok ? 'ok' : 'not ok'} - ${name}`);
}

console.log(`soak: ${minutes} minutes, seed ${seed}`);
await rm(kFolder, { recursive: true, force: true });
await mkdir(kFolder, { recursive: true });
let report = { minutes, seed, checks: {} };
try {
  lab = await Lab.create({ artifacts: kFolder, settings: { testIp: kPlc }, controllerPorts: kControllerPorts });
  report = await soak();
  print(report);
} catch (error) {
  console.log(`not ok - the soak broke off: ${error.stack}`);
  report.checks['ran to its end'] = false;
}
const left = lab ? await lab.close() : [];
report.checks['nothing left behind'] = left.length === 0;
console.log(`${left.length === 0 ? 'ok' : 'not ok'} - nothing left behind ${left.join(', ')}`);
await writeFile(path.join(kFolder, 'report.json'), `${JSON.stringify(report, null, 2)}\n`);
process.exitCode = Object.values(report.checks).every(Boolean) ? 0 : 1;
