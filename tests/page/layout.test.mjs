// Room: at every size of the window and scale of the screen nothing is cut, overlaps or jumps.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';
import { findCut, findOverlaps, positions } from './page_geometry.mjs';
import { kLongValues, kMappings, kStates } from './page_states.mjs';

useBrowser();

// The second is what a window leaves inside on a screen of 1366 x 768.
const kWindows = [[1220, 820], [1204, 689], [1220, 860], [1204, 781], [900, 600], [1920, 1080]];
const kScales = [1, 1.25, 1.5, 2];
const kSizes = kWindows.flatMap(([width, height]) => kScales.map((scale) =>
  ({ width: Math.round(width / scale), height: Math.round(height / scale), scale })));

async function assertRoom(page) {
  assert.deepEqual(await page.view.evaluate(findCut), []);
  assert.deepEqual(await page.view.evaluate(findOverlaps), []);
}

for (const size of kSizes) {
  const name = `${size.width} x ${size.height} at ${size.scale * 100} %`;

  pageTest(`nothing is cut or overlaps in any state: ${name}`, size, async (page) => {
    for (const messages of Object.values(kStates)) {
      await page.deliverAll(messages);
      await assertRoom(page);
    }
    await page.click('t-log');
    await assertRoom(page);
  });

  pageTest(`long values are wrapped or scrolled: ${name}`, size, async (page) => {
    await page.deliverAll(kLongValues);
    await assertRoom(page);
    await page.click('t-log');
    await assertRoom(page);
    await page.click('t-work');
    for (const id of ['s-logo', 's-cards', 'c-secret', 'c-save', 'c-statusline', 'c-log']) {
      const element = page.view.locator(`#${id}`);
      await element.evaluate((found) => found.scrollIntoView({ block: 'end' }));
      const box = await element.boundingBox();
      assert.ok(box.y + box.height <= size.height + 1 && box.x + box.width <= size.width + 1, `${id}: ${JSON.stringify(box)}`);
    }
  });

  pageTest(`no control moves when the state changes: ${name}`, size, async (page) => {
    const stacked = size.width < 860;  // there, the state stands above the controls
    const places = async (isOnline) => {
      const { 's-cards': cards, ...others } = await page.view.evaluate(positions);
      return isOnline || stacked ? others : { ...others, cards };  // online, there is more to tell above the cards
    };
    await page.deliverAll(kStates.resolved);
    const atFirst = { off: await places(false), on: await places(true) };
    for (const [state, messages] of Object.entries(kStates)) {
      const isOnline = messages.findLast(({ t }) => t === 'state').side.on === true;
      if (isOnline && stacked) continue;
      await page.deliverAll(messages);
      assert.deepEqual(await places(isOnline), isOnline ? atFirst.on : atFirst.off, state);
    }
  });
}

for (const size of kSizes.filter(({ width }) => width >= 860)) {
  pageTest(`the full log fills its tab, and the live log what is left: ${size.width} x ${size.height}`, size, async (page) => {
    await page.deliverAll(kStates.online);
    const box = (id) => page.view.locator(`#${id}`).boundingBox();
    const [live, tabs] = [await box('c-log'), await page.view.locator('.tabs').boundingBox()];
    assert.ok(live.y + live.height > size.height - 40, JSON.stringify(live));
    await page.click('t-log');
    const full = await box('full-log');
    assert.ok(full.y - tabs.y - tabs.height < 24, JSON.stringify(full));
    assert.ok(full.y + full.height > size.height - 40 && full.width > 0.6 * (size.width - 400), JSON.stringify(full));
  });
}

pageTest('the edge pane has room too', { width: 900, height: 600 }, async (page) => {
  await page.deliverAll([{ t: 'init', role: 'edge' }, { t: 'apply', fields: {
    devname: '泵房', nics: ['以太网'], nicSel: '以太网', shared: ['192.168.1.0/24'], manual: '', autostart: true } }]);
  await assertRoom(page);
});

for (const size of [{ width: 900, height: 600 }, { width: 1220, height: 820 }]) {
  pageTest(`the preview bar takes nothing away at ${size.width}`, { ...size, embedded: false }, async (page) => {
    await assertRoom(page);
    await page.view.click('[data-preview="edge"]');
    await assertRoom(page);
  });
}

pageTest('hovering and focusing moves nothing', async (page) => {
  await page.deliverAll(kStates.online);
  const atFirst = await page.view.evaluate(positions);
  for (const id of ['c-connect', 'c-stop', 'c-fetch', 'c-discovery', 'c-secret', 'c-target', 't-log']) {
    await page.view.hover(`#${id}`);
    await page.view.focus(`#${id}`);
    assert.deepEqual(await page.view.evaluate(positions), atFirst, id);
  }
});

pageTest('a card with five lines shows five lines', async (page) => {
  await page.deliverAll(kLongValues);
  const shown = await page.view.locator('#s-cards .v').nth(3).innerText();
  assert.deepEqual(shown.split('\n').map((line) => line.trim()), kMappings.split('\r\n'));
});

pageTest('a result that begins with a line break shows no empty line', async (page) => {
  await page.deliverAll(kStates.retrying);
  const lines = (selector) => page.view.locator(selector).evaluate((element) => {
    const range = document.createRange();
    range.selectNodeContents(element);
    const { height } = element.parentElement.getBoundingClientRect();
    return Math.floor(height / parseFloat(getComputedStyle(element).lineHeight));
  });
  assert.equal(await lines('#c-log .lead span:last-child'), 1);
  assert.equal(await page.text('c-statusline'), '\r\nConnection authorization failed: 设备离线');
  const [text, bar] = await page.view.evaluate(() => ['#c-statusline', '.statusbar'].map((selector) =>
    document.querySelector(selector).getBoundingClientRect().height));
  assert.ok(bar < text + 20, `${text} in ${bar}`);
});

pageTest('what overflows can be scrolled by keyboard, and only then is a stop', { width: 900, height: 600 }, async (page) => {
  const stops = () => page.view.locator('aside, .statusline, .detail').evaluateAll((all) =>
    all.filter(({ tabIndex }) => tabIndex === 0).map((box) => box.id || box.tagName));
  await page.deliverAll(kStates.online);
  assert.deepEqual(await stops(), []);
  await page.deliverAll(kLongValues);
  assert.deepEqual(await stops(), ['ASIDE', 's-detail', 'c-statusline']);
  await page.view.focus('aside');
  await page.view.keyboard.press('End');
  await page.view.waitForFunction(() => document.querySelector('aside').scrollTop > 50);
});
