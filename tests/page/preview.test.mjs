// The page in a plain browser: sample data and a bar that switches roles; embedded it has neither.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';

useBrowser();

pageTest('shows sample data of the client and the bar', { embedded: false }, async (page) => {
  assert.ok(await page.isVisible('preview'));
  assert.ok(await page.isVisible('pane-client'));
  assert.equal(await page.view.locator('body.embedded').count(), 0);
  assert.equal((await page.cards()).length, 5);
  assert.notEqual(await page.value('c-secret'), '');
  assert.ok((await page.log()).length > 0);
  assert.ok((await page.options('c-profiles')).length > 0);
});

pageTest('the bar switches to the edge role and back', { embedded: false }, async (page) => {
  const clientCards = await page.cards();
  await page.view.click('[data-preview="edge"]');
  assert.ok(await page.isVisible('pane-edge'));
  assert.equal(await page.isVisible('pane-client'), false);
  assert.equal(await page.text('t-work'), '接入');
  assert.notEqual(await page.value('e-devname'), '');
  assert.notDeepEqual(await page.cards(), clientCards);
  await page.view.click('[data-preview="client"]');
  assert.ok(await page.isVisible('pane-client'));
  assert.deepEqual(await page.cards(), clientCards);
});

pageTest('an action is only written to the console', { embedded: false }, async (page) => {
  await page.click('c-stop');
  const written = page.console.map((line) => JSON.parse(line));
  assert.equal(written.length, 1);
  assert.equal(written[0].action, 'stop');
  assert.equal(written[0].f.target, '自动');
});

const asEdge = (html) => html.replace('data-role="client"', 'data-role="edge"');
pageTest('a body of the edge role previews the edge role', { embedded: false, alter: asEdge }, async (page) => {
  assert.ok(await page.isVisible('pane-edge'));
  assert.notEqual(await page.value('e-devname'), '');
});

pageTest('embedded, neither the bar nor sample data is there', async (page) => {
  assert.equal(await page.view.locator('body.embedded').count(), 1);
  assert.equal(await page.isVisible('preview'), false);
  assert.deepEqual(await page.cards(), []);
  assert.deepEqual(await page.log(), []);
  assert.equal(await page.value('c-secret'), '');
  assert.equal(await page.value('c-testip'), '');
  assert.equal(await page.text('s-foot'), '');
  assert.deepEqual(page.console, []);
});
