// A browser's keys and gestures: which of them the embedded page refuses, and which it leaves alone.
import assert from 'node:assert/strict';
import { fileURLToPath } from 'node:url';

import { pageTest, useBrowser } from './browser_page.mjs';
import { kStates } from './page_states.mjs';

useBrowser({ isTabShared: false });

/** Fills the form and the log, and records from then on which events the page refuses. */
async function prepare(page) {
  await page.deliverAll(kStates.online);
  await page.fill('c-pname', '半个名字');
  await page.view.evaluate((types) => {
    window.events = [];
    const note = (event) => {
      if (!['Control', 'Shift', 'Alt'].includes(event.key)) window.events.push([event.type, event.defaultPrevented]);
    };
    for (const type of types) addEventListener(type, note, { passive: true });
  }, ['keydown', 'wheel', 'mousedown', 'mouseup', 'auxclick', 'contextmenu', 'dragover', 'drop']);
}

/** Whether the page refused the events of `type` since the last call: all (true), none (false), 'partly', or 'not seen'. */
const refused = (page, type) => page.view.evaluate((wanted) => {
  const seen = window.events.filter(([name]) => name === wanted).map(([, isRefused]) => isRefused);
  window.events = [];
  return seen.length === 0 ? 'not seen' : seen.every(Boolean) ? true : seen.some(Boolean) ? 'partly' : false;
}, type);

async function checkWhole(page) {
  assert.equal(await page.value('c-pname'), '半个名字');
  assert.equal((await page.log()).length, kStates.online.filter(({ t }) => t === 'log').length);
  assert.deepEqual((await page.takePosted()).map((text) => JSON.parse(text).action), ['ready'], 'one page, not two');
}

// ---- keys

const kRefusedKeys = ['F5', 'Control+F5', 'Shift+F5', 'Control+r', 'Control+Shift+R', 'BrowserRefresh', 'Alt+ArrowLeft',
  'Alt+ArrowRight', 'BrowserBack', 'BrowserForward'];
const kKeyTypes = { BrowserRefresh: 168, BrowserBack: 166, BrowserForward: 167 };

/** Presses a key by its code; Playwright's keyboard lacks the browser's own keys. */
async function press(page, key) {
  if (!(key in kKeyTypes)) return page.view.keyboard.press(key);
  const session = await page.view.context().newCDPSession(page.view);
  const params = { key, code: key, windowsVirtualKeyCode: kKeyTypes[key] };
  await session.send('Input.dispatchKeyEvent', { type: 'rawKeyDown', ...params });
  return session.send('Input.dispatchKeyEvent', { type: 'keyUp', ...params });
}

for (const place of ['c-pname', 'c-connect', 'c-log', 't-work']) {
  pageTest(`no key reloads or leaves the page from ${place}`, async (page) => {
    await prepare(page);
    for (const key of kRefusedKeys) {
      await page.view.focus(`#${place}`);
      await press(page, key);
      assert.equal(await refused(page, 'keydown'), true, key);
    }
    await checkWhole(page);
  });
}

pageTest('Ctrl+R is known under Russian letters too', async (page) => {
  await prepare(page);
  const isRefused = (init) => page.view.evaluate((given) =>
    !window.dispatchEvent(new KeyboardEvent('keydown', { cancelable: true, ctrlKey: true, ...given })), init);
  assert.equal(await isRefused({ key: 'к', code: 'KeyR' }), true);
  assert.equal(await isRefused({ key: 'R', code: 'KeyR' }), true);
  assert.equal(await isRefused({ key: 'p', code: 'KeyR' }), false);
  assert.equal(await isRefused({ key: 'r', code: 'KeyO' }), true);
  assert.equal(await isRefused({ key: 'r', code: 'KeyR', altKey: true }), false);
});

const kOtherKeys = ['a', 'r', 'Control+c', 'Control+v', 'Control+x', 'Control+z', 'Control+a', 'ArrowLeft', 'ArrowRight', 'ArrowUp',
  'ArrowDown', 'Home', 'End', 'PageUp', 'PageDown', 'Control+ArrowLeft', 'Shift+ArrowLeft', 'Backspace', 'Delete', 'Tab', 'Shift+Tab',
  'Escape', 'F1', 'F2', 'F3', 'F4', 'F7', 'F8', 'F9', 'F10', 'F11', 'Control+f', 'Control+0', 'Alt+ArrowUp'];
pageTest('every other key does what it does in a field', async (page) => {
  await prepare(page);
  for (const key of kOtherKeys) {
    await page.view.focus('#c-secret');
    await page.view.keyboard.press(key);
    assert.equal(await refused(page, 'keydown'), false, key);
  }
});

pageTest('a field is typed in, selected, copied and pasted as before', async (page) => {
  await prepare(page);
  await page.view.focus('#c-secret');
  await page.view.keyboard.press('Control+A');
  await page.view.keyboard.type('KEY-9');
  await page.view.keyboard.press('Control+A');
  await page.view.keyboard.press('Control+C');
  await page.view.keyboard.press('End');
  await page.view.keyboard.press('Control+V');
  assert.equal(await page.value('c-secret'), 'KEY-9KEY-9');
});

// ---- selecting all

const selected = (page) => page.view.evaluate(() => getSelection().toString().trim());
const kAll = kStates.online.filter(({ t }) => t === 'log').map(({ ts, msg }) => `${ts} ${msg.trim()}`).join('\n');

for (const embedded of [true, false]) {
  pageTest(`Ctrl+A selects the log in use and nothing else, ${embedded ? 'embedded' : 'in a browser'}`, { embedded }, async (page) => {
    if (embedded) await page.deliverAll(kStates.online);
    const wanted = embedded ? kAll : await page.view.locator('#c-log').evaluate((list) => {
      getSelection().selectAllChildren(list);
      return getSelection().toString().trim();
    });
    for (const [use, all] of [[() => page.view.focus('#c-log'), wanted], [() => page.view.focus('#c-connect'), ''],
      [() => page.click('c-log'), wanted], [() => page.view.focus('#t-work'), '']]) {
      await page.view.evaluate(() => getSelection().removeAllRanges());
      await use();
      await page.view.keyboard.press('Control+A');
      assert.equal(await selected(page), all);
    }
    await page.click('t-log');
    await page.click('full-log');
    await page.view.keyboard.press('Control+A');
    assert.equal(await selected(page), wanted);
  });
}

for (const [name, place, wanted] of [
  ['a selection inside a log counts as its use, though the list has no focus', '#c-log .ok', kAll],
  ['a selection elsewhere stays as it is', '#s-state', '在线']]) {
  pageTest(name, async (page) => {
    await prepare(page);
    await page.view.evaluate((selector) => {
      document.activeElement.blur();
      getSelection().selectAllChildren(document.querySelector(selector));
    }, place);
    await page.view.keyboard.press('Control+A');
    assert.equal(await selected(page), wanted);
  });
}

// ---- the mouse

pageTest('the buttons that lead back and forward do nothing, the others what they did', async (page) => {
  await prepare(page);
  const session = await page.view.context().newCDPSession(page.view);
  for (const [button, wanted] of [['back', true], ['forward', true], ['left', false], ['middle', false]]) {
    for (const type of ['mousePressed', 'mouseReleased']) {
      await session.send('Input.dispatchMouseEvent', { type, button, x: 30, y: 30, clickCount: 1 });
    }
    const events = await page.view.evaluate(() => window.events);
    for (const type of ['mousedown', 'mouseup']) {
      assert.deepEqual(events.filter(([name]) => name === type).map(([, isRefused]) => isRefused), [wanted], `${button} ${type}`);
    }
    await page.view.evaluate(() => { window.events = []; });
  }
  await checkWhole(page);
});

pageTest('the menu of the browser opens in text fields only', async (page) => {
  await prepare(page);
  for (const [id, wanted] of [['c-secret', false], ['c-pname', false], ['c-connect', true], ['c-log', true], ['s-state', true],
    ['c-target', true]]) {
    await page.view.click(`#${id}`, { button: 'right' });
    assert.equal(await refused(page, 'contextmenu'), wanted, id);
    await page.view.keyboard.press('Escape');
  }
  await page.view.click('body', { button: 'right', position: { x: 2, y: 2 } });
  assert.equal(await refused(page, 'contextmenu'), true);
});

// ---- what is dragged in

const kFile = { items: [], files: [fileURLToPath(import.meta.url)], dragOperationsMask: 1 };
const item = (mimeType, data) => ({ items: [{ mimeType, data }], dragOperationsMask: 1 });
const kLink = { items: [{ mimeType: 'text/uri-list', data: 'http://other.test/' }, { mimeType: 'text/plain', data: 'http://other.test/' }],
  dragOperationsMask: 1 };

/** Drags from outside onto an element and drops there. */
async function dragIn(page, id, data) {
  const { x, y, width, height } = await page.view.locator(`#${id}`).boundingBox();
  const session = await page.view.context().newCDPSession(page.view);
  for (const type of ['dragEnter', 'dragOver', 'drop']) {
    await session.send('Input.dispatchDragEvent', { type, x: x + width / 2, y: y + height / 2, data });
  }
}

for (const [name, data] of [['file', kFile], ['link', kLink], ['picture', item('image/png', 'x')]]) {
  pageTest(`a ${name} that is dropped anywhere is not taken`, async (page) => {
    await prepare(page);
    for (const id of ['c-log', 'c-secret', 'c-pname', 's-state', 'c-connect']) {
      await dragIn(page, id, data);
      assert.equal(await refused(page, 'dragover'), true, id);
    }
    assert.deepEqual(page.requests, ['http://page.test/app.html']);
    await checkWhole(page);
  });
}

pageTest('a text is taken by a text field, and by nothing else', async (page) => {
  await prepare(page);
  await page.fill('c-testip', '');
  await dragIn(page, 'c-testip', item('text/plain', '10.1.2.3'));
  assert.equal(await refused(page, 'dragover'), false);
  assert.equal(await page.value('c-testip'), '10.1.2.3');
  for (const id of ['c-log', 's-state', 'c-connect']) {
    await dragIn(page, id, item('text/plain', '10.1.2.3'));
    assert.equal(await refused(page, 'dragover'), true, id);
  }
  await checkWhole(page);
});

// ---- zoom

async function zoomRefusals(page) {
  const seen = {};
  await page.view.mouse.move(400, 400);
  for (const [name, key] of [['+', 'Control++'], ['=', 'Control+='], ['-', 'Control+-'], ['0', 'Control+0']]) {
    await page.view.keyboard.press(key);
    seen[name] = await refused(page, 'keydown');
  }
  for (const [name, deltaY] of [['wheel in', -100], ['wheel out', 100]]) {
    await page.view.keyboard.down('Control');
    const isSeen = page.view.waitForFunction(() => window.events.some(([type]) => type === 'wheel'));
    await page.view.mouse.wheel(0, deltaY);
    await isSeen;
    await page.view.keyboard.up('Control');
    seen[name] = await refused(page, 'wheel');
  }
  return seen;
}
const zoom = (inward, outward) =>
  ({ '+': inward, '=': inward, '-': outward, 0: false, 'wheel in': inward, 'wheel out': outward });

for (const [name, size, wanted] of [
  ['an ordinary window may go either way', { width: 1220, height: 820 }, zoom(false, false)],
  ['641 wide may still be made larger', { width: 641, height: 500 }, zoom(false, false)],
  ['640 wide may not', { width: 640, height: 500 }, zoom(true, false)],
  ['at a scale of 0.85 it may still be made smaller', { width: 1220, height: 820, scale: 0.85 }, zoom(false, false)],
  ['at 0.8 it may not', { width: 1220, height: 820, scale: 0.8 }, zoom(false, true)]]) {
  pageTest(`zoom: ${name}`, size, async (page) => {
    await prepare(page);
    assert.deepEqual(await zoomRefusals(page), wanted);
    await checkWhole(page);
  });
}

pageTest('zoom: two fingers count as the wheel does', async (page) => {
  await prepare(page);
  const session = await page.view.context().newCDPSession(page.view);
  await session.send('Emulation.setPageScaleFactor', { pageScaleFactor: 2 });
  await page.view.waitForFunction(() => visualViewport.scale === 2);
  assert.deepEqual(await zoomRefusals(page), zoom(true, false));
});

pageTest('the wheel without Ctrl scrolls', async (page) => {
  await prepare(page);
  await page.deliver({ t: 'logs', lines: Array.from({ length: 100 }, (_, i) => ['02:14:31', `第${i}行`, '']) });
  await page.view.hover('#c-log');
  await page.view.mouse.wheel(0, -300);
  await page.view.waitForFunction(() => window.events.some(([type]) => type === 'wheel'));
  assert.equal(await refused(page, 'wheel'), false);
});

pageTest('in a plain browser nothing of all this is refused', { embedded: false, width: 600, height: 600 }, async (page) => {
  await page.view.evaluate(() => {
    window.events = [];
    addEventListener('contextmenu', ({ type, defaultPrevented }) => window.events.push([type, defaultPrevented]));
  });
  const isTaken = (type, init) => page.view.evaluate(([name, given]) => {
    const Kind = name === 'keydown' ? KeyboardEvent : name === 'wheel' ? WheelEvent : DragEvent;
    return document.body.dispatchEvent(new Kind(name, { bubbles: true, cancelable: true, ...given }));
  }, [type, init]);
  assert.ok(await isTaken('keydown', { key: 'F5' }));
  assert.ok(await isTaken('keydown', { key: 'r', code: 'KeyR', ctrlKey: true }));
  assert.ok(await isTaken('wheel', { deltaY: -100, ctrlKey: true }));
  assert.ok(await isTaken('dragover', {}));
  await page.view.click('#s-state', { button: 'right' });
  assert.equal(await refused(page, 'contextmenu'), false);
});
