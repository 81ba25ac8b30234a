// Takes a picture of the page in every state and at every size into build/page/, for people to look at:
//   node lab/page_pictures.mjs            all of them
//   node lab/page_pictures.mjs --guide    also the user guide's pictures of the states, docs/images/state-*.png
import { mkdir, rm } from 'node:fs/promises';
import path from 'node:path';

import { BrowserPage, closeBrowser, openBrowser } from '../tests/page/browser_page.mjs';
import { kLongValues, kStates } from '../tests/page/page_states.mjs';
import { kRepo } from './paths.mjs';

const kFolder = path.join(kRepo, 'build/page');
const kImages = path.join(kRepo, 'docs/images');
// What a window of 1220 x 820 leaves inside, the smallest page, a large screen, and the first window on a fine screen.
const kSizes = [
  { width: 1204, height: 781 }, { width: 900, height: 600 }, { width: 1920, height: 1080 }, { width: 610, height: 410, scale: 2 },
];
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
    for (const [state, messages] of Object.entries({ ...kStates, long: kLongValues })) {
      await picture(`${state}-${sizeName(size)}`, size, (page) => page.deliverAll(messages));
    }
    await picture(`log-${sizeName(size)}`, size, async (page) => {
      await page.deliverAll(kLongValues);
      await page.click('t-log');
    });
  }
}

async function pictureRest() {
  const [size] = kSizes;
  await picture('preview', { ...size, embedded: false }, () => {});
  await picture('preview-edge', { ...size, embedded: false }, (page) => page.view.click('[data-preview="edge"]'));
  await picture('focus', size, async (page) => {
    await page.deliverAll(kStates.resolved);
    await page.view.focus('#c-secret');
  });
  await picture('contrast', { ...size, forcedColors: 'active' }, (page) => page.deliverAll(kStates.online));
}

async function pictureGuide() {
  for (const state of kGuideStates) {
    await picture(`state-${state}`, { ...kSizes[0], reducedMotion: 'reduce' }, (page) => page.deliverAll(kStates[state]),
      { clip: '#s-status', folder: kImages });
  }
}

await rm(kFolder, { recursive: true, force: true });
await mkdir(kFolder, { recursive: true });
await openBrowser();
try {
  await pictureSizes();
  await pictureRest();
  if (process.argv.includes('--guide')) await pictureGuide();
} finally {
  await closeBrowser();
}
console.log(`Pictures are in ${path.relative(process.cwd(), kFolder) || kFolder}.`);
