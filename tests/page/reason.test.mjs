// The reason first: at every size, in every state, the state, its reason and the next step are visible together.
import assert from 'node:assert/strict';

import { pageTest, useBrowser } from './browser_page.mjs';
import { apply, kReconnecting, kResting, kRetryArmed, kStates, log, state } from './page_states.mjs';

useBrowser();

const kSizes = [[803, 547, 1.5], [900, 600, 1], [1204, 781, 1], [1366, 768, 1], [1536, 864, 1.25], [1920, 1080, 1],
  [1920, 1080, 2], [2560, 1440, 1], [3840, 2160, 1]].map(([width, height, scale]) => ({ width, height, scale }));
const named = ({ width, height, scale }) => `${width} x ${height} at ${scale * 100} %`;

// The program's longest reason: its explanation follows a filter of up to 30,000 letters.
const kLongReason = `Error: WinDivertOpen failed for filter: ${'(ip.DstAddr >= 10.10.0.0 and ip.DstAddr <= 10.10.0.255) or '.repeat(124)}true\r\n` +
  '错误 87：驱动不接受过滤条件：网段过多（最多 124 个，局域网发现开启时 123 个），或另一程序加载了旧版驱动。请减少网段，或关闭其它使用 WinDivert 的程序后重试。';
const kAll = {
  ...kStates,
  longReason: [...kStates.working, state('off', kLongReason), log('02:14:31', kLongReason, 'er')],
};

/** Ids of elements whose letters are not all visible within the window without scrolling. */
function findUnseen(ids) {
  return ids.filter((id) => {
    const element = document.getElementById(id);
    const range = document.createRange();
    range.selectNodeContents(element);
    const { firstChild: text } = element;
    // A failure is explained by its last line, a success by its first.
    const lines = text?.data.trim().split('\n') ?? [];
    const meaning = element.closest('.er') ? lines.at(-1) : lines[0];
    if (meaning) {
      range.setStart(text, text.data.lastIndexOf(meaning));
      range.setEnd(text, text.data.lastIndexOf(meaning) + meaning.length);
    }
    const words = range.getBoundingClientRect();
    const bounds = [new DOMRect(0, 0, innerWidth, innerHeight)];
    for (let box = element; box; box = box.parentElement) {
      if (/auto|scroll|hidden|clip/.test(getComputedStyle(box).overflowY)) bounds.push(box.getBoundingClientRect());
    }
    return !element.checkVisibility() || bounds.some(({ top, bottom, left, right }) =>
      words.top < top - 1 || words.bottom > bottom + 1 || words.left < left - 1 || words.right > right + 8);  // trailing blank
  });
}

for (const size of kSizes) {
  pageTest(`state, reason and next step are seen together: ${named(size)}`, size, async (page) => {
    for (const [name, messages] of Object.entries(kAll)) {
      if (name === 'error') continue;  // belongs to the other role
      await page.view.reload();
      await page.deliverAll(messages);
      const offered = await page.view.getAttribute('body', 'data-offer') === 'stop' ? 'c-stop' : 'c-connect';
      assert.deepEqual(await page.view.evaluate(findUnseen, ['s-state', 'c-statusline', offered]), [], name);
      await page.click('t-log');
      assert.deepEqual(await page.view.evaluate(findUnseen, ['s-state', 'c-statusline', offered]), [], `${name}, in the log`);
    }
  });
}

pageTest('the resting words stand only where nothing contradicts them', async (page) => {
  for (const [name, messages] of Object.entries(kStates)) {
    await page.view.reload();
    await page.deliverAll(messages);
    assert.equal(await page.isVisible('s-detail'), !['working', 'retrying', 'failed'].includes(name), name);
  }
  await page.view.reload();
  await page.deliverAll([...kStates.resolved, state('off', '正在测试通讯延迟...'),
    state('off', '通讯延迟测试失败：测试 IP 无效。'), log('02:00:00', '通讯延迟测试失败：测试 IP 无效。', 'er')]);
  assert.equal(await page.text('s-detail'), kResting);
  assert.equal(await page.isVisible('s-detail'), false);
});

const kJobFailures = [
  ['正在测试通讯延迟...', '通讯延迟测试失败：测试 IP 无效。'], ['正在请求远程桌面...', '远程桌面请求失败：设备离线'],
  ['正在获取现场端网段...', 'Resolve failed: 密钥无效'],
];
for (const [busy, result] of kJobFailures) {
  pageTest(`red stands in the status line alone: ${result}`, async (page) => {
    await page.deliverAll(kStates.resolved);
    const ground = await page.style('#s-status', 'background-color');
    await page.deliverAll([state('off', busy), log('02:00:00', busy), state('off', result), log('02:00:01', result, 'er')]);
    assert.equal(await page.style('#s-status', 'background-color'), ground);
    assert.equal(await page.text('s-tag'), '');
    assert.equal(await page.style('#c-statusline', 'color'), 'rgb(255, 92, 114)');
  });
}

pageTest('while it reconnects, that stands first and the last success is pale', async (page) => {
  await page.deliverAll(kStates.reconnecting);
  const top = async (id) => (await page.view.locator(`#${id}`).boundingBox()).y;
  assert.equal(await page.text('s-detail'), kReconnecting);
  assert.ok(await top('s-detail') < await top('c-statusline'));
  assert.notEqual(await page.style('#c-statusline', 'color'), 'rgb(94, 255, 200)');
});

// ---- the pair

const kWantedOffers = { first: 'connect', resolved: 'connect', working: 'connect', online: 'stop', testing: 'stop',
  reconnecting: 'stop', retrying: 'stop', failed: 'connect' };

pageTest('of connecting and ending it, the one that makes sense stands out', async (page) => {
  for (const [name, offer] of Object.entries(kWantedOffers)) {
    await page.view.reload();
    await page.deliverAll(kStates[name]);
    assert.equal(await page.view.getAttribute('body', 'data-offer'), offer, name);
    if (['working', 'testing'].includes(name)) continue;  // both wait
    const weight = (id) => page.style(`#${id}`, 'font-weight');
    const [prominent, quiet] = offer === 'stop' ? ['c-stop', 'c-connect'] : ['c-connect', 'c-stop'];
    assert.deepEqual([await weight(prominent), await weight(quiet)], ['600', '400'], name);
  }
});

for (const size of kSizes) {
  pageTest(`the pair is one row, of one size, away from the desktop: ${named(size)}`, size, async (page) => {
    await page.deliverAll(kStates.online);
    const [connect, stop, desktop] = await Promise.all(['c-connect', 'c-stop', 'c-desktop'].map((id) =>
      page.view.locator(`#${id}`).boundingBox()));
    assert.deepEqual([connect.y, connect.width, connect.height], [stop.y, stop.width, stop.height]);
    assert.ok(stop.x > connect.x + connect.width && stop.x - connect.x - connect.width < 20);
    assert.ok(desktop.y - stop.y - stop.height > 100, `${desktop.y - stop.y - stop.height}`);
  });
}

pageTest('nothing outshouts the state', async (page) => {
  for (const name of ['online', 'retrying', 'reconnecting']) {
    await page.deliverAll(kStates[name]);
    for (const id of ['c-connect', 'c-stop']) assert.equal(await page.style(`#${id}`, 'background-image'), 'none', `${id}, ${name}`);
  }
});

// ---- many networks

const kRoutes = Array.from({ length: 15 }, (_, i) => `NAT模式IP 172.31.${i}.0/24 -> 现场真实 192.168.${100 + i}.0/24`);
const kMany = [apply(), ...[state, (_, text) => log('02:14:31', text, 'ok')].map((make) =>
  make('up', `\r\n连接授权成功：9f3c-22d1，分配地址 10.88.0.2，路由 ${kRoutes.join('\r\n')}\r\n软件隧道已启动。`, { access: kRoutes.join('\r\n') }))];

pageTest('many networks are counted beside the state and stand in full in their card', async (page) => {
  await page.deliverAll(kMany);
  assert.equal(await page.text('s-routes'), '共 15 个网段');
  assert.equal(await page.text('s-detail'), `访问网段 ${kRoutes.join('\r\n')}`);
  const { height } = await page.view.locator('#s-detail').boundingBox();
  assert.ok(height < 30, `${height}`);
  assert.deepEqual((await page.view.locator('#s-cards .v').nth(3).innerText()).split('\n').map((line) => line.trim()), kRoutes);
  await page.deliver(state('up', '好', { access: kRoutes[0] }));
  assert.equal(await page.text('s-routes'), '');
  assert.ok(await page.isVisible('s-detail'));
});

pageTest('eight lines of the log are left beside 15 networks', { width: 900, height: 600 }, async (page) => {
  await page.deliverAll(kMany);
  const lines = await page.view.locator('#c-log').evaluate((list) => {
    const { paddingTop, paddingBottom, lineHeight } = getComputedStyle(list);
    return (list.clientHeight - parseFloat(paddingTop) - parseFloat(paddingBottom)) / parseFloat(lineHeight);
  });
  assert.ok(lines >= 8, `${lines}`);
});

/** Words and addresses broken over two lines although they would fit on one. */
function findBrokenWords() {
  const broken = [];
  const texts = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
  for (let text = texts.nextNode(); text; text = texts.nextNode()) {
    const box = text.parentElement;
    if (box.closest('option, script, .log') || !box.checkVisibility()) continue;
    for (const { index, 0: word } of text.data.matchAll(/[\w.\/:-]+|NAT模式IP|现场真实|直连网段|访问网段/g)) {
      const range = document.createRange();
      range.setStart(text, index);
      range.setEnd(text, index + word.length);
      const tops = new Set([...range.getClientRects()].map(({ top }) => Math.round(top)));
      if (tops.size > 1 && word.length < 20) broken.push(word);
    }
  }
  return broken;
}

for (const size of kSizes) {
  pageTest(`no address and no word of a network is broken: ${named(size)}`, size, async (page) => {
    await page.deliverAll(kMany);
    assert.deepEqual(await page.view.evaluate(findBrokenWords), []);
  });
}

// ---- wide windows

for (const size of kSizes.filter(({ width }) => width >= 1366)) {
  pageTest(`no hole and a comfortable measure: ${named(size)}`, size, async (page) => {
    await page.deliverAll(kMany);
    const seen = await page.view.evaluate(() => {
      const box = (selector) => document.querySelector(selector).getBoundingClientRect();
      const size = parseFloat(getComputedStyle(document.querySelector('#c-log')).fontSize);
      const panels = [...document.querySelectorAll('.panel')].map((panel) => {
        const rows = [...panel.querySelectorAll('.row')].map((row) => row.getBoundingClientRect());
        return Math.max(...rows.slice(1).map((row, i) => row.top - rows[i].bottom), panel.getBoundingClientRect().bottom - rows.at(-1).bottom);
      });
      return {
        letters: box('#c-log').width / size, gaps: Math.max(...panels) / size,
        between: (box('.panel + .panel').top - box('.panel').bottom) / size,
        belowCards: (innerHeight - box('aside').bottom) / size, margin: box('body').left / innerWidth,
      };
    });
    assert.ok(seen.letters < 100, JSON.stringify(seen));  // Chinese letters; Latin ones are half as wide
    assert.ok(seen.gaps < 1.7 && seen.between < 1.7 && seen.belowCards < 3 && seen.margin < 0.2, JSON.stringify(seen));
  });
}
