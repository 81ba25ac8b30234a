// The browser may die under the page: what this page reports for its successor, and what the successor receives.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';
import { kRefused, kRetryArmed, state } from './page_states.mjs';

useBrowser();

const kFields = {
  secret: 'OLD-KEY', testip: '10.20.0.9', profileName: '东区', targets: ['自动', '10.20.0.0/16', '10.30.0.0/16'],
  target: '自动', discovery: false, profiles: ['东区', '西区'], profileSel: '东区',
};
const apply = (page, fields = {}) => page.deliver({ t: 'apply', role: 'client', fields: { ...kFields, ...fields } });

/** The fields as last reported, once they equal `wanted`; nothing is reported twice in a row. */
async function tells(page, wanted) {
  const end = Date.now() + 3_000;
  const all = [];
  while (JSON.stringify(all.at(-1)) !== JSON.stringify(wanted)) {
    assert.ok(Date.now() < end, `told: ${JSON.stringify(all)}`);
    all.push(...await page.takeTyped());
    await page.view.waitForTimeout(20);
  }
  all.forEach((fields, at) => assert.notDeepEqual(fields, all[at - 1]));
}

pageTest('what is typed is told soon, without an action', async (page) => {
  await apply(page);
  await page.fill('c-secret', 'NEW');
  await tells(page, { secret: 'NEW' });
  await page.fill('c-testip', '10.30.0.5');
  await page.fill('c-pname', '新站 "1"');
  await page.view.selectOption('#c-target', '10.30.0.0/16');
  await tells(page, { secret: 'NEW', testip: '10.30.0.5', profileName: '新站 "1"', target: '10.30.0.0/16' });
  assert.deepEqual((await page.takePosted()).map((text) => JSON.parse(text).action), ['ready']);
});

pageTest('what is typed without a pause is told meanwhile', async (page) => {
  await apply(page);
  await page.view.evaluate(() => {
    const field = document.getElementById('c-secret');
    window.typing = setInterval(() => {
      field.value += 'x';
      field.dispatchEvent(new Event('input'));
    }, 20);
  });
  await page.view.waitForFunction(() => window.posted.some((text) => text.startsWith('{"action":"typed"')));
  await page.view.evaluate(() => clearInterval(window.typing));
});

pageTest('fields that agree with the window again are told no longer', async (page) => {
  await apply(page);
  await page.fill('c-secret', 'NEW');
  await tells(page, { secret: 'NEW' });
  await apply(page, { secret: 'NEW' });
  await tells(page, {});
  await apply(page, { secret: 'LATER' });
  await page.fill('c-testip', '10.30.0.5');
  await tells(page, { testip: '10.30.0.5' });
});

pageTest('a chosen profile gives up what was typed', async (page) => {
  await apply(page);
  await page.fill('c-secret', 'NEW');
  await tells(page, { secret: 'NEW' });
  await page.view.selectOption('#c-profiles', '西区');
  await tells(page, {});
});

pageTest('what was typed before is there again, as typed', async (page) => {
  await apply(page);
  await page.deliver({ t: 'form', fields: { secret: 'half a k', profileName: '', target: '10.30.0.0/16', discovery: true } });
  const shown = async () => [await page.value('c-secret'), await page.value('c-testip'), await page.value('c-pname'),
    await page.value('c-target'), await page.text('c-discovery')];
  assert.deepEqual(await shown(), ['half a k', '10.20.0.9', '', '10.30.0.0/16', 'PLC发现模式：开']);
  await apply(page);
  assert.deepEqual(await shown(), ['half a k', '10.20.0.9', '', '10.30.0.0/16', 'PLC发现模式：开']);
  await tells(page, { secret: 'half a k', target: '10.30.0.0/16', profileName: '', discovery: true });
});

pageTest('a target that was chosen and is no longer offered is forgotten', async (page) => {
  await apply(page);
  await page.deliver({ t: 'form', fields: { target: '10.99.0.0/16' } });
  assert.equal(await page.value('c-target'), '自动');
  await apply(page, { target: '10.20.0.0/16' });
  assert.equal(await page.value('c-target'), '10.20.0.0/16');
});

pageTest('a form message without fields changes nothing', async (page) => {
  await apply(page);
  await page.deliver({ t: 'form' });
  await page.deliver({ t: 'form', fields: {} });
  assert.equal(await page.value('c-secret'), 'OLD-KEY');
});

const tone = (page) => page.view.locator('.statusbar').evaluate(({ className }) => className.trim());
const phase = (page) => page.view.getAttribute('body', 'data-phase');

/** The local time of day `secondsAgo`, in the format of log lines. */
function timeOfDay(secondsAgo) {
  const then = new Date(Date.now() - secondsAgo * 1000);
  return [then.getHours(), then.getMinutes(), then.getSeconds()].map((part) => String(part).padStart(2, '0')).join(':');
}

pageTest('the status line gets its colour from the log of the page before', async (page) => {
  await page.deliver(state('off', '通讯延迟 23 ms'));
  assert.equal(await tone(page), 'statusbar');
  await page.deliver({ t: 'logs', lines: [['10:00:00', '通讯延迟 23 ms', 'ok'], ['10:00:01', '别的', 'er'], ['10:00:02', '无色', '']] });
  assert.equal(await tone(page), 'statusbar ok');
});

for (const [name, secondsAgo, wanted] of [['is still going on', 3, 'retrying'], ['is long over', 60, 'failed']]) {
  pageTest(`a retry that ${name} is shown as such`, async (page) => {
    await page.deliver(state('off', kRefused));
    await page.deliver({ t: 'logs', lines: [[timeOfDay(secondsAgo), kRetryArmed, 'wn']] });
    assert.equal(await phase(page), wanted);
  });
}

pageTest('a retry that has led to a tunnel is over', async (page) => {
  await page.deliver(state('up', '连接授权成功'));
  await page.deliver({ t: 'logs', lines: [[timeOfDay(3), kRetryArmed, 'wn']] });
  assert.equal(await phase(page), 'online');
});
