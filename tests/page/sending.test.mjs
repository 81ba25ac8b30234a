// The messages that the page posts: every control, the form's snapshot, the first message.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';

useBrowser();

const kEmptyForm = {
  secret: '', target: '自动', testip: '', profileName: '', profileSel: '', discovery: false,
  devname: '', nicSel: '', sharedSel: [], manual: '', autostart: false,
};

const message = (action, form = {}) => JSON.stringify({ action, f: { ...kEmptyForm, ...form } });

pageTest('posts ready once when it has loaded, as a JSON text', async (page) => {
  assert.deepEqual(await page.takePosted(), [message('ready')]);
  await page.deliver({ t: 'state', role: 'client', side: {} });
  await page.deliver({ t: 'init', role: 'client' });
  assert.deepEqual(await page.takePosted(), []);
});

const kButtons = [
  ['c-connect', '连接', 'connect'], ['c-stop', '断开', 'stop'], ['c-test', '测试', 'test'],
  ['c-desktop', '桌面', 'desktop'], ['c-fetch', '取网段', 'secondary'], ['c-save', '存档', 'saveProfile'],
];
for (const [id, caption, action] of kButtons) {
  pageTest(`the button ${caption} posts ${action}`, async (page) => {
    await page.takePosted();
    assert.equal(await page.text(id), caption);
    await page.click(id);
    assert.deepEqual(await page.takePosted(), [message(action)]);
  });
}

pageTest('an action carries what stands in the form', async (page) => {
  await page.deliver({ t: 'apply', fields: {
    targets: ['自动', '10.20.0.0/16'], target: '自动', profiles: ['东区', '西区'], profileSel: '西区' } });
  await page.fill('c-secret', ' KEY "1" \\ ');
  await page.fill('c-testip', '10.20.0.9');
  await page.fill('c-pname', '二号泵站 😀');
  await page.view.selectOption('#c-target', '10.20.0.0/16');
  await page.takePosted();
  await page.click('c-connect');
  assert.deepEqual(await page.takePosted(), [message('connect', {
    secret: ' KEY "1" \\ ', target: '10.20.0.0/16', testip: '10.20.0.9', profileName: '二号泵站 😀',
    profileSel: '西区' })]);
});

pageTest('choosing a profile posts loadProfile with its name', async (page) => {
  await page.deliver({ t: 'apply', fields: { profiles: ['东区', '西区'], profileSel: '东区' } });
  await page.takePosted();
  await page.view.selectOption('#c-profiles', '西区');
  assert.deepEqual(await page.takePosted(), [message('loadProfile', { profileSel: '西区' })]);
});

pageTest('a single profile that is not in use can be chosen', async (page) => {
  await page.deliver({ t: 'apply', fields: { profiles: ['东区'], profileSel: '新站' } });
  await page.takePosted();
  assert.equal(await page.value('c-profiles'), '');
  await page.view.focus('#c-profiles');
  await page.view.keyboard.press('ArrowDown');
  await page.view.waitForFunction(() => window.posted.length > 0);
  assert.deepEqual(await page.takePosted(), [message('loadProfile', { profileSel: '东区' })]);
});

pageTest('the discovery button flips its caption before it sends', async (page) => {
  await page.takePosted();
  await page.view.evaluate(() => {
    window.captions = [];
    const { webview } = window.chrome;
    const post = webview.postMessage;
    webview.postMessage = (value) => {
      if (JSON.parse(value).action === 'discovery') window.captions.push(document.getElementById('c-discovery').textContent);
      post(value);
    };
  });
  assert.equal(await page.text('c-discovery'), 'PLC发现模式：关');
  await page.click('c-discovery');
  assert.equal(await page.text('c-discovery'), 'PLC发现模式：开');
  await page.click('c-discovery');
  assert.equal(await page.text('c-discovery'), 'PLC发现模式：关');
  assert.deepEqual(await page.takePosted(),
    [message('discovery', { discovery: true }), message('discovery', { discovery: false })]);
  assert.deepEqual(await page.view.evaluate(() => window.captions), ['PLC发现模式：开', 'PLC发现模式：关']);
});

pageTest('members given to send are merged into the message', async (page) => {
  await page.takePosted();
  await page.view.evaluate(() => send('connect', { extra: 1 }));
  assert.deepEqual(await page.takePosted(), [JSON.stringify({ action: 'connect', f: kEmptyForm, extra: 1 })]);
});

pageTest('the edge fields travel in the same form', async (page) => {
  await page.deliver({ t: 'apply', role: 'edge', fields: {
    devname: '泵房', manual: '10.0.0.0/8', nics: ['以太网', 'WLAN'], nicSel: 'WLAN',
    shared: ['10.1.0.0/16', '10.2.0.0/16'], autostart: true } });
  await page.deliver({ t: 'init', role: 'edge' });
  await page.view.selectOption('#e-shared', ['10.1.0.0/16', '10.2.0.0/16']);
  await page.takePosted();
  await page.view.evaluate(() => send('connect'));
  assert.deepEqual(await page.takePosted(), [message('connect', {
    devname: '泵房', nicSel: 'WLAN', sharedSel: ['10.1.0.0/16', '10.2.0.0/16'], manual: '10.0.0.0/8',
    autostart: true })]);
});

pageTest('tabs and typing post nothing', async (page) => {
  await page.takePosted();
  await page.fill('c-secret', 'KEY');
  await page.click('t-log');
  await page.click('t-work');
  assert.deepEqual(await page.takePosted(), []);
});

pageTest('keeps to itself: one document, no other request', async (page) => {
  await page.click('t-log');
  assert.deepEqual(page.requests, ['http://page.test/app.html']);
});
