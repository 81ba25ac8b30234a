// The log lists, tabs, the two roles' layout, and the room that long values get.
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

// ---- room

const kMappings = Array.from({ length: 5 }, (_, i) =>
  `NAT模式IP 172.31.${i}.0/24 -> 现场真实 192.168.${i}.0/24`).join('\r\n');

async function fillWithLongValues(page) {
  await page.deliver({ t: 'state', role: 'client', side: {
    on: true, state: '在线', detail: `访问网段 ${kMappings}`, cards: [
      { k: '设备', v: '东区水厂二号泵站'.repeat(8), cls: '' }, { k: '组网 IP', v: '10.88.0.2', cls: 'ok' },
      { k: '运行库', v: '软件隧道已就绪', cls: '' }, { k: 'NAT访问IP', v: kMappings, cls: '' },
      { k: 'PLC发现模式', v: 'PLC发现模式已开启', cls: 'ok' }] },
  statusline: `${'0123456789abcdef'.repeat(25)}\r\n${'连接授权成功'.repeat(20)}` });
  await page.deliver({ t: 'apply', fields: {
    targets: ['自动', ...lines(1, 200).map(([, text]) => text)], target: '自动',
    profiles: lines(1, 40).map(([, text]) => text.repeat(8)), profileSel: '' } });
  for (let i = 0; i < 12; i += 1) await page.deliver({ t: 'log', ts: '01:02:03', msg: 'x'.repeat(400), cls: 'er' });
}

/** Elements that stick out of a box that hides them, with nothing to scroll in between; runs in the page. */
function findCut() {
  const hides = (box) => getComputedStyle(box).overflowY === 'hidden' || box === document.documentElement;
  const scrolls = (box) => /auto|scroll/.test(getComputedStyle(box).overflowY);
  const cut = [];
  for (const element of document.querySelectorAll('body *:not(option)')) {
    const inner = element.getBoundingClientRect();
    if (inner.width === 0 || inner.height === 0) continue;
    if (element.scrollWidth > element.clientWidth + 1 && !/^(INPUT|SELECT|SPAN|B)$/.test(element.tagName)) {
      cut.push(`${element.tagName}#${element.id} is too narrow`);
    }
    for (let box = element.parentElement; box && !scrolls(box); box = box.parentElement) {
      const outer = box.getBoundingClientRect();
      if (hides(box) && (inner.bottom > outer.bottom + 1 || inner.right > outer.right + 1)) {
        cut.push(`${element.tagName}#${element.id} in ${box.tagName}#${box.id}`);
      }
    }
  }
  return cut;
}

/** Neighbours in a column that overlap; runs in the page. */
function findOverlaps() {
  const overlaps = [];
  for (const column of document.querySelectorAll('aside, .cards, #pane-client')) {
    const boxes = [...column.children].map((child) => child.getBoundingClientRect()).filter(({ height }) => height > 0);
    boxes.slice(1).forEach((box, i) => {
      if (box.top < boxes[i].bottom) overlaps.push(`${column.tagName}#${column.id}: ${i}`);
    });
  }
  return overlaps;
}

for (const [width, height] of [[1220, 820], [1204, 821], [1920, 1080], [900, 600]]) {
  pageTest(`long values are not cut at ${width} x ${height}`, { width, height }, async (page) => {
    await fillWithLongValues(page);
    assert.deepEqual(await page.view.evaluate(findCut), []);
    assert.deepEqual(await page.view.evaluate(findOverlaps), []);
    for (const id of ['s-foot', 'c-log']) {
      await page.view.locator(`#${id}`).evaluate((element) => element.scrollIntoView({ block: 'end' }));
    }
    const bottom = await page.view.locator('#c-log').evaluate((list) => list.getBoundingClientRect().bottom);
    assert.ok(bottom <= height, `the log ends at ${bottom}`);
    await page.click('t-log');
    assert.deepEqual(await page.view.evaluate(findCut), []);
  });
}
