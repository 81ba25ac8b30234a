// Visual properties: contrast, states that differ in shape as well as colour, motion, high contrast.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';
import { findFaintTexts } from './page_colours.mjs';
import { kSizes } from './page_sizes.mjs';
import { kLongValues, kStates, log } from './page_states.mjs';

useBrowser();

const kAllClasses = ['', 'ok', 'er', 'wn', 'off'];
const kColourful = [
  ...kLongValues,
  { t: 'state', side: { foot: '脚注', cards: kAllClasses.map((cls) => ({ k: `键${cls}`, v: `值${cls}`, cls })) } },
  ...kAllClasses.map((cls) => log('01:02:03', `行${cls}`, cls)),
];

const kNarrow = kSizes[0];
const kWide = kSizes.at(-2);
const kStill = { reducedMotion: 'reduce' };  // no colours in transition
const kHovered = ['c-connect', 'c-stop', 'c-fetch', 'c-discovery', 't-work', 't-log'];
const faintTexts = (page, box = 'body') => page.view.evaluate(findFaintTexts, box);

/** Only the button itself changes under the pointer. */
async function checkHovered(page, id) {
  const box = `#${id}`;
  await page.view.hover(box);
  assert.ok(await page.view.locator(`${box}:hover`).count(), id);
  assert.deepEqual(await faintTexts(page, box), []);
  await page.view.mouse.down();
  assert.ok(await page.view.locator(`${box}:active`).count(), id);
  assert.deepEqual(await faintTexts(page, box), []);
  await page.view.mouse.move(1, 1);
  await page.view.mouse.up();
}

for (const [name, messages] of Object.entries({ ...kStates, everyClass: kColourful })) {
  pageTest(`every text has the contrast of WCAG AA: ${name}`, { ...kWide, ...kStill }, async (page) => {
    await page.deliverAll(messages);
    assert.deepEqual(await faintTexts(page), []);
    for (const id of kHovered) await checkHovered(page, id);
    await page.view.setViewportSize(kNarrow);
    assert.deepEqual(await faintTexts(page), []);
    await page.click('t-log');
    assert.deepEqual(await faintTexts(page), []);
  });
}

pageTest('every text of the preview and the edge pane has contrast', { embedded: false, ...kStill }, async (page) => {
  assert.deepEqual(await faintTexts(page), []);
  await page.view.click('[data-preview="edge"]');
  assert.deepEqual(await faintTexts(page), []);
});

pageTest('five sizes of type at most, none under 13 px, and the state far above the rest', async (page) => {
  await page.deliverAll(kColourful);
  for (const size of kSizes) {
    await page.view.setViewportSize(size);
    const [letter, ...sizes] = await page.view.locator('html, body *').evaluateAll((all) => all
      .filter((element) => element.checkVisibility() && element.innerText?.trim())
      .map((element) => parseFloat(getComputedStyle(element).fontSize)));
    assert.ok(Math.min(...sizes) >= 13, Math.min(...sizes));
    const different = [...new Set(sizes)].sort((a, b) => a - b);
    assert.ok(different.length <= 5, different.join(' '));
    assert.equal(parseFloat(await page.style('#s-state', 'font-size')), different.at(-1));
    assert.ok(different.at(-1) >= 1.75 * letter && different.at(-1) >= 1.4 * different.at(-2), different.join(' '));
  }
});

/** What a person sees of the state from two metres: the sign's outline and glyph, its colours, the bar, the word. */
const seenOfState = (page) => page.view.evaluate(() => {
  const dot = document.querySelector('.dot');
  const glyphs = [...dot.querySelectorAll('path')].filter((path) => getComputedStyle(path).display !== 'none');
  const { backgroundColor, borderRadius, borderTopColor, borderTopWidth, color } = getComputedStyle(dot);
  const bar = getComputedStyle(document.querySelector('#s-status'), '::before');
  return {
    shape: JSON.stringify([glyphs.map((path) => getComputedStyle(path).d).join(), borderRadius, borderTopWidth]),
    colour: JSON.stringify([backgroundColor, borderTopColor, color, bar.backgroundColor, bar.backgroundImage]),
    text: document.querySelector('.headline').innerText.replace(/\s+/g, ' ').trim(),
  };
});

pageTest('each state has a shape, a colour and a text of its own', async (page) => {
  const seen = {};
  for (const name of ['first', 'working', 'online', 'reconnecting', 'retrying', 'failed']) {
    await page.view.reload();
    await page.deliverAll(kStates[name]);
    seen[name] = await seenOfState(page);
  }
  for (const aspect of ['shape', 'colour', 'text']) {
    const values = Object.values(seen).map((one) => one[aspect]);
    assert.equal(new Set(values).size, values.length, `${aspect}: ${JSON.stringify(seen, null, 1)}`);
  }
});

/** A control's current look, its outline included. */
const look = (page, id) => page.view.locator(`#${id}`).evaluate((element) => {
  const style = getComputedStyle(element);
  return ['color', 'background-color', 'background-image', 'border-top-color', 'border-top-style', 'outline-style', 'outline-color']
    .map((name) => style.getPropertyValue(name)).join(' | ');
});

/** By button: the status line of its own job and of another one, and the state that offers the button. */
const kTurns = {
  'c-connect': ['正在请求连接授权...', '正在测试通讯延迟...', 'resolved'],
  'c-fetch': ['正在获取现场端网段...', '正在测试通讯延迟...', 'online'],
  'c-stop': ['正在停止软件隧道...', '正在测试通讯延迟...', 'online'],
};
for (const [id, [own, other, name]] of Object.entries(kTurns)) {
  pageTest(`${id} looks different at rest, hovered, pressed, focused, busy and out of turn`, kStill, async (page) => {
    await page.deliverAll(kStates[name]);
    await page.view.focus('#t-log');  // a new page focuses the offered button
    const looks = { rest: await look(page, id) };
    await page.view.hover(`#${id}`);
    looks.hovered = await look(page, id);
    await page.view.mouse.down();
    looks.pressed = await look(page, id);
    await page.view.mouse.move(1, 1);
    await page.view.mouse.up();
    await page.view.keyboard.press('Tab');  // the focus ring appears only for keyboard focus
    await page.view.focus(`#${id}`);
    looks.focused = await look(page, id);
    await page.view.focus('#t-log');
    for (const [turn, statusline] of [['busy', own], ['outOfTurn', other]]) {
      await page.deliver({ t: 'state', side: { on: name === 'online' }, statusline });
      looks[turn] = await look(page, id);
    }
    assert.equal(new Set(Object.values(looks)).size, 6, JSON.stringify(looks, null, 1));
  });
}

pageTest('a focused field is told by its outline', async (page) => {
  for (const id of ['c-secret', 'c-target', 'c-testip', 'c-profiles', 'c-pname']) {
    const atRest = await look(page, id);
    await page.view.focus(`#${id}`);
    assert.notEqual(await look(page, id), atRest, id);
    assert.equal(await page.style(`#${id}`, 'outline-style'), 'solid', id);
  }
});

const runningMotion = (page) => page.view.evaluate(() =>
  document.getAnimations().filter(({ playState }) => playState === 'running').length);

pageTest('a running job moves, a resting page does not', async (page) => {
  await page.deliverAll(kStates.resolved);
  await page.view.waitForTimeout(200);
  assert.equal(await runningMotion(page), 0);
  await page.deliverAll(kStates.working);
  assert.ok(await runningMotion(page) >= 3);
});

pageTest('who asks for little motion gets none, and still sees the job', { reducedMotion: 'reduce' }, async (page) => {
  for (const name of ['working', 'testing', 'reconnecting']) {
    await page.deliverAll(kStates[name]);
    assert.equal(await runningMotion(page), 0, name);
  }
  await page.deliverAll(kStates.working);
  assert.equal(await page.text('s-tag'), '处理中');
  assert.notEqual(await page.style('.status', 'content', '::after'), 'none');
});

pageTest('in high contrast the tab, the main button and the signs are still told apart', { forcedColors: 'active' }, async (page) => {
  const seen = new Set();
  for (const name of ['first', 'online', 'reconnecting', 'retrying', 'failed']) {
    await page.view.reload();
    await page.deliverAll(kStates[name]);
    seen.add((await seenOfState(page)).shape);
  }
  assert.equal(seen.size, 5);
  const canvas = await page.style('body', 'background-color');
  assert.equal(await page.style('#t-log', 'border-bottom-color'), canvas);
  assert.notEqual(await page.style('#t-work', 'border-bottom-color'), canvas);
  assert.notEqual(await page.style('#c-connect', 'background-color'), await page.style('#c-fetch', 'background-color'));
  assert.equal(await page.style('#c-target', 'background-image'), 'none');
});

pageTest('the list of choices is dark as the rest', async (page) => {
  await page.deliverAll(kStates.resolved);
  const ground = await page.style('#c-profiles option', 'background-color');
  assert.equal(ground, 'rgb(10, 16, 19)');
  assert.equal(await page.style('html', 'color-scheme'), 'dark');
});
