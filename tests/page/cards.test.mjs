// The cards' values are copied with one click, by mouse or keyboard.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';
import { kNat, kStates } from './page_states.mjs';

useBrowser({ isTabShared: false });

/** What a paste would insert; the clipboard itself is out of a page's reach here. */
async function pasted(page) {
  await page.view.evaluate(() => {
    const area = document.createElement('textarea');
    area.id = 'pasted';
    document.body.append(area);
    area.focus();
  });
  await page.view.keyboard.press('Control+V');
  return page.view.evaluate(() => {
    const area = document.getElementById('pasted');
    area.remove();
    return area.value;
  });
}

const value = (page, at) => page.view.locator('#s-cards .v').nth(at);

pageTest('a click on a value takes it', async (page) => {
  await page.deliverAll(kStates.online);
  await value(page, 1).click();
  assert.equal(await pasted(page), '10.88.0.2');
});

pageTest('a value of several lines is taken whole', async (page) => {
  await page.deliverAll(kStates.online);
  await page.view.getByRole('button', { name: '复制 NAT访问IP' }).click();
  assert.equal(await pasted(page), kNat.replaceAll('\r\n', '\n'));
});

pageTest('the button does it by keyboard, and says that it is done', async (page) => {
  await page.deliverAll(kStates.online);
  const button = page.view.getByRole('button', { name: '复制 设备' });
  await button.focus();
  await page.view.keyboard.press('Enter');
  assert.equal(await button.getAttribute('title'), '已复制');
  assert.equal(await pasted(page), 'DEV-2041');
  await page.view.waitForFunction(() => document.querySelector('.copy').title === '复制');
});

pageTest('what is marked by hand stays marked and is not replaced', async (page) => {
  await page.deliverAll(kStates.online);
  await value(page, 1).click();
  const box = await value(page, 3).boundingBox();
  await page.view.mouse.move(box.x + 2, box.y + 8);
  await page.view.mouse.down();
  await page.view.mouse.move(box.x + 60, box.y + 8, { steps: 4 });
  await page.view.mouse.up();
  assert.notEqual(await page.view.evaluate(() => getSelection().toString()), '');
  assert.equal(await pasted(page), '10.88.0.2');
});

pageTest('a card that has nothing yet has nothing to take', async (page) => {
  await page.deliverAll(kStates.first);
  const buttons = await page.view.locator('.copy').evaluateAll((all) => all.map((button) => button.getAttribute('aria-label')));
  assert.deepEqual(buttons, ['复制 运行库']);
});
