// Choosing a site: with arrows, in an open list, among hundreds; and actions right afterwards.
import assert from 'node:assert/strict';

import { clockTest, useBrowser } from './browser_page.mjs';
import { kLargeApply } from './page_costs.mjs';

useBrowser({ isTabShared: false });

const kRestMs = 400;
const kLoadMs = 1000;

const kSites = ['东区', '西区', '南区', '北区', '泵站', '水厂'];
const fields = (site, profiles = kSites) => ({
  secret: `KEY-${site}`, testip: '10.20.0.9', profileName: site, targets: ['自动'], target: '自动', discovery: false,
  profiles, profileSel: site,
});
const apply = (page, site = '东区', profiles = kSites) =>
  page.deliver({ t: 'apply', role: 'client', fields: fields(site, profiles) });
const posted = async (page) => (await page.takePosted()).map((text) => JSON.parse(text));
const acts = async (page) => (await posted(page)).map(({ action, f }) => `${action} ${f.profileSel} ${f.secret}`);
async function open(page, site) {
  await apply(page, site);
  await page.takePosted();
  await page.view.focus('#c-profiles');
}

clockTest('arrows pass over sites and load the one they rest on', async (page, pass) => {
  await open(page);
  for (let i = 0; i < 5; i += 1) {
    await page.view.keyboard.press('ArrowDown');
    await pass(kRestMs - 1);
  }
  assert.deepEqual(await acts(page), []);
  await pass(1);
  assert.deepEqual(await acts(page), ['loadProfile 水厂 KEY-东区']);
  await pass(10 * kRestMs);
  assert.deepEqual(await acts(page), []);
});

clockTest('a site that is chosen in one go is loaded at once', async (page) => {
  await open(page);
  await page.view.selectOption('#c-profiles', '泵站');
  assert.deepEqual(await acts(page), ['loadProfile 泵站 KEY-东区']);
});

clockTest('who leaves the list has chosen', async (page) => {
  await open(page);
  await page.view.keyboard.press('ArrowDown');
  await page.view.keyboard.press('Tab');
  assert.deepEqual(await acts(page), ['loadProfile 西区 KEY-东区']);
});

clockTest('an apply on the way does not take the choice back', async (page, pass) => {
  await open(page);
  await page.view.keyboard.press('ArrowDown');
  await apply(page, '东区', [...kSites, '新站']);
  assert.equal(await page.value('c-profiles'), '西区');
  await pass(kRestMs);
  assert.deepEqual(await acts(page), ['loadProfile 西区 KEY-东区']);
});

clockTest('Enter goes to the site: it is loaded, and connected with its own key', async (page) => {
  await open(page);
  await page.view.keyboard.press('ArrowDown');
  await page.view.keyboard.press('ArrowDown');
  await page.view.keyboard.press('Enter');
  assert.deepEqual(await acts(page), ['loadProfile 南区 KEY-东区']);
  await apply(page, '南区');
  assert.deepEqual(await acts(page), ['connect 南区 KEY-南区']);
});

clockTest('Enter on the site in use connects to it', async (page) => {
  await open(page);
  await page.view.keyboard.press('Enter');
  assert.deepEqual(await acts(page), ['connect 东区 KEY-东区']);
});

clockTest('in an open list Enter only chooses', async (page, pass) => {
  await open(page);
  await page.view.keyboard.press('Alt+ArrowDown');
  await page.view.keyboard.press('ArrowDown');
  await page.view.keyboard.press('Enter');
  await pass(kRestMs);
  assert.deepEqual(await acts(page), ['loadProfile 西区 KEY-东区']);
});

clockTest('what is clicked behind a choice is done to the chosen site, in its order', async (page) => {
  await open(page);
  await page.view.selectOption('#c-profiles', '西区');
  await page.click('c-connect');
  await page.click('c-test');
  await apply(page, '东区');  // was on its way already
  assert.deepEqual(await acts(page), ['loadProfile 西区 KEY-东区']);
  await apply(page, '西区');
  assert.deepEqual(await acts(page), ['connect 西区 KEY-西区', 'test 西区 KEY-西区']);
  await page.click('c-stop');
  assert.deepEqual(await acts(page), ['stop 西区 KEY-西区']);
});

clockTest('a site that cannot be loaded holds nothing up for long', async (page, pass) => {
  await open(page);
  await page.view.selectOption('#c-profiles', '西区');
  await page.click('c-stop');
  await pass(kLoadMs - 1);
  assert.deepEqual(await acts(page), ['loadProfile 西区 KEY-东区']);
  await pass(1);
  assert.deepEqual(await acts(page), ['stop 西区 KEY-东区']);
});

clockTest('without sites the list says so, and has no hint of the last one', async (page) => {
  await open(page);
  assert.equal(await page.view.getAttribute('#c-profiles', 'title'), '东区');
  await apply(page, '', []);
  assert.deepEqual(await page.options('c-profiles'), [{ value: '', text: '（无）' }]);
  assert.equal(await page.view.getAttribute('#c-profiles', 'title'), '');
});

// ---- many sites

const kMany = Array.from({ length: 200 }, (_, i) => `${['城东水厂', '污水处理厂', 'Pump Station'][i % 3]} ${i}`);
const shown = (page) => page.view.locator('#c-profiles option').evaluateAll((all) =>
  all.filter((option) => getComputedStyle(option).display !== 'none').map(({ text }) => text));

clockTest('a dozen sites need no filter, more have one', async (page) => {
  await apply(page, '城东水厂 0', kMany.slice(0, 12));
  assert.equal(await page.isVisible('c-filter'), false);
  assert.equal(await page.text('c-found'), '');
  await apply(page, '城东水厂 0', kMany.slice(0, 13));
  assert.ok(await page.isVisible('c-filter'));
});

clockTest('the filter narrows the list down, whatever the case, and gives all of it back', async (page) => {
  await apply(page, '城东水厂 0', kMany);
  await page.fill('c-filter', ' pump station 19');
  assert.deepEqual(await shown(page), ['Pump Station 191', 'Pump Station 194', 'Pump Station 197']);
  assert.equal(await page.text('c-found'), '3 / 200');
  assert.equal((await page.options('c-profiles')).length, 200);
  assert.equal(await page.value('c-profiles'), '城东水厂 0');
  await apply(page, '城东水厂 0', kMany);
  assert.equal((await shown(page)).length, 3);
  await page.view.focus('#c-filter');
  await page.view.keyboard.press('Escape');
  assert.equal((await shown(page)).length, 200);
});

clockTest('Enter in the filter takes the first site that is left', async (page) => {
  await apply(page, '城东水厂 0', kMany);
  await page.takePosted();
  await page.view.focus('#c-filter');
  await page.view.keyboard.type('处理厂 10');
  await page.view.keyboard.press('Enter');
  assert.deepEqual(await acts(page), ['loadProfile 污水处理厂 10 KEY-城东水厂 0']);
  assert.equal(await page.view.evaluate(() => document.activeElement.id), 'c-connect');
});

clockTest('arrows in a narrowed list pass over what is left', async (page, pass) => {
  await apply(page, '城东水厂 0', kMany);
  await page.takePosted();
  await page.view.focus('#c-filter');
  await page.view.keyboard.type('处理厂 1');
  await page.view.keyboard.press('ArrowDown');
  await page.view.keyboard.press('ArrowDown');
  await page.view.keyboard.press('ArrowDown');
  await pass(kRestMs);
  assert.deepEqual(await acts(page), ['loadProfile 污水处理厂 10 KEY-城东水厂 0']);
});

clockTest('a filter that fits nothing takes nothing', async (page) => {
  await apply(page, '城东水厂 0', kMany);
  await page.takePosted();
  await page.fill('c-filter', '<b>');
  await page.view.keyboard.press('Enter');
  assert.equal(await page.text('c-found'), '0 / 200');
  assert.deepEqual(await acts(page), []);
});

clockTest('an apply that changes nothing touches nothing, however many sites there are', async (page) => {
  await page.deliver(kLargeApply);
  const changes = await page.view.evaluate((message) => {
    const observer = new MutationObserver(() => {});
    observer.observe(document.body, { subtree: true, childList: true, attributes: true, characterData: true });
    window.deliver(message);
    return observer.takeRecords().length;
  }, kLargeApply);
  assert.equal(changes, 0);
});
