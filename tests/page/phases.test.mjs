// How the page shows the connection's state. phase.test.mjs tests how it is derived.
import assert from 'node:assert/strict';

import { clockTest, pageTest, useBrowser } from './browser_page.mjs';
import { kRefused, kResting, kRetryArmed, kStates, kUnreachable, log, state } from './page_states.mjs';

useBrowser({ isTabShared: false });

const kConnecting = '正在请求连接授权...';
const kRetrying = '正在自动重试连接授权...';
const kJobButtons = ['c-connect', 'c-stop', 'c-test', 'c-desktop', 'c-fetch'];

const body = (page, name) => page.view.getAttribute('body', `data-${name}`);
const has = async (page, name) => (await body(page, name)) !== null;
const tone = (page) => page.view.locator('#c-statusline').evaluate((line) => {
  const bar = line.closest('.statusbar');
  return ['ok', 'wn', 'er'].filter((name) => bar.classList.contains(name)).join();
});

/** By button: 'busy', 'waiting' (for the eye and a screen reader alike), or neither. */
async function marks(page) {
  const told = await page.view.evaluate((ids) => ids.map((id) => {
    const button = document.getElementById(id);
    return ['aria-busy', 'data-waiting', 'aria-disabled', 'disabled'].map((name) => button.getAttribute(name));
  }), kJobButtons);
  const kMarks = { ',,,': '', 'true,,,': 'busy', ',,true,': 'waiting' };
  return Object.fromEntries(told.map((all, at) => [kJobButtons[at], kMarks[all.join()] ?? all.join()]));
}

const kNoMarks = Object.fromEntries(kJobButtons.map((id) => [id, '']));

/** The phase, whether a job runs, the tag, whether it rests, the offered button. */
const kWanted = {
  first: ['idle', false, '', true, 'connect'], resolved: ['idle', false, '', true, 'connect'],
  working: ['idle', true, '处理中', false, 'connect'], online: ['online', false, '', false, 'stop'],
  testing: ['online', true, '处理中', false, 'stop'], reconnecting: ['reconnecting', false, '自动重连', false, 'stop'],
  retrying: ['retrying', false, '自动重试', false, 'stop'], failed: ['failed', false, '未成功', false, 'connect'],
  error: ['error', false, '出错', false, 'connect'],
};
const shown = async (page) => [await body(page, 'phase'), await has(page, 'job'), await page.text('s-tag'),
  await has(page, 'resting'), await body(page, 'offer')];

pageTest('before the first message the page rests', async (page) => {
  assert.deepEqual(await shown(page), ['idle', false, '', true, 'connect']);
  assert.deepEqual(await marks(page), kNoMarks);
});

for (const [name, wanted] of Object.entries(kWanted)) {
  pageTest(`the state ${name} is shown as ${wanted[0]}${wanted[1] ? ' with a job' : ''}`, async (page) => {
    await page.deliverAll(kStates[name]);
    assert.deepEqual(await shown(page), wanted);
  });
}

// ---- jobs

pageTest('a running job keeps its button busy and the others waiting until another status line comes', async (page) => {
  await page.deliver(state('off', '正在测试通讯延迟...'));
  const wanted = Object.fromEntries(kJobButtons.map((id) => [id, id === 'c-test' ? 'busy' : 'waiting']));
  assert.deepEqual(await marks(page), wanted);
  for (const button of ['c-discovery', 'c-save']) {
    for (const name of ['data-waiting', 'aria-disabled']) {
      assert.equal(await page.view.getAttribute(`#${button}`, name), null, button);
    }
  }
  await page.deliver({ t: 'state', side: {} });  // contains no status line
  assert.deepEqual(await marks(page), wanted);
  await page.deliver(state('off', '通讯延迟：未填写测试 IP。'));
  assert.deepEqual(await marks(page), kNoMarks);
  assert.equal(await has(page, 'job'), false);
});

pageTest('while a job runs every click still goes to the window, which decides', async (page) => {
  await page.deliver(state('off', '正在测试通讯延迟...'));
  await page.takePosted();
  // Playwright waits for a button marked as disabled; a person does not have to.
  for (const id of [...kJobButtons, 'c-save', 'c-discovery']) await page.view.click(`#${id}`, { force: true });
  assert.deepEqual((await page.takePosted()).map((text) => JSON.parse(text).action),
    ['connect', 'stop', 'test', 'desktop', 'secondary', 'saveProfile', 'discovery']);
});

pageTest('the tries of retrying leave the button that ends it alone', async (page) => {
  await page.deliverAll(kStates.retrying);
  for (let i = 0; i < 3; i += 1) {
    assert.deepEqual(await marks(page), kNoMarks);
    await page.deliverAll([state('off', kRetrying), log('02:14:36', kRetrying, 'wn')]);
    assert.deepEqual(await marks(page),
      { 'c-connect': 'busy', 'c-stop': '', 'c-test': 'waiting', 'c-desktop': 'waiting', 'c-fetch': 'waiting' });
    await page.deliverAll([state('off', kRefused), log('02:14:36', kRefused)]);
  }
});

// ---- the status line

pageTest('the status line has the colour of the log line with its text', async (page) => {
  for (const [text, cls] of [['档案已保存。', 'ok'], [kUnreachable, 'er'], ['等待密钥', 'wn'], ['软件隧道运行中。', '']]) {
    await page.deliver(state('off', text));
    assert.equal(await tone(page), '', text);
    await page.deliver(log('02:00:00', '别的一行', 'er'));
    assert.equal(await tone(page), '', text);
    await page.deliver(log('02:00:00', text, cls));
    assert.equal(await tone(page), cls, text);
  }
});

pageTest('a result of connecting that failed is red all over', async (page) => {
  await page.deliverAll([state('off', kConnecting), log('02:00:00', kConnecting), state('off', kRefused)]);
  assert.deepEqual([await body(page, 'phase'), await tone(page)], ['failed', 'er']);
});

pageTest('any other failure is red in the status line only', async (page) => {
  const failure = '通讯延迟测试失败：测试 IP 无效。';
  await page.deliverAll([state('off', '正在测试通讯延迟...'), state('off', failure), log('02:00:00', failure, 'er')]);
  assert.deepEqual([await body(page, 'phase'), await tone(page), await has(page, 'resting')], ['idle', 'er', false]);
});

pageTest('the log of a page before this one tells what failed', async (page) => {
  await page.deliver(state('off', kUnreachable));
  assert.equal(await body(page, 'phase'), 'idle');
  await page.deliver({ t: 'logs', lines: [['02:00:00', kConnecting, ''], ['02:00:01', kUnreachable, 'er']] });
  assert.deepEqual([await body(page, 'phase'), await tone(page)], ['failed', 'er']);
});

pageTest('what else the status line\'s block is called stays', async (page) => {
  await page.view.evaluate(() => document.querySelector('#c-statusline').closest('.statusbar').classList.add('kept'));
  await page.deliverAll(kStates.failed);
  assert.match(await page.view.locator('.statusbar:has(#c-statusline)').getAttribute('class'), /\bstatusbar kept er$/);
});

// ---- retrying

const kRefusal = [state('off', kRefused), log('02:00:00', kRefused)];
const kArmed = [...kRefusal, log('02:00:00', kRetryArmed, 'wn')];
const kTry = [state('off', kRetrying), log('02:00:05', kRetrying, 'wn'), ...kRefusal];

clockTest('retrying lasts as long as tries are seen', async (page, pass) => {
  await page.deliverAll(kArmed);
  for (let i = 0; i < 6; i += 1) {
    await pass(5_000);
    assert.equal(await body(page, 'phase'), 'retrying');
    await page.deliver(state('off', kRetrying));
    assert.ok(await has(page, 'job'));
    await pass(20_000);  // a slow service
    assert.equal(await body(page, 'phase'), 'retrying');
    await page.deliverAll(kRefusal);
  }
});

clockTest('retrying is over by itself when no further try is seen', async (page, pass) => {
  await page.deliverAll([...kArmed, ...kTry]);
  await pass(11_000);
  assert.deepEqual([await body(page, 'phase'), await body(page, 'offer')], ['retrying', 'stop']);
  await pass(2_000);
  assert.deepEqual([await body(page, 'phase'), await body(page, 'offer')], ['failed', 'connect']);
});

clockTest('a clock that is set while retrying changes nothing', async (page, pass) => {
  await page.deliverAll(kArmed);
  await page.view.clock.setSystemTime(Date.now() + 3_600_000);
  await page.deliver(log('03:00:00', '别的一行'));
  assert.equal(await body(page, 'phase'), 'retrying');
  await page.view.clock.setSystemTime(Date.now() - 3_600_000);
  await pass(13_000);
  assert.equal(await body(page, 'phase'), 'failed');
});

pageTest('the words of the state stay the window\'s own', async (page) => {
  for (const [name, messages] of Object.entries(kStates)) {
    await page.view.reload();
    await page.deliverAll(messages);
    const { side } = messages.findLast(({ t }) => t === 'state');
    assert.equal(await page.text('s-state'), side.state, name);
    assert.equal(await page.text('s-detail'), side.detail ?? kResting, name);
  }
});
