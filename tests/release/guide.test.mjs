// The user guide as one file: complete, self-contained, and without dead links.
import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { readdirSync, readFileSync, writeFileSync } from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { createRequire } from 'node:module';

import { kReleaseBuild, kRepo, packageIn, temporaryFolder, unpacked } from './built.mjs';

const { chromium } = createRequire(path.join(kRepo, 'lab/package.json'))('playwright-core');
const kGuide = path.join(kReleaseBuild, 'packaging/user-guide.zh-CN.html');
const kSource = readFileSync(path.join(kRepo, 'docs/user-guide.zh-CN.md'), 'utf8');

let browser;
let page;
const requests = [];
before(async () => {
  browser = await chromium.launch({ executablePath: '/usr/lib/chromium/chromium', args: ['--no-sandbox'] });
  page = await browser.newPage();
  page.on('request', (request) => requests.push(request.url()));
  await page.goto(`file://${kGuide}`);
});
after(() => browser?.close());

test('it is the one in the package', (t) => {
  assert.deepEqual(readFileSync(path.join(unpacked(t, packageIn(kReleaseBuild)), 'user-guide.zh-CN.html')), readFileSync(kGuide));
});

test('it requests no other file', () => {
  assert.deepEqual(requests.filter((url) => !url.startsWith('data:')), [`file://${encodeURI(kGuide)}`]);
});

test('it is Chinese, has a title, and every heading and table of its source', async () => {
  assert.equal(await page.getAttribute('html', 'lang'), 'zh-CN');
  assert.equal(await page.title(), /^# (.*)$/m.exec(kSource)[1]);
  assert.equal(await page.locator('h1, h2, h3').count(), kSource.match(/^#{1,3} /gm).length);
  assert.equal(await page.locator('table').count(), kSource.match(/^\|[-| ]+\|$/gm).length);
});

test('all its pictures show', async () => {
  const pictures = await page.locator('img').evaluateAll((images) => images.map((image) => [image.naturalWidth, image.alt]));
  assert.equal(pictures.length, kSource.match(/!\[/g).length);
  for (const [width, name] of pictures) assert.ok(width > 100 && name, name);
});

test('every internal link has a target, and there are as many as in the source', async () => {
  const targets = await page.locator('a[href^="#"]').evaluateAll((links) =>
    links.map((link) => [link.hash, document.getElementById(decodeURIComponent(link.hash.slice(1))) !== null]));
  assert.equal(targets.length, kSource.match(/\]\(#/g).length);
  assert.deepEqual(targets.filter(([, found]) => !found), []);
});

test('no link leads to a missing file', async () => {
  const others = await page.locator('a:not([href^="#"])').evaluateAll((links) => links.map((link) => link.getAttribute('href')));
  assert.deepEqual(others.filter((to) => !/^https?:/.test(to)), []);
});

test('nothing is cut off in a narrow window', async () => {
  await page.setViewportSize({ width: 800, height: 600 });
  assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= window.innerWidth));
});

/** Makes a guide from `text`; returns the tool's result. */
function make(t, text) {
  const folder = temporaryFolder(t);
  writeFileSync(path.join(folder, 'guide.md'), text);
  const result = spawnSync('node', [path.join(kRepo, 'packaging/make_guide.mjs'), 'guide.md', 'out.html'], { cwd: folder, encoding: 'utf8' });
  return { ...result, html: readdirSync(folder).includes('out.html') ? readFileSync(path.join(folder, 'out.html'), 'utf8') : '' };
}

test('a link without a heading, a missing picture and two equal headings fail the build', (t) => {
  assert.equal(make(t, '# A\n\n[b](#a)\n').status, 0);
  assert.match(make(t, '# A\n\n[b](#b)\n').stderr, /no heading for the link to "b"/);
  assert.match(make(t, '# A\n\n![b](b.png)\n').stderr, /ENOENT.*b\.png/);
  assert.match(make(t, '# A\n\n## B\n\n## B\n').stderr, /Two headings are called "b"/);
});

test('a link to another document becomes its text', (t) => {
  assert.match(make(t, '# A\n\nsee [the other](other.md), [web](https://example.com)\n').html,
    /see the other, <a href="https:\/\/example\.com">web<\/a>/);
});
