// The main job from end to end, for ./demo. Each step is timed and reported with its figures; a failing
// step ends the demo.
import { mkdir, readdir, rm, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { kDeviceSecret, Lab } from '../harness/lab.mjs';
import { kPlc } from '../harness/network.mjs';
import { kBuild } from '../harness/paths.mjs';
import { runOrFail } from '../harness/processes.mjs';
import { waitUntil } from '../harness/program.mjs';
import { download, iperf, modbus, ping } from '../harness/tools.mjs';

const kFolder = path.join(kBuild, 'demo');
const kOverlappingPlc = '172.31.0.10';  // 10.10.0.10 on site, from the engineer's computer
const kMinColours = 3000;
const keep = process.argv.includes('--keep');
const steps = [];
let lab;

async function step(name, action) {
  const started = performance.now();
  const record = { name, ok: false, seconds: 0, figures: {} };
  steps.push(record);
  try {
    const result = await action();
    record.ok = result?.ok ?? true;
    record.figures = result?.figures ?? {};
    if (result?.error) record.error = result.error;
  } catch (error) {
    record.error = error.message;
  }
  record.seconds = Math.round(performance.now() - started) / 1000;
  console.log(`${record.ok ? ' ok ' : 'FAIL'} ${name}  ${record.seconds.toFixed(1)} s  ${summary(record)}`);
  if (!record.ok) throw new Error(`${name}: ${record.error ?? 'not as expected'}`);
}

const summary = ({ figures, error }) => error ?? Object.entries(figures)
  .filter(([, value]) => typeof value === 'number')
  .map(([key, value]) => `${key} ${Number.isInteger(value) ? value : value.toFixed(1)}`).join(', ');

/** Takes a picture, which must show the page: an empty window has 700 colours, the page over ten thousand. */
async function screenshot(name) {
  const file = path.join(kFolder, `${name}.png`);
  await lab.display.screenshot(file);
  const { stdout } = await runOrFail(['identify', '-format', '%k', file]);
  if (Number(stdout) < kMinColours) throw new Error(`${name}.png shows no page: ${stdout} colours`);
}

async function connect() {
  const { program } = lab;
  await screenshot('1-before');
  await program.pointAndClick('#c-secret');
  await lab.display.type(kDeviceSecret);
  await waitUntil('the typed key', async () =>
    (await program.page.evaluate('document.querySelector("#c-secret").value')) === kDeviceSecret);
  await program.pointAndClick('#c-connect');
  await program.waitForText('#s-state', '在线');
  await waitUntil('the mappings', async () => (await program.card('NAT访问IP'))?.includes('172.31.0.0/24'));
  await screenshot('2-connected');
  return { figures: { mapping: await program.card('NAT访问IP') } };
}

async function disconnect() {
  const { program, service } = lab;
  await program.pointAndClick('#c-stop');
  await program.waitForText('#s-state', '未连接');
  await program.waitForText('#c-statusline', /远程调试会话已断开/);
  const [report] = await service.requests({ pathPrefix: '/api/connections/CONN-0001/disconnect' });
  await screenshot('3-after');
  const { reason } = JSON.parse(report.body);
  return { ok: reason === '本地客户端断开连接', figures: { reason } };
}

async function closeProgram() {
  const code = await lab.program.closeWindow();
  return { ok: code === 0, error: code === 0 ? undefined : `exit code ${code}`, figures: { exitCode: code } };
}

async function tools(label, address) {
  await step(`ping ${label}`, () => ping(lab, address));
  await step(`download 5 MB ${label}`, () => download(lab, address));
  await step(`modbus registers ${label}`, () => modbus(lab, address));
  await step(`iperf3 to the site ${label}`, () => iperf(lab, address));
  await step(`iperf3 from the site ${label}`, () => iperf(lab, address, { reverse: true }));
}

async function leaveRunning() {
  console.log(`\nEverything is running. The display is ${lab.display.name}; to look at it:\n` +
    `  DISPLAY=${lab.display.name} import -window root screen.png\n` +
    `The engineer's tools: ip netns exec ${lab.network.engineer} ping ${kPlc}\n` +
    `A debugger on the program: WINEPREFIX=${lab.windowsEnv.WINEPREFIX} ip netns exec ${lab.network.engineer} ` +
    `/usr/lib/wine/wine64 winedbg --gdb 0xPID, where winedbg --command 'info proc' shows the PID.\nCtrl+C ends it.`);
  await new Promise((resolve) => { process.once('SIGINT', resolve); process.once('SIGTERM', resolve); });
}

async function cleanUp() {
  const left = await lab.close();
  return { ok: left.length === 0, error: left.join(', ') || undefined };
}

await rm(kFolder, { recursive: true, force: true });
await mkdir(kFolder, { recursive: true });
try {
  await step('lab', async () => { lab = await Lab.create({ artifacts: kFolder, closeOnSignal: !keep }); });
  await step('program', async () => { await lab.startProgram(); });
  await step('connect', connect);
  await tools('direct', kPlc);
  await tools('NAT', kOverlappingPlc);
  if (keep) await leaveRunning();
  await step('disconnect', disconnect);
  await step('close', closeProgram);
} catch (error) {
  process.exitCode = 1;
  console.error(error.message);
} finally {
  if (lab) await step('nothing left behind', cleanUp).catch(() => { process.exitCode = 1; });
  await writeFile(path.join(kFolder, 'report.json'), `${JSON.stringify({ steps }, null, 2)}\n`);
}
const good = steps.filter(({ ok }) => ok).length;
console.log(`\n${good} of ${steps.length} steps worked. Report and screenshots: ${path.relative('.', kFolder)} ` +
  `(${(await readdir(kFolder)).filter((name) => name.endsWith('.png')).join(', ')})`);
