// Tabs, and the layout of the two roles.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';

useBrowser();

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
