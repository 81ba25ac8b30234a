// State and apply messages: what they show, what they leave alone, which role is laid out.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';

useBrowser();

const kSide = {
  logo: 'Velmarine.Client', sub: '工程师远程调试', on: true, err: false, state: '在线', detail: '访问网段 10.20.0.0/16',
  foot: '', cards: [
    { k: '设备', v: 'DEV-2041', cls: '' }, { k: '组网 IP', v: '10.88.0.2', cls: 'ok' },
    { k: '运行库', v: '软件隧道已就绪', cls: '' }, { k: 'NAT访问IP', v: '一\r\n二', cls: '' },
    { k: 'PLC发现模式', v: '已关闭', cls: 'off' }],
};
const stateMessage = (side = {}, rest = { statusline: '就绪。' }) =>
  ({ t: 'state', role: 'client', side: { ...kSide, ...side }, ...rest });

pageTest('before the first message it shows the resting client', async (page) => {
  assert.equal(await page.text('s-logo'), 'Velmarine.Client');
  assert.match(await page.view.innerText('.logo'), /维马林/);
  assert.equal(await page.text('s-sub'), '工程师远程调试');
  assert.equal(await page.text('s-state'), '未连接');
  assert.equal(await page.text('t-work'), '连接');
  assert.equal(await page.text('t-log'), '日志');
  assert.equal(await page.text('c-statusline'), '就绪。');
  assert.deepEqual(await page.options('c-target'), [{ value: '自动', text: '自动' }]);
  assert.deepEqual(await page.options('c-profiles'), [{ value: '', text: '（无）' }]);
  assert.equal(await page.view.getAttribute('#c-secret', 'placeholder'), '粘贴现场端密钥');
  assert.equal(await page.view.getAttribute('#c-pname', 'placeholder'), '给这套配置起个名');
  assert.ok(await page.isVisible('pane-client'));
  assert.equal(await page.isVisible('pane-edge'), false);
  assert.equal(await page.isVisible('pane-logfull'), false);
});

for (const [form, encode] of [['an object', (m) => m], ['a JSON text', JSON.stringify]]) {
  pageTest(`a state message given as ${form} is shown`, async (page) => {
    await page.deliver(encode(stateMessage({ foot: '脚注', logo: '标志', sub: '副题' }, { statusline: '正在请求' })));
    assert.equal(await page.text('s-logo'), '标志');
    assert.equal(await page.text('s-sub'), '副题');
    assert.equal(await page.text('s-state'), '在线');
    assert.equal(await page.text('s-detail'), '访问网段 10.20.0.0/16');
    assert.equal(await page.text('s-foot'), '脚注');
    assert.equal(await page.text('c-statusline'), '正在请求');
    const cards = await page.cards();
    assert.deepEqual(cards.map(({ k }) => k), ['设备', '组网 IP', '运行库', 'NAT访问IP', 'PLC发现模式']);
    assert.deepEqual(cards.map(({ cls }) => cls.trim().split(/\s+/)),
      [['v'], ['v', 'ok'], ['v'], ['v'], ['v', 'off']]);
    assert.equal(cards[1].v, '10.88.0.2');
  });
}

pageTest('cards are rebuilt, keep their lines, and stay when a message has none', async (page) => {
  await page.deliver(stateMessage());
  await page.deliver(stateMessage());
  assert.equal((await page.cards()).length, 5);
  assert.match(await page.view.locator('#s-cards .v').nth(3).innerText(), /^一\s*\n二$/);
  await page.deliver(stateMessage({ cards: undefined }));
  assert.equal((await page.cards()).length, 5);
  await page.deliver(stateMessage({ cards: [] }));
  assert.deepEqual(await page.cards(), []);
});

const kStatusClasses = [
  [{ on: true, err: false }, 'status on'], [{ on: true, err: true }, 'status on'],
  [{ on: false, err: true }, 'status err'], [{ on: false, err: false }, 'status '], [{}, 'status '],
  [{ on: null, err: null }, 'status '],
];
pageTest('the status block takes exactly its class', async (page) => {
  for (const [side, wanted] of kStatusClasses) {
    await page.deliver({ t: 'state', role: 'client', side });
    assert.equal(await page.className('s-status'), wanted, JSON.stringify(side));
  }
});

pageTest('missing and null members leave what was shown, a missing foot clears it', async (page) => {
  await page.deliver(stateMessage({ foot: '脚注' }, { statusline: '正在请求' }));
  for (const message of [
    { t: 'state', role: 'client', side: {} }, { t: 'state' }, { t: 'state', statusline: null },
    { t: 'state', side: { logo: null, sub: null, state: null, detail: null, cards: null } }]) {
    await page.deliver(message);
    assert.equal(await page.text('s-logo'), 'Velmarine.Client');
    assert.equal(await page.text('s-sub'), '工程师远程调试');
    assert.equal(await page.text('s-state'), '在线');
    assert.equal(await page.text('s-detail'), '访问网段 10.20.0.0/16');
    assert.equal(await page.text('c-statusline'), '正在请求');
    assert.equal((await page.cards()).length, 5);
    assert.equal(await page.text('s-foot'), '');
  }
});

pageTest('empty texts are shown, they are not missing', async (page) => {
  await page.deliver(stateMessage({ state: '', detail: '' }, { statusline: '' }));
  assert.equal(await page.text('s-state'), '');
  assert.equal(await page.text('s-detail'), '');
  assert.equal(await page.text('c-statusline'), '');
});

pageTest('an apply message fills the form', async (page) => {
  await page.deliver({ t: 'apply', role: 'client', fields: {
    secret: 'KEY-1', testip: '10.20.0.9', profileName: '二号泵站', targets: ['自动', '10.20.0.0/16', '10.30.0.0/16'],
    target: '10.20.0.0/16', discovery: true, profiles: ['东区', '二号泵站'], profileSel: '二号泵站' } });
  assert.equal(await page.value('c-secret'), 'KEY-1');
  assert.equal(await page.value('c-testip'), '10.20.0.9');
  assert.equal(await page.value('c-pname'), '二号泵站');
  assert.deepEqual((await page.options('c-target')).map(({ text }) => text), ['自动', '10.20.0.0/16', '10.30.0.0/16']);
  assert.equal(await page.value('c-target'), '10.20.0.0/16');
  assert.equal(await page.text('c-discovery'), 'PLC发现模式：开');
  assert.deepEqual((await page.options('c-profiles')).map(({ text }) => text), ['东区', '二号泵站']);
  assert.equal(await page.value('c-profiles'), '二号泵站');
});

pageTest('an apply message changes only the members it has', async (page) => {
  await page.deliver({ t: 'apply', fields: {
    secret: 'KEY-1', testip: '10.20.0.9', profileName: '甲', targets: ['自动', '10.20.0.0/16'], target: '10.20.0.0/16',
    discovery: true, profiles: ['甲'], profileSel: '甲' } });
  for (const message of [{ t: 'apply' }, { t: 'apply', fields: {} },
    { t: 'apply', fields: { secret: null, targets: null, discovery: null, profiles: null } }]) {
    await page.deliver(message);
    assert.equal(await page.value('c-secret'), 'KEY-1');
    assert.equal(await page.value('c-testip'), '10.20.0.9');
    assert.equal(await page.value('c-pname'), '甲');
    assert.equal(await page.value('c-target'), '10.20.0.0/16');
    assert.equal(await page.text('c-discovery'), 'PLC发现模式：开');
    assert.equal(await page.value('c-profiles'), '甲');
  }
  await page.deliver({ t: 'apply', fields: { secret: '', discovery: false } });
  assert.equal(await page.value('c-secret'), '');
  assert.equal(await page.text('c-discovery'), 'PLC发现模式：关');
});

pageTest('an applied discovery flag is what the next action carries', async (page) => {
  await page.deliver({ t: 'apply', fields: { discovery: true } });
  await page.takePosted();
  await page.click('c-connect');
  assert.equal(JSON.parse((await page.takePosted())[0]).f.discovery, true);
});

pageTest('no profiles are shown as （无）, also after there were some', async (page) => {
  await page.deliver({ t: 'apply', fields: { profiles: ['甲', '乙'], profileSel: '乙' } });
  await page.deliver({ t: 'apply', fields: { profiles: [], profileSel: '乙' } });
  assert.deepEqual((await page.options('c-profiles')).map(({ text }) => text), ['（无）']);
  await page.deliver({ t: 'apply', fields: { profiles: ['丙'], profileSel: '丙' } });
  assert.deepEqual((await page.options('c-profiles')).map(({ text }) => text), ['丙']);
});

pageTest('a target that is not in the list leaves 自动 chosen', async (page) => {
  await page.deliver({ t: 'apply', fields: { targets: ['自动', '10.20.0.0/16'], target: '10.9.0.0/16' } });
  assert.equal(await page.value('c-target'), '自动');
});

pageTest('state messages do not overwrite what is being typed', async (page) => {
  await page.deliver({ t: 'apply', fields: { secret: 'OLD', targets: ['自动', '10.20.0.0/16'], target: '自动' } });
  await page.fill('c-secret', 'NEW');
  await page.fill('c-testip', '10.1.');
  await page.fill('c-pname', '半个');
  await page.view.selectOption('#c-target', '10.20.0.0/16');
  await page.view.focus('#c-secret');
  await page.deliver(stateMessage());
  await page.deliver({ t: 'log', ts: '01:02:03', msg: '日志', cls: '' });
  await page.view.keyboard.type('-2');
  assert.equal(await page.value('c-secret'), 'NEW-2');
  assert.equal(await page.value('c-testip'), '10.1.');
  assert.equal(await page.value('c-pname'), '半个');
  assert.equal(await page.value('c-target'), '10.20.0.0/16');
});

const kMarkup = '<img src=x onerror="window.hacked=1"><script>window.hacked=1</script>&amp;"\'';
pageTest('markup in any value is shown as text', async (page) => {
  await page.deliver(stateMessage({
    logo: kMarkup, sub: kMarkup, state: kMarkup, detail: kMarkup, foot: kMarkup,
    cards: [{ k: kMarkup, v: kMarkup, cls: 'ok' }] }, { statusline: kMarkup }));
  await page.deliver({ t: 'log', ts: kMarkup, msg: kMarkup, cls: '' });
  await page.deliver({ t: 'apply', fields: {
    secret: kMarkup, targets: ['自动', kMarkup], target: kMarkup, profiles: [kMarkup], profileSel: kMarkup } });
  for (const id of ['s-logo', 's-sub', 's-state', 's-detail', 's-foot', 'c-statusline']) {
    assert.equal(await page.text(id), kMarkup, id);
  }
  assert.deepEqual((await page.cards()).map(({ k, v }) => [k, v]), [[kMarkup, kMarkup]]);
  assert.deepEqual(await page.log(), [[kMarkup, kMarkup, '']]);
  assert.deepEqual((await page.options('c-target'))[1], { value: kMarkup, text: kMarkup });
  assert.deepEqual(await page.options('c-profiles'), [{ value: kMarkup, text: kMarkup }]);
  assert.equal(await page.value('c-target'), kMarkup);
  assert.equal(await page.view.locator('img, body script:not(:last-of-type)').count(), 0);
  assert.equal(await page.view.evaluate(() => window.hacked), undefined);
});

pageTest('a class that is markup cannot leave its attribute', async (page) => {
  await page.deliver(stateMessage({ cards: [{ k: '设备', v: '甲', cls: 'ok" onclick="window.hacked=1' }] }));
  assert.deepEqual(await page.view.locator('#s-cards .v').evaluate((value) => value.getAttributeNames()), ['class']);
});

pageTest('a card without members is an empty card', async (page) => {
  await page.deliver(stateMessage({ cards: [{}] }));
  assert.deepEqual((await page.cards()).map(({ k, v, cls }) => [k, v, cls.trim()]), [['', '', 'v']]);
});

pageTest('unknown and malformed messages change nothing, and the next one is taken', async (page) => {
  const shown = () => page.view.evaluate(() => document.body.innerText);
  const atFirst = await shown();
  for (const data of [{}, { t: 'other' }, { t: 'State', side: kSide }, { t: null }, null, 5, true, [], '"text"', '[]', 'null', '5',
    '', '{', '{"t":"state",}', "{'t':'state'}", '{"t":"log"', 'text', '\u0000', '['.repeat(100_000)]) await page.deliver(data);
  assert.equal(await shown(), atFirst);
  await page.deliver(stateMessage());
  assert.equal(await page.text('s-state'), '在线');
});

const kMisshapen = [
  { t: 'state', side: 'text' }, { t: 'state', side: { cards: 'text' } }, { t: 'state', side: { cards: [null, 5, 'x', []] } },
  { t: 'state', role: 'other', side: {} }, { t: 'init', role: 'other' }, { t: 'init' }, { t: 'apply', fields: 'text' },
  { t: 'apply' }, { t: 'apply', fields: { targets: 'text', profiles: {} } }, { t: 'apply', fields: { targets: [null, 5] } },
  { t: 'apply', role: 'edge', fields: { nics: 5, shared: null } }, { t: 'logs' }, { t: 'logs', lines: 'text' },
  { t: 'logs', lines: [null, 5, [], ['01:02:03']] }, { t: 'log', msg: 5, cls: 6 },
];
for (const misshapen of kMisshapen) {
  pageTest(`survives ${JSON.stringify(misshapen)}`, async (page) => {
    await page.deliver(misshapen);
    await page.deliver(JSON.stringify(misshapen));
    assert.ok(await page.isVisible('pane-client'));
    await page.deliver(stateMessage());
    await page.deliver({ t: 'log', ts: '01:02:03', msg: '还在', cls: 'ok' });
    assert.ok(await page.isVisible('pane-client'));
    assert.equal(await page.text('s-state'), '在线');
    assert.equal((await page.cards()).length, 5);
    assert.deepEqual((await page.log()).at(-1), ['01:02:03', '还在', 'ok']);
    await page.takePosted();
    await page.click('c-connect');
    assert.equal(JSON.parse((await page.takePosted())[0]).action, 'connect');
  });
}

pageTest('a state told again leaves a selection alone, so that an address can be copied', async (page) => {
  await page.deliver(stateMessage());
  await page.view.evaluate(() => getSelection().selectAllChildren(document.querySelectorAll('#s-cards .v')[1]));
  await page.deliver(stateMessage());
  assert.equal(await page.view.evaluate(() => getSelection().toString()), '10.88.0.2');
});

pageTest('what a narrow list cannot show in full is its hint', async (page) => {
  const name = '东区水厂二号泵站变频控制柜'.repeat(5).slice(0, 60);
  await page.deliver({ t: 'apply', fields: { profiles: [name, '西区'], profileSel: name } });
  assert.equal(await page.view.getAttribute('#c-profiles', 'title'), name);
  await page.view.selectOption('#c-profiles', '西区');
  assert.equal(await page.view.getAttribute('#c-profiles', 'title'), '西区');
  await page.deliver({ t: 'apply', fields: { profiles: [], profileSel: '' } });
  assert.equal(await page.view.getAttribute('#c-profiles', 'title'), '');
});

const kColours = [
  ['body', 'background-color', '#05080a'], ['body', 'color', '#e9f6f2'], ['#s-cards .k', 'color', '#8ba8a6'],
  ['#s-cards .v.ok', 'color', '#5effc8'], ['#s-cards .v.off', 'color', '#5f7a79'],
  ['#c-log .ok', 'color', '#5effc8'], ['#c-log .er', 'color', '#ff5c72'], ['#c-log .wn', 'color', '#f5c451'],
  ['#c-log .ts', 'color', '#5f7a79'], ['#s-status .dot', 'background-color', '#2bd47d'],
];
const rgb = (hex) => `rgb(${[1, 3, 5].map((at) => parseInt(hex.slice(at, at + 2), 16)).join(', ')})`;
pageTest('colours and fonts carry the meaning', async (page) => {
  await page.deliver(stateMessage());
  for (const cls of ['ok', 'er', 'wn']) await page.deliver({ t: 'log', ts: '01:02:03', msg: cls, cls });
  for (const [selector, property, hex] of kColours) {
    assert.equal(await page.style(selector, property), rgb(hex), selector);
  }
  const bar = await page.style('#s-status', 'background-image', '::before');
  assert.ok(bar.includes(rgb('#5effc8')) && bar.includes(rgb('#36e0d0')), bar);
  await page.deliver(stateMessage({ on: false, err: true }));
  assert.equal(await page.style('#s-status .dot', 'background-color'), rgb('#ff5c72'));
  assert.equal(await page.style('#s-status', 'background-color', '::before'), rgb('#ff5c72'));
  assert.match(await page.style('body', 'font-family'), /^"Microsoft YaHei UI"/);
  for (const selector of ['#c-log', '#full-log', '#c-statusline']) {
    assert.match(await page.style(selector, 'font-family'), /monospace$/, selector);
  }
});
