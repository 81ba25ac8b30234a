// At every size of the window and scale of the screen nothing is cut, overlaps or jumps.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';
import { findCut, findOverlaps, positions } from './page_geometry.mjs';
import { inYaHei, isInYaHei } from './page_font.mjs';
import { kLongValues, kMappings, kStates } from './page_states.mjs';

useBrowser();

// The second is the inside of a window on a screen of 1366 x 768.
const kWindows = [[1220, 820], [1204, 689], [1204, 781], [900, 600], [1366, 768], [1920, 1080]];
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
    await page.deliverAll(kStates.resolved);
    const atFirst = await page.view.evaluate(positions);
    for (const [state, messages] of Object.entries(kStates)) {
      await page.deliverAll(messages);
      assert.deepEqual(await page.view.evaluate(positions), atFirst, state);
    }
  });
}

for (const size of kSizes.filter(({ width, height }) => width >= 803 && height >= 540)) {
  pageTest(`the full log fills its tab, and the live log what is left: ${size.width} x ${size.height}`, size, async (page) => {
    await page.deliverAll(kStates.online);
    const box = (id) => page.view.locator(`#${id}`).boundingBox();
    const [live, state] = [await box('c-log'), await page.view.locator('.state').boundingBox()];
    assert.ok(live.y + live.height > size.height - 40 && live.y + live.height <= size.height, JSON.stringify(live));
    await page.click('t-log');
    const full = await box('full-log');
    assert.ok(full.y - state.y - state.height < 24, JSON.stringify(full));
    assert.ok(full.y + full.height > size.height - 40 && full.width > 0.45 * size.width, JSON.stringify(full));
  });
}

for (const size of [{ width: 803, height: 547, scale: 1.5 }, { width: 900, height: 600 }, { width: 1204, height: 781 }, { width: 1920, height: 1080 }]) {
  pageTest(`nothing is cut in a face as high as Windows' own: ${size.width} x ${size.height}`, { ...size, alter: inYaHei }, async (page) => {
    assert.ok(await isInYaHei(page));
    for (const messages of [...Object.values(kStates), kLongValues]) {
      await page.deliverAll(messages);
      await assertRoom(page);
    }
    await page.click('t-log');
    await assertRoom(page);
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
  const stops = () => page.view.locator('aside, .statusline').evaluateAll((all) =>
    all.filter(({ tabIndex }) => tabIndex === 0).map((box) => box.id || box.tagName));
  await page.deliverAll(kStates.resolved);
  assert.deepEqual(await stops(), []);
  await page.deliverAll(kLongValues);
  assert.deepEqual(await stops(), ['c-statusline', 'ASIDE']);
  await page.view.focus('aside');
  await page.view.keyboard.press('End');
  await page.view.waitForFunction(() => document.querySelector('aside').scrollTop > 50);
});
