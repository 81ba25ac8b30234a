// How the page tells from the window's texts what the connection is doing, and whether a job runs.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';
import { kRefused, kResting, kRetryArmed, kStates, kUnreachable, log, state } from './page_states.mjs';

useBrowser();

const phase = (page) => page.view.getAttribute('body', 'data-phase');
const hasJob = async (page) => (await page.view.getAttribute('body', 'data-job')) !== null;
const tone = async (page) => (await page.view.locator('#pane-client .statusbar').evaluate(({ className }) => className)).replace(/^statusbar\s?/, '');

const kWanted = {
  first: ['idle', false, ''], resolved: ['idle', false, ''], working: ['idle', true, '处理中'], online: ['online', false, ''],
  testing: ['online', true, '处理中'], reconnecting: ['reconnecting', false, '自动重连'], retrying: ['retrying', false, '自动重试'],
  failed: ['failed', false, '未成功'], error: ['error', false, '出错'],
};
for (const [name, [wanted, isWorking, tag]] of Object.entries(kWanted)) {
  pageTest(`the state ${name} is shown as ${wanted}${isWorking ? ' with a job' : ''}`, async (page) => {
    await page.deliverAll(kStates[name]);
    assert.equal(await phase(page), wanted);
    assert.equal(await hasJob(page), isWorking);
    assert.equal(await page.text('s-tag'), tag);
  });
}

const kJobs = [
  ['c-connect', '正在请求连接授权...'], ['c-connect', '正在自动重试连接授权...'], ['c-stop', '正在停止软件隧道...'],
  ['c-test', '正在测试通讯延迟...'], ['c-desktop', '正在请求远程桌面...'], ['c-fetch', '正在获取现场端网段...'],
];
const kJobButtons = ['c-connect', 'c-stop', 'c-test', 'c-desktop', 'c-fetch'];
for (const [id, busyText] of kJobs) {
  pageTest(`${busyText} marks ${id} as busy until another status line comes`, async (page) => {
    await page.deliver(state('off', busyText));
    assert.ok(await hasJob(page));
    for (const button of kJobButtons) {
      assert.equal(await page.view.getAttribute(`#${button}`, 'aria-busy'), button === id ? 'true' : null, button);
      assert.equal(await page.view.getAttribute(`#${button}`, 'data-waiting'), button === id ? null : '', button);
    }
    for (const button of ['c-discovery', 'c-save']) {
      assert.equal(await page.view.getAttribute(`#${button}`, 'data-waiting'), null, button);
    }
    await page.deliver({ t: 'state', side: {} });  // says nothing of the status line
    assert.ok(await hasJob(page));
    await page.deliver(state('off', '通讯延迟：未填写测试 IP。'));
    assert.equal(await hasJob(page), false);
    for (const button of kJobButtons) {
      assert.equal(await page.view.getAttribute(`#${button}`, 'aria-busy'), null);
      assert.equal(await page.view.getAttribute(`#${button}`, 'data-waiting'), null);
    }
  });
}

pageTest('a result that only begins like a running job is a result', async (page) => {
  await page.deliver(state('off', '正在请求连接授权...\r\n完成'));
  assert.equal(await hasJob(page), false);
});

pageTest('while a job runs every click still goes to the window, which decides', async (page) => {
  await page.deliver(state('off', '正在测试通讯延迟...'));
  await page.takePosted();
  for (const id of [...kJobButtons, 'c-save', 'c-discovery']) await page.click(id);
  assert.deepEqual((await page.takePosted()).map((text) => JSON.parse(text).action),
    ['connect', 'stop', 'test', 'desktop', 'secondary', 'saveProfile', 'discovery']);
});

pageTest('the status line has the colour of the log line with its text', async (page) => {
  for (const [text, cls] of [['档案已保存。', 'ok'], [kUnreachable, 'er'], ['等待密钥', 'wn'], ['软件隧道运行中。', '']]) {
    await page.deliver(state('off', text));
    assert.equal(await tone(page), '', text);
    await page.deliver(log('02:00:00', '别的一行', 'er'));
    assert.equal(await tone(page), '', text);
    await page.deliver(log('02:00:00', text, cls));
    assert.equal(await tone(page), cls, text);
    await page.deliver(state('off', text));
    assert.equal(await tone(page), cls, `${text}, told again`);
  }
});

for (const text of [kRefused, 'Connection authorization failed: x', 'Resolve failed: ',
  '\r\n远程调试会话已断开。\r\nConnection authorization failed: x']) {
  pageTest(`${JSON.stringify(text)} looks like the failure it is`, async (page) => {
    await page.deliverAll([state('off', text), log('02:00:00', text, '')]);
    assert.equal(await phase(page), 'failed');
    assert.equal(await tone(page), 'er');
  });
}

pageTest('a failure is over with the next status line', async (page) => {
  await page.deliverAll(kStates.failed);
  await page.deliver(state('off', '已获取现场端 DEV-2041 的共享网段。'));
  assert.equal(await phase(page), 'idle');
});

// ---- retrying

const kRetrying = '正在自动重试连接授权...';
const kRefusal = [state('off', kRefused), log('02:00:00', kRefused)];
const kArmed = [...kRefusal, log('02:00:00', kRetryArmed, 'wn')];
const kTry = [state('off', kRetrying), log('02:00:05', kRetrying), ...kRefusal];

/** A page whose clock the test moves. */
function clockTest(name, body) {
  pageTest(name, async (page) => {
    await page.view.clock.install();
    await page.view.reload();
    await body(page, (ms) => page.view.clock.runFor(ms));
  });
}

clockTest('retrying lasts as long as tries are seen', async (page, pass) => {
  await page.deliverAll(kArmed);
  for (let i = 0; i < 6; i += 1) {
    await pass(5_000);
    assert.equal(await phase(page), 'retrying');
    await page.deliver(state('off', kRetrying));
    assert.ok(await hasJob(page));
    await pass(20_000);  // a service that takes its time
    assert.equal(await phase(page), 'retrying');
    await page.deliverAll(kRefusal);
  }
});

clockTest('retrying is over when no further try is seen', async (page, pass) => {
  await page.deliverAll([...kArmed, ...kTry]);
  await pass(11_000);
  assert.equal(await phase(page), 'retrying');
  await pass(2_000);
  assert.equal(await phase(page), 'failed');
});

clockTest('another job in between does not end retrying', async (page, pass) => {
  await page.deliverAll(kArmed);
  await page.deliver(state('off', '正在测试通讯延迟...'));
  await pass(60_000);
  assert.equal(await phase(page), 'retrying');
  await page.deliver(state('off', '通讯延迟测试失败：测试 IP 无效。'));
  assert.equal(await phase(page), 'retrying');
});

pageTest('retrying ends when the connection stands', async (page) => {
  await page.deliverAll([...kArmed, ...kTry, state('off', kRetrying), state('up', '连接授权成功：1')]);
  assert.equal(await phase(page), 'online');
  await page.deliver(state('down', '连接授权成功：1'));
  assert.equal(await phase(page), 'reconnecting');
  await page.deliver(state('off', '软件隧道已停止。'));
  assert.equal(await phase(page), 'idle');
});

pageTest('a page that starts in the middle of a try knows it by its status line', async (page) => {
  await page.deliver(state('off', kRetrying));
  assert.equal(await phase(page), 'retrying');
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
