// The log lists, tabs, and the two roles' layout.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';

useBrowser();

const lines = (first, count) => Array.from({ length: count }, (_, i) => ['01:02:03', `第${first + i}行`, '']);
const isAtEnd = (page, id) => page.view.locator(`#${id}`).evaluate((list) =>
  list.scrollHeight > list.clientHeight && list.scrollTop + list.clientHeight >= list.scrollHeight - 1);

pageTest('a log message is added to both lists with its time and class', async (page) => {
  await page.deliver({ t: 'log', ts: '02:14:07', msg: '客户端启动中', cls: '' });
  await page.deliver(JSON.stringify({ t: 'log', ts: '02:14:31', msg: '连接失败\r\n第二行', cls: 'er' }));
  const wanted = [['02:14:07', '客户端启动中', ''], ['02:14:31', '连接失败\r\n第二行', 'er']];
  assert.deepEqual(await page.log('c-log'), wanted);
  assert.deepEqual(await page.log('full-log'), wanted);
});

pageTest('a log message without members is an empty line', async (page) => {
  await page.deliver({ t: 'log' });
  assert.deepEqual(await page.log(), [['', '', '']]);
});

pageTest('a logs message replaces both lists', async (page) => {
  await page.deliver({ t: 'log', ts: '02:14:07', msg: '旧', cls: 'ok' });
  const wanted = [['03:00:00', '甲', 'wn'], ['03:00:01', '<b>乙</b>', '']];
  await page.deliver({ t: 'logs', lines: wanted });
  assert.deepEqual(await page.log('c-log'), wanted);
  assert.deepEqual(await page.log('full-log'), wanted);
  await page.deliver({ t: 'logs', lines: [] });
  assert.deepEqual(await page.log('c-log'), []);
  assert.deepEqual(await page.log('full-log'), []);
});

pageTest('the 501st line drops the first', async (page) => {
  await page.deliver({ t: 'logs', lines: lines(1, 500) });
  for (const id of ['c-log', 'full-log']) {
    const shown = await page.log(id);
    assert.equal(shown.length, 500);
    assert.equal(shown[0][1], '第1行');
  }
  await page.deliver({ t: 'log', ts: '01:02:04', msg: '第501行', cls: 'ok' });
  for (const id of ['c-log', 'full-log']) {
    const shown = await page.log(id);
    assert.equal(shown.length, 500);
    assert.deepEqual(shown[0], ['01:02:03', '第2行', '']);
    assert.deepEqual(shown[499], ['01:02:04', '第501行', 'ok']);
  }
});

pageTest('a logs message of more than 500 lines keeps the last ones', async (page) => {
  await page.deliver({ t: 'logs', lines: lines(1, 503) });
  const shown = await page.log();
  assert.equal(shown.length, 500);
  assert.equal(shown[0][1], '第4行');
});

pageTest('a burst keeps its order, its last 500 lines and its end, line by line', async (page) => {
  await page.deliver({ t: 'logs', lines: lines(1, 100) });
  const seen = await page.view.evaluate((burst) => {
    const list = document.getElementById('c-log');
    let inOrder = true;
    for (const [ts, msg, cls] of burst) {
      window.deliver({ t: 'log', ts, msg, cls });
      inOrder &&= list.lastElementChild.lastElementChild.textContent === msg && list.childElementCount <= 500;
    }
    return inOrder;
  }, lines(101, 1_400));
  assert.ok(seen, 'each line is there at once');
  const wanted = lines(1_001, 500);
  for (const id of ['c-log', 'full-log']) assert.deepEqual(await page.log(id), wanted);
  await page.view.waitForFunction(() => {
    const list = document.getElementById('c-log');
    return list.scrollTop + list.clientHeight >= list.scrollHeight - 1;
  });
});

pageTest('a window without frames, as a minimised one, loses no line and hoards none', async (page) => {
  await page.view.evaluate(() => { window.requestAnimationFrame = () => 0; });
  await page.deliverAll(lines(1, 2_000).map(([ts, msg, cls]) => ({ t: 'log', ts, msg, cls })));
  const shown = await page.log();
  assert.deepEqual([shown.length, shown[0][1], shown[499][1]], [500, '第1501行', '第2000行']);
  await page.click('t-log');
  assert.ok(await isAtEnd(page, 'full-log'));
});

pageTest('a burst lays the page out once a frame, not once a line', async (page) => {
  await page.deliver({ t: 'logs', lines: lines(1, 500) });
  const scrolls = await page.view.evaluate((burst) => {
    let count = 0;
    const list = document.getElementById('c-log');
    const { set, get } = Object.getOwnPropertyDescriptor(Element.prototype, 'scrollTop');
    Object.defineProperty(list, 'scrollTop', { get: () => get.call(list), set: (top) => { count += 1; set.call(list, top); } });
    burst.forEach(([ts, msg, cls]) => window.deliver({ t: 'log', ts, msg, cls }));
    return count;
  }, lines(501, 300));
  assert.ok(scrolls <= 1, `${scrolls}`);
});

pageTest('the list stays at its end when its window changes', async (page) => {
  await page.deliver({ t: 'logs', lines: lines(1, 100) });
  await page.view.setViewportSize({ width: 1220, height: 1000 });
  await page.view.setViewportSize({ width: 1220, height: 760 });
  await page.view.waitForFunction(() => {
    const list = document.getElementById('c-log');
    return list.scrollTop + list.clientHeight >= list.scrollHeight - 1;
  });
});

pageTest('both lists stand at their end', async (page) => {
  await page.deliver({ t: 'logs', lines: lines(1, 100) });
  assert.ok(await isAtEnd(page, 'c-log'));
  await page.click('t-log');
  assert.ok(await isAtEnd(page, 'full-log'));
  await page.deliver({ t: 'log', ts: '01:02:04', msg: '又一行', cls: '' });
  assert.ok(await isAtEnd(page, 'full-log'));
  await page.click('t-work');
  assert.ok(await isAtEnd(page, 'c-log'));
});

/** Scrolls with the mouse, and lets the page hear of it. */
async function scrollUp(page, id) {
  await page.view.hover(`#${id}`);
  await page.view.mouse.wheel(0, -300);
  await page.view.waitForFunction((list) => {
    const { scrollTop, clientHeight, scrollHeight } = document.getElementById(list);
    return scrollTop + clientHeight < scrollHeight - 100;
  }, id);
  await twoFrames(page);
  return scrollTop(page, id);
}
const twoFrames = (page) => page.view.evaluate(() =>
  new Promise((done) => { requestAnimationFrame(() => requestAnimationFrame(done)); }));
const scrollTop = (page, id) => page.view.locator(`#${id}`).evaluate((list) => list.scrollTop);

pageTest('a list that was scrolled up stays there through a change of its window', async (page) => {
  await page.deliver({ t: 'logs', lines: lines(1, 100) });
  const top = await scrollUp(page, 'c-log');
  await page.view.setViewportSize({ width: 1220, height: 760 });
  await twoFrames(page);
  assert.equal(await scrollTop(page, 'c-log'), top);
});

pageTest('a list that was scrolled up stays there through a change of tabs', async (page) => {
  await page.deliver({ t: 'logs', lines: lines(1, 100) });
  const top = await scrollUp(page, 'c-log');
  await page.click('t-log');
  assert.ok(await isAtEnd(page, 'full-log'));
  await page.click('t-work');
  await twoFrames(page);
  assert.equal(await scrollTop(page, 'c-log'), top);
});

pageTest('a list that grows and shrinks in one frame was not scrolled up', async (page) => {
  await page.deliver({ t: 'logs', lines: lines(1, 100) });
  await twoFrames(page);
  await page.view.locator('#c-log').evaluate((list) => {
    list.style.flex = 'none';
    for (const height of ['400px', '100px']) {
      list.style.height = height;
      list.getBoundingClientRect();  // the end moves now, its event comes with the next frame
    }
  });
  await twoFrames(page);
  assert.ok(await isAtEnd(page, 'c-log'));
});

pageTest('a new line takes every list to its end, wherever it was and also while it is hidden', async (page) => {
  await page.deliver({ t: 'logs', lines: lines(1, 100) });
  await scrollUp(page, 'c-log');
  await page.deliver({ t: 'log', ts: '01:02:04', msg: '又一行', cls: '' });
  assert.ok(await isAtEnd(page, 'c-log'));
  await scrollUp(page, 'c-log');
  await page.click('t-log');
  await page.deliver({ t: 'log', ts: '01:02:05', msg: '再一行', cls: '' });
  await page.click('t-work');
  assert.ok(await isAtEnd(page, 'c-log'));
  await page.view.setViewportSize({ width: 1220, height: 760 });
  await twoFrames(page);
  assert.ok(await isAtEnd(page, 'c-log'));
});

pageTest('a list that was scrolled back to its end follows it again', async (page) => {
  await page.deliver({ t: 'logs', lines: lines(1, 100) });
  await scrollUp(page, 'c-log');
  await page.view.mouse.wheel(0, 5_000);
  await page.view.waitForFunction(() => {
    const list = document.getElementById('c-log');
    return list.scrollTop + list.clientHeight >= list.scrollHeight - 1;
  });
  await twoFrames(page);
  await page.view.setViewportSize({ width: 1220, height: 760 });
  await twoFrames(page);
  assert.ok(await isAtEnd(page, 'c-log'));
});

async function shownPanes(page) {
  const panes = [];
  for (const id of ['pane-client', 'pane-edge', 'pane-logfull']) {
    if (await page.isVisible(id)) panes.push(id);
  }
  const active = await page.view.locator('.tab.active').evaluateAll((all) => all.map(({ id }) => id));
  return { panes, active };
}

pageTest('tabs switch between the work pane and the full log', async (page) => {
  assert.deepEqual(await shownPanes(page), { panes: ['pane-client'], active: ['t-work'] });
  await page.click('t-log');
  assert.deepEqual(await shownPanes(page), { panes: ['pane-logfull'], active: ['t-log'] });
  await page.deliver({ t: 'state', role: 'client', side: {} });
  assert.deepEqual(await shownPanes(page), { panes: ['pane-logfull'], active: ['t-log'] });
  await page.click('t-work');
  assert.deepEqual(await shownPanes(page), { panes: ['pane-client'], active: ['t-work'] });
});

const kRoleMessages = [
  ['init', (role) => ({ t: 'init', role })], ['state', (role) => ({ t: 'state', role, side: {} })],
];
for (const [name, message] of kRoleMessages) {
  pageTest(`${name} of another role switches the layout, from the log tab too`, async (page) => {
    await page.click('t-log');
    await page.deliver(message('edge'));
    assert.deepEqual(await shownPanes(page), { panes: ['pane-edge'], active: ['t-work'] });
    assert.equal(await page.text('t-work'), '接入');
    assert.equal(await page.view.getAttribute('body', 'data-role'), 'edge');
    await page.click('t-log');
    assert.deepEqual(await shownPanes(page), { panes: ['pane-logfull'], active: ['t-log'] });
    await page.click('t-work');
    assert.deepEqual(await shownPanes(page), { panes: ['pane-edge'], active: ['t-work'] });
    await page.deliver(message('client'));
    assert.deepEqual(await shownPanes(page), { panes: ['pane-client'], active: ['t-work'] });
    assert.equal(await page.text('t-work'), '连接');
    assert.equal(await page.view.getAttribute('body', 'data-role'), 'client');
  });
}

pageTest('apply goes to the role it names, else to the current one, and switches nothing', async (page) => {
  await page.deliver({ t: 'apply', role: 'edge', fields: { devname: '泵房', secret: 'NO' } });
  assert.deepEqual(await shownPanes(page), { panes: ['pane-client'], active: ['t-work'] });
  assert.equal(await page.value('e-devname'), '泵房');
  assert.equal(await page.value('c-secret'), '');
  await page.deliver({ t: 'init', role: 'edge' });
  await page.deliver({ t: 'apply', fields: { devname: '水厂', secret: 'NO' } });
  assert.equal(await page.value('e-devname'), '水厂');
  assert.equal(await page.value('c-secret'), '');
  await page.deliver({ t: 'apply', role: 'client', fields: { secret: 'YES' } });
  assert.equal(await page.value('c-secret'), 'YES');
});

const withoutRole = (html) => html.replace(' data-role="client"', '');
pageTest('a body without a role is the client', { alter: withoutRole }, async (page) => {
  assert.equal(await page.view.getAttribute('body', 'data-role'), 'client');
  assert.deepEqual(await shownPanes(page), { panes: ['pane-client'], active: ['t-work'] });
});

const asEdge = (html) => html.replace('data-role="client"', 'data-role="edge"');
pageTest('a body of the edge role starts with the edge pane', { alter: asEdge }, async (page) => {
  assert.deepEqual(await shownPanes(page), { panes: ['pane-edge'], active: ['t-work'] });
  assert.equal(await page.text('t-work'), '接入');
});

const withoutEdge = (html) => {
  const altered = html.replace(/<section[^>]*id="pane-edge"[\s\S]*?<\/section>/, '');
  assert.ok(!/id="(pane-edge|e-)/.test(altered) && altered !== html);
  return altered;
};
pageTest('works without the edge elements', { alter: withoutEdge }, async (page) => {
  assert.deepEqual(JSON.parse((await page.takePosted())[0]), { action: 'ready', f: {
    secret: '', target: '自动', testip: '', profileName: '', profileSel: '', discovery: false,
    devname: '', nicSel: '', sharedSel: [], manual: '', autostart: false } });
  await page.deliver({ t: 'state', role: 'client', side: { state: '在线' }, statusline: '在线' });
  await page.deliver({ t: 'apply', role: 'edge', fields: {
    devname: '泵房', manual: '', nics: ['以太网'], nicSel: '以太网', shared: ['10.0.0.0/8'], autostart: true } });
  await page.deliver({ t: 'init', role: 'edge' });
  await page.deliver({ t: 'init', role: 'client' });
  await page.click('t-log');
  await page.click('t-work');
  await page.fill('c-secret', 'KEY');
  await page.click('c-connect');
  assert.equal(JSON.parse((await page.takePosted())[0]).f.secret, 'KEY');
  assert.equal(await page.text('c-statusline'), '在线');
  assert.ok(await page.isVisible('pane-client'));
});
