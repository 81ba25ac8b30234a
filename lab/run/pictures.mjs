// Takes all pictures of the user guide, docs/images/*.png: of the states from the page alone, of the window from the
// program in the lab.
//   node lab/run/pictures.mjs        (as root, after ./test has built everything)
import { execFileSync } from 'node:child_process';
import { mkdir, mkdtemp, rm } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';

import { Lab } from '../harness/lab.mjs';
import { kDirectRoute, kOverlappingRoute, kPlc } from '../harness/network.mjs';
import { kRepo } from '../harness/paths.mjs';
import { run, runOrFail } from '../harness/processes.mjs';
import { kTitle, waitUntil } from '../harness/program.mjs';

const kImages = path.join(kRepo, 'docs/images');
const kColours = '128';  // enough for the page
const kPaintMs = 30_000;  // until the last change is painted
const kNoise = { fuzz: '40%', pixels: 40 };  // of JPEG, which carries the pictures
const kOutside = 1400;    // right of the picture
const kSites = [
  ['KEY-41D0-88A2-6C13', 'DEV-4100', '污水处理厂', ['10.60.0.0/16']],
  ['KEY-30B7-15E9-02F4', 'DEV-3077', '城东水厂', ['172.20.8.0/24']],
  ['KEY-7F3A-90C2-11D4', 'DEV-2041', '二号泵站', [kDirectRoute, kOverlappingRoute]],
].map(([deviceSecret, deviceNumber, deviceName, sharedNetworks]) =>
  ({ deviceSecret, deviceNumber, deviceName, sharedNetworks }));

execFileSync(process.execPath, [path.join(import.meta.dirname, 'page_pictures.mjs'), '--guide'], { stdio: 'inherit' });
const folder = await mkdtemp(path.join(tmpdir(), 'velmarine-pictures-'));
const lab = await Lab.create({ artifacts: folder, site: false });

/** True once the window shows the page's newest picture, which arrives late on a busy machine. */
async function isUpToDate(program, inside) {
  const page = path.join(folder, 'page.png');
  await program.page.screenshot(page);
  const { stderr } = await run(['compare', '-metric', 'AE', '-fuzz', kNoise.fuzz, inside, page, 'null:']);
  return Number(stderr) <= kNoise.pixels;
}

/** Takes a picture of the window's client area. */
async function picture(program, name) {
  await program.pointAndClick('#s-logo');  // moves the pointer away from the buttons
  const screen = path.join(folder, 'screen.png');
  const inside = path.join(folder, 'inside.png');
  const { width, height, x, y } = await lab.display.clientArea(kTitle);
  await waitUntil(`${name} in the window`, async () => {
    await lab.display.screenshot(screen);
    await runOrFail(['convert', screen, '-crop', `${width}x${height}+${x}+${y}`, '+repage', inside]);
    return isUpToDate(program, inside);
  }, kPaintMs);
  await runOrFail(['convert', inside, '+dither', '-colors', kColours,
    '-define', 'png:exclude-chunks=date,time', path.join(kImages, `${name}.png`)]);
}

async function saveSites(program) {
  await lab.service.setDevices(kSites);
  for (const { deviceSecret, deviceNumber, deviceName } of kSites) {
    await program.type('#c-pname', '');
    await program.type('#c-secret', deviceSecret);
    await program.click('#c-fetch');
    await program.waitForLog(`已获取现场端 ${deviceNumber} 的共享网段。`);
    await program.click('#c-save');
    await program.page.waitFor(`document.querySelector('#c-profiles').value === '${deviceName}'`);
  }
}

try {
  await mkdir(kImages, { recursive: true });
  const program = await lab.startProgram();
  await saveSites(program);
  await picture(program, 'resolved');
  await program.pointAndClick('#c-connect');
  await program.waitForText('#s-state', '在线');
  await program.waitForLog('UDP 通道已就绪');
  await picture(program, 'connected');
  await program.type('#c-testip', kPlc);
  await program.pointAndClick('#c-test');
  await program.waitForText('#c-statusline', /^通讯延迟 \d+ ms/);
  await picture(program, 'latency');
  await lab.rustDesk.install('C:\\Program Files\\RustDesk\\rustdesk.exe');
  await lab.rustDesk.plan({ left: kOutside });
  await lab.service.setDesktop({ rustDeskId: '123456789', accessPassword: 'lab-password', server: {} });
  await program.pointAndClick('#c-desktop');
  await program.waitForText('#c-statusline', '远程桌面已打开：123456789，访问密码已复制。');
  await picture(program, 'desktop');
} finally {
  const left = await lab.close();
  await rm(folder, { recursive: true, force: true });
  if (left.length > 0) throw new Error(left.join(', '));
}
