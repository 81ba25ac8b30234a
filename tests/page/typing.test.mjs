// Fields that the engineer changed keep their text while outdated apply messages arrive.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';

useBrowser();

const kStored = {
  secret: 'OLD-KEY', testip: '10.20.0.9', profileName: '东区', targets: ['自动', '10.20.0.0/16', '10.30.0.0/16'],
  target: '自动', discovery: false, profiles: ['东区', '西区'], profileSel: '东区',
};
const apply = (page, fields = {}) => page.deliver({ t: 'apply', role: 'client', fields: { ...kStored, ...fields } });

const kTextFields = [['c-secret', 'secret'], ['c-testip', 'testip'], ['c-pname', 'profileName']];
const texts = async (page) => Promise.all(kTextFields.map(([id]) => page.value(id)));

async function typeEverywhere(page, typed) {
  for (const [at, [id]] of kTextFields.entries()) {
    await page.view.click(`#${id}`, { clickCount: 3 });
    await page.view.keyboard.type(typed[at]);
  }
}

const kTyped = ['NEW-KEY', '10.30.0.5', '新站'];

pageTest('what is typed in the first moments of a start outlasts the first apply', async (page) => {
  await typeEverywhere(page, kTyped);
  await apply(page);
  assert.deepEqual(await texts(page), kTyped);
});

pageTest('what is typed while retries bring their applies is what the next action carries', async (page) => {
  await apply(page);
  await typeEverywhere(page, ['NEW', '10.30.', '新']);
  for (let i = 0; i < 3; i += 1) {
    await page.deliver({ t: 'state', role: 'client', side: {}, statusline: '正在自动重试连接授权...' });
    await apply(page);
    await page.view.keyboard.type('站');
  }
  await page.takePosted();
  await page.click('c-connect');
  const { f } = JSON.parse((await page.takePosted())[0]);
  assert.deepEqual([f.secret, f.testip, f.profileName], ['NEW', '10.30.', '新站站站']);
});

pageTest('an empty field that was emptied by hand is not filled again', async (page) => {
  await apply(page);
  for (const [id] of kTextFields) {
    await page.view.click(`#${id}`, { clickCount: 3 });
    await page.view.keyboard.press('Delete');
  }
  await apply(page);
  assert.deepEqual(await texts(page), ['', '', '']);
});

pageTest('an action that the window drops does not give the typed text up', async (page) => {
  await apply(page);
  await typeEverywhere(page, kTyped);
  await page.click('c-connect');
  await apply(page);
  assert.deepEqual(await texts(page), kTyped);
});

pageTest('fields that nobody has typed in follow every apply', async (page) => {
  await apply(page);
  await page.fill('c-secret', 'NEW-KEY');
  await apply(page, { testip: '10.30.0.1', profileName: '西区' });
  assert.deepEqual(await texts(page), ['NEW-KEY', '10.30.0.1', '西区']);
});

pageTest('an apply with the typed text, but for blanks around it, lets the field follow again', async (page) => {
  await page.fill('c-secret', ' NEW-KEY ');
  await apply(page);
  assert.equal(await page.value('c-secret'), ' NEW-KEY ');
  await apply(page, { secret: 'NEW-KEY' });
  assert.equal((await page.value('c-secret')).trim(), 'NEW-KEY');
  await apply(page, { secret: 'LATER-KEY' });
  assert.equal(await page.value('c-secret'), 'LATER-KEY');
});

pageTest('an apply with the same text does not disturb the typing', async (page) => {
  await page.view.click('#c-pname');
  await page.view.keyboard.type('二号 ');
  await apply(page, { profileName: '二号' });
  await apply(page, { profileName: '二号' });
  await page.view.keyboard.type('泵站');
  await page.view.keyboard.press('Home');
  await page.view.keyboard.type('第');
  await apply(page, { profileName: '二号' });
  await page.view.keyboard.type('十');
  assert.equal(await page.value('c-pname'), '第十二号 泵站');
});

pageTest('a profile that is loaded after typing is shown', async (page) => {
  await apply(page);
  await typeEverywhere(page, kTyped);
  await page.view.selectOption('#c-profiles', '西区');
  await apply(page, { secret: 'WEST-KEY', testip: '10.30.0.5', profileName: '西区', profileSel: '西区' });
  assert.deepEqual(await texts(page), ['WEST-KEY', '10.30.0.5', '西区']);
});

pageTest('what is typed after a profile was chosen outlasts its apply', async (page) => {
  await apply(page);
  await page.view.selectOption('#c-profiles', '西区');
  await page.fill('c-testip', '10.30.0.7');
  await apply(page, { secret: 'WEST-KEY', profileName: '西区', profileSel: '西区' });
  assert.deepEqual(await texts(page), ['WEST-KEY', '10.30.0.7', '西区']);
});

pageTest('the window names a site whose name went out empty', async (page) => {
  await apply(page);
  await page.fill('c-pname', ' ');
  await apply(page);
  assert.equal(await page.value('c-pname'), ' ');
  await page.click('c-fetch');
  await apply(page, { profileName: '水厂' });
  assert.equal(await page.value('c-pname'), '水厂');
});

// ---- the discovery switch

const discovery = async (page) => {
  await page.takePosted();
  await page.click('c-connect');
  return [await page.text('c-discovery'), JSON.parse((await page.takePosted())[0]).f.discovery];
};
const kOn = ['PLC发现模式：开', true];
const kOff = ['PLC发现模式：关', false];

pageTest('an apply that was under way does not turn the discovery switch back', async (page) => {
  await apply(page);
  await page.click('c-discovery');
  await apply(page, { discovery: false });
  await apply(page, { discovery: false });
  assert.deepEqual(await discovery(page), kOn);
  await apply(page, { discovery: true });
  assert.deepEqual(await discovery(page), kOn);
  await apply(page, { discovery: false });
  assert.deepEqual(await discovery(page), kOff);
});

// ---- the target network

pageTest('the chosen target is kept while it is among the targets and until it has been sent', async (page) => {
  await apply(page);
  await page.view.selectOption('#c-target', '10.30.0.0/16');
  await apply(page, { target: '10.20.0.0/16' });
  assert.equal(await page.value('c-target'), '10.30.0.0/16');
  assert.equal(await page.view.getAttribute('#c-target', 'title'), '10.30.0.0/16');
  await apply(page, { targets: ['自动', '10.40.0.0/16', '10.30.0.0/16'] });
  assert.equal(await page.value('c-target'), '10.30.0.0/16');
  await page.takePosted();
  await page.click('c-fetch');
  assert.equal(JSON.parse((await page.takePosted())[0]).f.target, '10.30.0.0/16');
  await apply(page, { target: '10.20.0.0/16' });
  assert.equal(await page.value('c-target'), '10.20.0.0/16');
});

pageTest('a chosen target that is no longer there gives way for good', async (page) => {
  await apply(page);
  await page.view.selectOption('#c-target', '10.30.0.0/16');
  await apply(page, { targets: ['自动', '10.50.0.0/16'], target: '10.50.0.0/16' });
  assert.equal(await page.value('c-target'), '10.50.0.0/16');
  await apply(page, { targets: ['自动', '10.50.0.0/16', '10.30.0.0/16'], target: '自动' });
  assert.equal(await page.value('c-target'), '自动');
});
