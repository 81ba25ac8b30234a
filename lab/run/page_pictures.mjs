// Takes pictures of the page in every state and size into build/page/, for visual inspection:
//   node lab/run/page_pictures.mjs            all of them
//   node lab/run/page_pictures.mjs --guide    instead, the user guide's pictures of the states, docs/images/state-*.png
import { mkdir, rm } from 'node:fs/promises';
import path from 'node:path';

import { BrowserPage, closeBrowser, openBrowser } from '../../tests/page/browser_page.mjs';
import { inYaHei } from '../../tests/page/page_font.mjs';
import { apply, kLongValues, kStates, log, state } from '../../tests/page/page_states.mjs';
import { kRepo } from '../harness/paths.mjs';

const kFolder = path.join(kRepo, 'build/page');
const kImages = path.join(kRepo, 'docs/images');
// In CSS pixels: the smallest window at 150 %, with a font like Windows'; the smallest page; the client area of a window
// of 1220 x 820; and whole screens, the last one with a high resolution.
const kSizes = [
  { width: 803, height: 547, scale: 1.5, alter: inYaHei }, { width: 900, height: 600 }, { width: 1204, height: 781 },
  { width: 1366, height: 768 }, { width: 1920, height: 1080 }, { width: 1920, height: 1080, scale: 2 },
];
const kUsual = kSizes[2];
const kNetworks = Array.from({ length: 30 }, (_, i) => `10.60.${i}.0/24`);
const kManyGranted = `\r\n连接授权成功：9f3c-22d1，分配地址 10.88.0.2，路由 ${kNetworks.join('\r\n')}\r\n软件隧道已启动。`;
const kTestFailed = '通讯延迟测试失败：192.168.77.99';
const kSites = Array.from({ length: 200 }, (_, i) => `${i + 1} 号泵站`);

/** Each picture's messages by name, oldest first. */
const kShown = {
  ...kStates,
  networks: [...kStates.working,
    state('up', kManyGranted, { access: kNetworks.map((network) => `直连网段 ${network}`).join('\r\n') }),
    log('02:14:31', kManyGranted, 'ok')],
  sites: [...kStates.resolved, apply({ profiles: kSites, profileSel: '17 号泵站', profileName: '17 号泵站' })],
  testFailed: [...kStates.testing, state('up', kTestFailed), log('02:14:41', kTestFailed, 'er')],
  long: kLongValues,
};
const kGuideStates = ['first', 'working', 'online', 'reconnecting', 'retrying', 'failed'];
const kPaintMs = 200;

async function picture(name, options, arrange, { clip, folder = kFolder } = {}) {
  const page = await BrowserPage.open(options);
  await arrange(page);
  await page.view.waitForTimeout(kPaintMs);
  const target = clip ? page.view.locator(clip) : page.view;
  await target.screenshot({ path: path.join(folder, `${name}.png`) });
  await page.close();
}

const sizeName = ({ width, height, scale = 1 }) => `${width}x${height}${scale === 1 ? '' : `@${scale}`}`;

async function pictureSizes() {
  for (const size of kSizes) {
    for (const [name, messages] of Object.entries(kShown)) {
      await picture(`${name}-${sizeName(size)}`, size, (page) => page.deliverAll(messages));
    }
    await picture(`log-${sizeName(size)}`, size, async (page) => {
      await page.deliverAll(kLongValues);
      await page.click('t-log');
    });
  }
}

async function pictureRest() {
  await picture('preview', { ...kUsual, embedded: false }, () => {});
  await picture('preview-edge', { ...kUsual, embedded: false }, (page) => page.view.click('[data-preview="edge"]'));
  await picture('focus', kUsual, async (page) => {
    await page.deliverAll(kStates.resolved);
    await page.view.focus('#c-secret');
  });
  await picture('contrast', { ...kUsual, forcedColors: 'active' }, (page) => page.deliverAll(kStates.online));
}

/** At the smallest window's size, so that they are readable in the guide's narrow column. */
async function pictureGuide() {
  const size = { width: 803, height: 547, scale: 1.5, reducedMotion: 'reduce' };
  for (const state of kGuideStates) {
    await picture(`state-${state}`, size, async (page) => {
      await page.deliverAll(kStates[state]);
      await page.view.evaluate(() => document.activeElement.blur());  // no focus ring, as after a click
    }, { clip: '.state', folder: kImages });
  }
}

async function pictureAll() {
  await rm(kFolder, { recursive: true, force: true });
  await mkdir(kFolder, { recursive: true });
  await pictureSizes();
  await pictureRest();
}

const isForGuide = process.argv.includes('--guide');
const target = isForGuide ? kImages : kFolder;
await openBrowser();
try {
  await (isForGuide ? pictureGuide() : pictureAll());
} finally {
  await closeBrowser();
}
console.log(`Pictures are in ${path.relative(process.cwd(), target) || target}.`);
