// Without mouse and without eyes: order, names, roles, announcements.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';
import { kRefused, kStates, log, state } from './page_states.mjs';

useBrowser();

const focused = (page) => page.view.evaluate(() => document.activeElement.id);

const kOrder = ['t-work', 'c-profiles', 'c-connect', 'c-stop', 'c-secret', 'c-fetch', 'c-target', 'c-discovery', 'c-testip',
  'c-test', 'c-desktop', 'c-pname', 'c-save', 'c-log'];

pageTest('Tab goes from the site to connecting and on, as the eye does', async (page) => {
  await page.deliverAll(kStates.resolved);
  await page.view.focus('#t-work');
  const seen = ['t-work'];
  for (let i = 1; i < kOrder.length; i += 1) {
    await page.view.keyboard.press('Tab');
    seen.push(await focused(page));
  }
  assert.deepEqual(seen, kOrder);
  for (const id of kOrder.slice(0, -1).reverse()) {
    await page.view.keyboard.press('Shift+Tab');
    assert.equal(await focused(page), id);
  }
});

pageTest('the way from the key by the keyboard alone: fetch, connect, stop, test, save, discovery, profile', async (page) => {
  await page.deliverAll(kStates.resolved);
  await page.takePosted();
  const goTo = async (id) => {
    await page.view.focus('#t-work');
    for (let i = 0; i < kOrder.length && await focused(page) !== id; i += 1) await page.view.keyboard.press('Tab');
    assert.equal(await focused(page), id);
  };
  await goTo('c-secret');
  await page.view.keyboard.press('Control+A');
  await page.view.keyboard.type('KEY-9');
  for (const [id, key] of [['c-fetch', 'Enter'], ['c-connect', 'Space'], ['c-stop', 'Enter'], ['c-test', 'Space'],
    ['c-desktop', 'Enter'], ['c-discovery', 'Space'], ['c-save', 'Enter'], ['c-profiles', 'ArrowDown']]) {
    await goTo(id);
    await page.view.keyboard.press(key);
  }
  await page.view.keyboard.press('Tab');  // the choice is made
  const posted = (await page.takePosted()).map((text) => JSON.parse(text));
  assert.deepEqual(posted.map(({ action }) => action),
    ['secondary', 'connect', 'stop', 'test', 'desktop', 'discovery', 'saveProfile', 'loadProfile']);
  assert.ok(posted.every(({ f }) => f.secret === 'KEY-9'));
  assert.equal(posted.at(-1).f.profileSel, '城东水厂');
});

const tabs = (page) => page.view.locator('[role="tab"]').evaluateAll((all) => all.map((tab) => ({
  id: tab.id, selected: tab.getAttribute('aria-selected'), stop: tab.tabIndex,
  panel: document.getElementById(tab.getAttribute('aria-controls')).checkVisibility() })));

pageTest('arrows, Home and End choose the tab, which takes the focus with it', async (page) => {
  const work = [{ id: 't-work', selected: 'true', stop: 0, panel: true }, { id: 't-log', selected: 'false', stop: -1, panel: false }];
  const full = [{ id: 't-work', selected: 'false', stop: -1, panel: false }, { id: 't-log', selected: 'true', stop: 0, panel: true }];
  await page.view.focus('#t-work');
  for (const [key, wanted] of [['ArrowRight', full], ['ArrowRight', work], ['ArrowLeft', full], ['ArrowLeft', work],
    ['End', full], ['End', full], ['Home', work], ['Home', work], ['ArrowDown', work]]) {
    await page.view.keyboard.press(key);
    assert.deepEqual(await tabs(page), wanted, key);
    if (key !== 'ArrowDown') assert.equal(await focused(page), wanted.find(({ stop }) => stop === 0).id);
  }
  await page.view.keyboard.press('End');
  await page.view.keyboard.press('F6');
  await page.view.keyboard.press('F6');
  assert.equal(await focused(page), 'full-log');
});

pageTest('the edge role has its pane behind the work tab', async (page) => {
  await page.deliver({ t: 'init', role: 'edge' });
  assert.equal(await page.view.getAttribute('#t-work', 'aria-controls'), 'pane-edge');
  assert.deepEqual((await tabs(page)).map(({ panel }) => panel), [true, false]);
});

const kNames = [
  ['textbox', '接入密钥', 'c-secret'], ['combobox', '目标网段', 'c-target'], ['textbox', '测试 IP', 'c-testip'],
  ['combobox', '站点档案', 'c-profiles'], ['textbox', '档案名称', 'c-pname'], ['button', '连接', 'c-connect'],
  ['button', '断开', 'c-stop'], ['button', '桌面', 'c-desktop'], ['button', '取网段', 'c-fetch'], ['button', '测试', 'c-test'],
  ['button', '存档', 'c-save'], ['button', 'PLC发现模式：关', 'c-discovery'], ['tab', '连接', 't-work'], ['tab', '日志', 't-log'],
  ['tabpanel', '连接', 'pane-client'], ['log', '实时日志', 'c-log'], ['group', '站点'], ['group', '现场连接'], ['group', '调试与存档'],
  ['region', '状态'], ['complementary', '现场信息'], ['heading', 'Velmarine.Client 维马林'],
];
for (const size of [{ width: 1220, height: 820 }, { width: 900, height: 600 }]) {
  pageTest(`everything has its role and name at ${size.width} x ${size.height}`, size, async (page) => {
    for (const [role, name, id] of kNames) {
      const found = page.view.getByRole(role, { name, exact: true });
      assert.equal(await found.count(), 1, `${role} ${name}`);
      if (id) assert.equal(await found.getAttribute('id'), id);
    }
  });
}

pageTest('a label\'s text leads to its field', async (page) => {
  for (const [label, id] of [['接入密钥', 'c-secret'], ['测试 IP', 'c-testip'], ['档案名称', 'c-pname']]) {
    await page.view.getByText(label, { exact: true }).click();
    assert.equal(await focused(page), id);
  }
});

// ---- what is read out

/** Starts a new frame: the page counts announcements per frame. */
const nextFrame = (page) => page.view.evaluate(() => new Promise(requestAnimationFrame));

/** The texts that changed inside live regions while `body` ran, as a screen reader gets them. */
async function readOut(page, body) {
  await page.view.evaluate(() => {
    window.spoken = [];
    const live = (node) => {
      const region = (node.nodeType === Node.TEXT_NODE ? node.parentElement : node)?.closest('[aria-live], [role="status"], [role="log"]');
      const says = region?.getAttribute('aria-live') ?? 'polite';
      return region?.checkVisibility() && says !== 'off';
    };
    window.speech = new MutationObserver((records) => {
      const added = records.flatMap(({ addedNodes }) => [...addedNodes]);
      window.spoken.push(...added.filter(live).map((node) => node.textContent));
    });
    window.speech.observe(document.body, { childList: true, subtree: true, characterData: true });
  });
  await body();
  return page.view.evaluate(() => { window.speech.disconnect(); return window.spoken; });
}

pageTest('a change of state and each log line are read out once', async (page) => {
  await page.deliverAll(kStates.resolved);
  const spoken = await readOut(page, () => page.deliverAll([state('up', '连接授权成功：1'), log('02:14:31', '连接授权成功：1', 'ok')]));
  assert.equal(spoken.filter((text) => text === '在线').length, 1);
  assert.equal(spoken.filter((text) => text.includes('连接授权成功：1')).length, 1);
});

pageTest('what is told again is not read out again', async (page) => {
  await page.deliverAll(kStates.online);
  const again = kStates.online.findLast(({ t }) => t === 'state');
  assert.deepEqual(await readOut(page, () => page.deliverAll([again, again])), []);
});

pageTest('a flood of lines is shown but not read out; afterwards lines are read out again', async (page) => {
  const flood = Array.from({ length: 300 }, (_, i) => log('02:14:31', `第${i}行`));
  const spoken = await readOut(page, () => page.deliverAll(flood));
  assert.ok(spoken.length <= 4, `${spoken.length} lines`);
  assert.equal((await page.log()).length, 300);
  await nextFrame(page);
  const afterwards = await readOut(page, () => page.deliver(log('02:14:40', '又一行')));
  assert.deepEqual(afterwards, ['02:14:40 又一行']);
});

pageTest('a retry in vain is read out once, whatever else happens meanwhile', async (page) => {
  await page.deliverAll(kStates.resolved);
  await nextFrame(page);
  const tried = ['正在自动重试连接授权...', kRefused];
  const spoken = [];
  for (let i = 0; i < 5; i += 1) {
    const lines = [...tried, ...(i === 2 ? ['UDP 通道已就绪'] : [])].map((text) => log(`02:15:${10 + i * 5}`, text));
    spoken.push(...await readOut(page, () => page.deliverAll(lines)));
    await nextFrame(page);
  }
  assert.deepEqual(spoken.map((text) => text.slice(9)), [tried[0], tried[1], 'UDP 通道已就绪']);
});
