// A day's work, counted: clicks and keys from the start to being connected, and how often Tab is pressed until evening.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';
import { apply, kStates, state } from './page_states.mjs';

useBrowser();

const focused = (page) => page.view.evaluate(() => document.activeElement.id);
const acts = async (page) => (await page.takePosted()).map((text) => JSON.parse(text).action);
const site = (page, name) => page.deliver(apply({ secret: `KEY-${name}`, profileName: name, profileSel: name }));

pageTest('the first focus is on the key when there is none, else on connecting', async (page) => {
  await page.deliverAll(kStates.first);
  assert.equal(await focused(page), 'c-secret');
  await page.view.reload();
  await page.deliverAll(kStates.resolved);
  assert.equal(await focused(page), 'c-connect');
});

pageTest('the focus is given once, and not to a page that is being used', async (page) => {
  await page.deliverAll(kStates.first);
  await page.view.focus('#c-log');
  await page.deliver(apply());
  assert.equal(await focused(page), 'c-log');
  await page.view.evaluate(() => document.activeElement.blur());
  await page.deliver(apply());
  assert.equal(await focused(page), '');
  await page.view.reload();
  await page.view.focus('#c-pname');
  await page.deliver(apply());
  assert.equal(await focused(page), 'c-pname');
});

pageTest('from the start to the site in use: one key', async (page) => {
  await page.deliverAll(kStates.resolved);
  await page.takePosted();
  await page.view.keyboard.press('Enter');
  assert.deepEqual(await acts(page), ['connect']);
});

pageTest('from the start to another site: three clicks, the last on connecting', async (page) => {
  await page.deliverAll(kStates.resolved);
  await page.takePosted();
  await page.view.selectOption('#c-profiles', '城东水厂');  // a click on the list, a click on the site
  await site(page, '城东水厂');
  await page.click('c-connect');
  assert.deepEqual(await acts(page), ['loadProfile', 'connect']);
});

pageTest('from the start to another site: three keys', async (page) => {
  await page.deliverAll(kStates.resolved);
  await page.takePosted();
  for (const key of ['Shift+Tab', 'ArrowDown', 'Enter']) await page.view.keyboard.press(key);
  await site(page, '城东水厂');
  assert.deepEqual(await acts(page), ['loadProfile', 'connect']);
});

for (const [id, action] of [['c-secret', 'connect'], ['c-testip', 'test'], ['c-pname', 'saveProfile']]) {
  pageTest(`Enter in ${id} posts ${action}, once however long it is held`, async (page) => {
    await page.deliverAll(kStates.resolved);
    await page.takePosted();
    await page.view.focus(`#${id}`);
    await page.view.keyboard.down('Enter');
    await page.view.keyboard.down('Enter');
    await page.view.keyboard.up('Enter');
    assert.deepEqual(await acts(page), [action]);
  });
}

pageTest('Enter that ends an input method\'s word posts nothing', async (page) => {
  await page.deliverAll(kStates.resolved);
  await page.takePosted();
  await page.view.locator('#c-pname').evaluate((field) =>
    field.dispatchEvent(new KeyboardEvent('keydown', { key: 'Enter', isComposing: true, bubbles: true })));
  assert.deepEqual(await acts(page), []);
});

pageTest('F6 goes round tabs, connection, form and log, and back', async (page) => {
  await page.deliverAll(kStates.online);
  await page.view.focus('#t-work');
  const seen = async (key) => { await page.view.keyboard.press(key); return focused(page); };
  const round = ['c-stop', 'c-secret', 'c-log', 't-work'];
  for (const id of round) assert.equal(await seen('F6'), id);
  for (const id of ['c-log', 'c-secret', 'c-stop', 't-work']) assert.equal(await seen('Shift+F6'), id);
  await page.view.focus('#c-testip');
  assert.equal(await seen('F6'), 'c-log');
  await page.view.focus('#c-testip');
  assert.equal(await seen('Shift+F6'), 'c-secret');
});

pageTest('a whole day takes at most 20 presses of Tab and F6', async (page) => {
  let steps = 0;
  const go = async (key, wanted) => {
    while (await focused(page) !== wanted) {
      await page.view.keyboard.press(key);
      steps += 1;
      assert.ok(steps < 100, `no way to ${wanted}`);
    }
  };
  await page.deliverAll(kStates.resolved);
  await page.takePosted();
  await go('Shift+Tab', 'c-profiles');
  await page.view.keyboard.press('ArrowDown');
  await page.view.keyboard.press('Enter');
  await site(page, '城东水厂');
  await page.deliver(state('up', '连接授权成功：1'));
  await go('Tab', 'c-testip');
  await page.view.keyboard.type('192.168.77.12');
  await page.view.keyboard.press('Enter');
  await go('Tab', 'c-desktop');
  await page.view.keyboard.press('Enter');
  await go('Tab', 'c-pname');
  await page.view.keyboard.type('城东水厂 夜班');
  await page.view.keyboard.press('Enter');
  await go('F6', 'c-log');
  await go('F6', 't-work');
  await page.view.keyboard.press('ArrowRight');
  assert.ok(await page.isVisible('full-log'));
  await go('F6', 'c-stop');
  await page.view.keyboard.press('Enter');
  assert.deepEqual(await acts(page), ['loadProfile', 'connect', 'test', 'desktop', 'saveProfile', 'stop']);
  assert.ok(steps <= 20, `${steps}`);
});
