// The page under two more judges: the Nu validator and Lighthouse. ./test judges installs and runs them.
import assert from 'node:assert/strict';
import { execFile } from 'node:child_process';
import { mkdtemp, rm, writeFile } from 'node:fs/promises';
import { createServer } from 'node:http';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { pathToFileURL } from 'node:url';
import { promisify } from 'node:util';

import { BrowserPage, closeBrowser, installBridge, openBrowser } from '../page/browser_page.mjs';
import { kPage } from '../page/joined_page.mjs';
import { kLongValues, kStates } from '../page/page_states.mjs';

const kJudges = path.join(import.meta.dirname, '../../lab/judges/package.json');
const require = createRequire(kJudges);
const load = (name) => import(pathToFileURL(require.resolve(name)));
const kJudgeMs = 120_000;
const kMessages = { ...kStates, long: kLongValues };

// ---- the Nu validator

/** The page as built, and in each state, by file name. */
async function standingPages() {
  await openBrowser();
  try {
    const page = await BrowserPage.open({ reducedMotion: 'reduce' });
    const written = { 'joined.html': kPage };
    for (const [name, messages] of Object.entries(kMessages)) {
      await page.deliverAll(messages);
      written[`${name}.html`] = `<!DOCTYPE html>\n${await page.view.evaluate(() => document.documentElement.outerHTML)}`;
    }
    return written;
  } finally {
    await closeBrowser();
  }
}

/** Errors in the named pages, in one run, because starting takes most of the time. */
async function nuErrors(pages) {
  const folder = await mkdtemp(path.join(tmpdir(), 'velmarine-judges-'));
  try {
    const files = Object.keys(pages).map((name) => path.join(folder, name));
    await Promise.all(files.map((file) => writeFile(file, pages[path.basename(file)])));
    const args = ['-Xss4m', '-XX:TieredStopAtLevel=1', '-jar', require('vnu-jar'), '--errors-only', '--exit-zero-always',
      '--format', 'json', '--stdout', ...files];
    const { stdout } = await promisify(execFile)('java', args, { timeout: kJudgeMs - 20_000, maxBuffer: 1 << 24 });
    return JSON.parse(stdout).messages.map(({ url, lastLine, message }) => `${path.basename(url)} ${lastLine} ${message}`);
  } finally {
    await rm(folder, { recursive: true });
  }
}

test('the Nu validator finds no error in the page and in its states', { timeout: kJudgeMs }, async () => {
  assert.deepEqual(await nuErrors(await standingPages()), []);
});

test('the Nu validator detects errors', { timeout: kJudgeMs }, async () => {
  const errors = await nuErrors({ 'wrong.html': kPage.replace('id="c-save"', 'id="c-test"') });
  assert.match(errors.join('\n'), /Duplicate ID/);
});

// ---- Lighthouse

/** The page as in the window, with its bridge and the window's messages. */
function servedPage(messages) {
  const bridge = `<script>(${installBridge})();</script>`;
  const sent = `<script>${JSON.stringify(messages).replaceAll('<', '\\u003c')}.forEach(deliver);</script>`;
  return kPage.replace('<meta charset="utf-8">', () => `<meta charset="utf-8">${bridge}`).replace('</body>', () => `${sent}</body>`);
}

const kJudgedStates = ['first', 'online', 'failed', 'long'];
const kServed = Object.fromEntries(kJudgedStates.map((state) => [state, servedPage(kMessages[state])]));
kServed.wrong = servedPage([]).replace(' lang="zh-CN"', '').replace('forEach(deliver)', 'forEach(nobody)');

let server;
let chrome;

before(async () => {
  server = createServer((request, response) => {
    const html = kServed[request.url.slice(1)];
    response.writeHead(html ? 200 : 204, { 'content-type': 'text/html; charset=utf-8' });
    response.end(html);
  });
  await new Promise((resolve) => { server.listen(0, '127.0.0.1', resolve); });
  const { launch } = await load('chrome-launcher');
  chrome = await launch({ chromePath: '/usr/bin/chromium', logLevel: 'silent',
    chromeFlags: ['--headless=new', '--no-sandbox', '--disable-gpu', '--window-size=1366,768'] });
}, { timeout: kJudgeMs });

after(async () => {
  chrome?.kill();
  server?.closeAllConnections();
  await new Promise((resolve) => { server.close(resolve); });
});

/** Its score in each category, and the audits that cost points. */
async function lighthouse(state) {
  const { default: run } = await load('lighthouse');
  const { lhr } = await run(`http://127.0.0.1:${server.address().port}/${state}`, {
    port: chrome.port, logLevel: 'silent', onlyCategories: ['accessibility', 'best-practices'], formFactor: 'desktop',
    screenEmulation: { disabled: true }, throttlingMethod: 'provided' });
  assert.equal(lhr.runtimeError, undefined);
  return Object.fromEntries(Object.values(lhr.categories).map(({ id, score, auditRefs }) => [id, {
    score, lost: auditRefs.filter((ref) => ref.weight > 0 && (lhr.audits[ref.id].score ?? 1) < 1).map((ref) => ref.id) }]));
}

for (const state of kJudgedStates) {
  test(`Lighthouse gives full marks: ${state}`, { timeout: kJudgeMs }, async () => {
    const full = { score: 1, lost: [] };
    assert.deepEqual(await lighthouse(state), { accessibility: full, 'best-practices': full });
  });
}

test('Lighthouse detects errors', { timeout: kJudgeMs }, async () => {
  const { accessibility, 'best-practices': practices } = await lighthouse('wrong');
  assert.deepEqual([accessibility.lost, practices.lost], [['html-has-lang'], ['errors-in-console']]);
});
