// The log lists: how a line looks and copies, how many there are, where the lists scroll to.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';
import { kRefused, log, state } from './page_states.mjs';

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

/** Scrolls with the mouse and waits until the page notices. */
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
    list.style.minHeight = '0';
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

// ---- what a line looks like, and what is copied of it

/** The text that an editor gets from the clipboard. */
async function pasted(page) {
  await page.view.evaluate(() => {
    const editor = document.body.appendChild(document.createElement('textarea'));
    editor.id = 'editor';
    editor.focus();
  });
  await page.view.keyboard.press('Control+V');
  const text = await page.value('editor');
  await page.view.evaluate(() => document.getElementById('editor').remove());
  return text;
}

/** Selects with the mouse, from the start of one line to the end of another. */
async function dragOver(page, first, last) {
  const box = (at) => page.view.locator('#c-log > div').nth(at).boundingBox();
  const [from, to] = [await box(first), await box(last)];
  await page.view.mouse.move(from.x + 1, from.y + 10);
  await page.view.mouse.down();
  await page.view.mouse.move(to.x + to.width - 2, to.y + to.height - 10, { steps: 4 });
  await page.view.mouse.up();
}

const kCopied = [
  log('02:14:29', '正在请求连接授权...'), log('02:14:31', '连接授权成功：示例，分配地址 10.88.0.2', 'ok'),
  log('02:14:32', '很长的一行'.repeat(60), 'wn'), log('02:14:40', kRefused, 'er'),
];
const kCopiedLines = ['02:14:29 正在请求连接授权...', '02:14:31 连接授权成功：示例，分配地址 10.88.0.2',
  `02:14:32 ${'很长的一行'.repeat(60)}`, '02:14:40 Connection authorization failed: 设备离线'];

pageTest('a copied line is its time, a blank and its text, without its mark', async (page) => {
  await page.deliverAll(kCopied);
  for (const [at, wanted] of kCopiedLines.entries()) {
    await dragOver(page, at, at);
    await page.view.keyboard.press('Control+C');
    assert.equal(await pasted(page), wanted);
  }
});

pageTest('of several copied lines each stands in a line of its own', async (page) => {
  await page.deliverAll(kCopied);
  await dragOver(page, 0, 3);
  await page.view.keyboard.press('Control+C');
  assert.equal(await pasted(page), kCopiedLines.join('\n'));
});

/** The start of each row of a line's text, and the time's place; rows as the browser broke them. */
const rowsOf = (page, at) => page.view.locator('#c-log > div').nth(at).evaluate((line) => {
  const range = document.createRange();
  range.selectNodeContents(line.lastElementChild.lastChild);
  const rows = new Map();
  for (const { left, top, width } of range.getClientRects()) {
    if (width > 0) rows.set(Math.round(top), Math.min(rows.get(Math.round(top)) ?? Infinity, Math.round(left)));
  }
  const time = line.firstElementChild.getBoundingClientRect();
  return { tops: [...rows.keys()], lefts: [...rows.values()], time: { top: Math.round(time.top), right: time.right } };
});

for (const [name, text, rows] of [['an address without an end', 'https://x.test/' + 'abcdefghij'.repeat(40), 4],
  ['Chinese', '连接'.repeat(150), 4], ['words', 'word '.repeat(150), 4], ['its own lines', '一\r\n二\r\n三', 3],
  ['a result after a line break', `\r\n${'连接'.repeat(150)}`, 4]]) {
  pageTest(`every row of ${name} begins at one place behind the time, the first beside it`, async (page) => {
    await page.deliver(log('02:14:31', text, 'ok'));
    const { tops, lefts, time } = await rowsOf(page, 0);
    assert.ok(tops.length >= rows, `${tops.length} rows`);
    assert.deepEqual(new Set(lefts), new Set([lefts[0]]), 'one edge');
    assert.ok(lefts[0] > time.right + 16, 'room for the mark');
    assert.equal(tops[0], time.top);
  });
}

pageTest('lines of every class have their time and their text at the same places', async (page) => {
  await page.deliverAll(['', 'ok', 'wn', 'er'].map((cls) => log('02:14:31', '一行', cls)));
  const places = await Promise.all([0, 1, 2, 3].map(async (at) => {
    const { lefts, time } = await rowsOf(page, at);
    return [...lefts, time.right];
  }));
  assert.deepEqual(places, Array(4).fill(places[0]));
});

// ---- lines that are too long

const kLess = (count) => `…（此处省略 ${count} 字，全文见日志文件）…`;
for (const [name, text, wanted] of [
  ['8000 units are shown whole', 'x'.repeat(8000), 'x'.repeat(8000)],
  ['of 8001 units the middle one is left out', `${'x'.repeat(6000)}!${'y'.repeat(2000)}`, 'x'.repeat(6000) + kLess(1) + 'y'.repeat(2000)],
  ['a character of two units is never halved', `x${'😀'.repeat(5000)}y`, `x${'😀'.repeat(2999)}${kLess(2004)}${'😀'.repeat(999)}y`],
  ['the cuts may fall between two such characters', '😀'.repeat(4001), '😀'.repeat(3000) + kLess(2) + '😀'.repeat(1000)]]) {
  pageTest(`${name}, in the log and in the status line`, async (page) => {
    await page.deliverAll([state('off', text), log('02:14:31', text, 'ok'), { t: 'logs', lines: [['02:14:31', text, 'ok']] }]);
    assert.equal(await page.text('c-statusline'), wanted);
    for (const id of ['c-log', 'full-log']) assert.deepEqual(await page.log(id), [['02:14:31', wanted, 'ok']]);
  });
}

pageTest('what is not in the log file does not refer to it', async (page) => {
  await page.deliver({ t: 'state', role: 'client', side: { detail: 'x'.repeat(9000) } });
  assert.equal(await page.text('s-detail'), `${'x'.repeat(6000)}…（此处省略 1000 字）…${'x'.repeat(2000)}`);
});

pageTest('the status line takes the colour of its log line, of which both show only a part', async (page) => {
  const text = '结果'.repeat(10_000);
  await page.deliverAll([state('off', text), log('02:14:31', `${text}！`, 'er'), log('02:14:32', text, 'ok')]);
  assert.equal(await page.style('#c-statusline', 'color'), await page.style('#c-log .ok', 'color'));
});

// ---- lines of many lines

const kNetworks = Array.from({ length: 15 }, (_, i) => `10.${i}.0.0/16`);
const heightOf = (page, id) => page.view.locator(`#${id} > :last-child`).evaluate((line) =>
  Math.round(line.getBoundingClientRect().height / parseFloat(getComputedStyle(line).lineHeight)));

pageTest('a result of many lines is folded in the live log, opens with a click, and stands whole in the full log', async (page) => {
  const text = `\r\n连接授权成功：1，路由 ${kNetworks.join('\r\n')}`;
  await page.deliver(log('02:14:31', text, 'ok'));
  assert.equal(await heightOf(page, 'c-log'), 6);
  assert.equal((await page.log())[0][1], text);
  assert.equal(await page.view.getAttribute('#c-log > :last-child', 'data-lines'), '共 15 行');
  await page.view.locator('#c-log > :last-child').click();
  assert.equal(await heightOf(page, 'c-log'), 15);
  await page.view.locator('#c-log > :last-child').click();
  assert.equal(await heightOf(page, 'c-log'), 6);
  await page.click('t-log');
  assert.equal(await heightOf(page, 'full-log'), 15);
});

pageTest('a failure and a few lines are never folded', async (page) => {
  await page.deliver(log('02:14:31', kNetworks.join('\r\n'), 'er'));
  assert.equal(await heightOf(page, 'c-log'), 15);
  await page.deliver(log('02:14:31', kNetworks.slice(0, 10).join('\r\n'), 'ok'));
  assert.equal(await heightOf(page, 'c-log'), 10);
});

// ---- what a reader of the screen takes from the lists

/** How each line is announced, according to the nearest element around its text. */
const announcements = (page) => page.view.locator('#c-log > div > span:last-child').evaluateAll((all) =>
  all.map((text) => text.closest('[aria-live]').getAttribute('aria-live')));

const kTry = ['正在自动重试连接授权...', kRefused];
for (const [name, texts, wanted] of [
  ['a retry is announced once', [...kTry, ...kTry, ...kTry], ['polite', 'polite', 'off', 'off', 'off', 'off']],
  ['another line between retries is announced', [...kTry, '别的', ...kTry, '又别的'],
    ['polite', 'polite', 'polite', 'off', 'off', 'polite']],
  ['a line is announced again after four others', ['一', '二', '三', '四', '一', '五', '六', '七', '八', '一'],
    ['polite', 'polite', 'polite', 'polite', 'off', 'polite', 'polite', 'polite', 'polite', 'polite']],
  ['lines that only look alike when cut are announced', ['x'.repeat(9000), `${'x'.repeat(8999)}y`], ['polite', 'polite']]]) {
  pageTest(name, async (page) => {
    for (const text of texts) {
      await page.deliver(log('02:14:31', text));
      await twoFrames(page);
    }
    assert.deepEqual(await announcements(page), wanted);
  });
}

pageTest('the lines of the page before count as announced', async (page) => {
  await page.deliver({ t: 'logs', lines: kTry.map((text) => ['02:14:31', text, '']) });
  await twoFrames(page);
  for (const text of kTry) await page.deliver(log('02:14:36', text));
  await page.deliver(log('02:14:37', '别的'));
  assert.deepEqual((await announcements(page)).slice(2), ['off', 'off', 'polite']);
});
