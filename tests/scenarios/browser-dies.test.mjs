// The browser dies or hangs: the page is replaced by itself, and the tunnel is not affected.
import assert from 'node:assert/strict';
import path from 'node:path';

import { FailedProcess } from '../../lab/standins/browser/page.mjs';
import { rendererProcesses } from '../../lab/standins/browser/chromium.mjs';
import { kPlc, kTunnelAddress } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { ping } from '../../lab/harness/tools.mjs';
import { clickConnect, connect, kDeviceSecret, logsAfter, occurrences, scenario } from './scenario.mjs';

const kBrowserGone = '警告：浏览器进程已退出，正在重新打开界面；连接不受影响。';
const kRendererGone = '警告：页面进程已退出，正在重新载入界面；连接不受影响。';
const kHangs = '警告：界面暂时没有响应；连接不受影响。';
const kStillHangs = '警告：界面持续没有响应，正在重新打开界面；连接不受影响。';
const kGivenUp = '界面恢复失败：一分钟内三次失效，已停止自动恢复；连接不受影响。';
/** Starting a browser takes half a second to two on an idle machine. */
const kBackMs = 10_000;

const killBrowser = ({ page }) => process.kill(page.pid, 'SIGKILL');
async function killRenderers({ page }) {
  for (const pid of await rendererProcesses(page.pid)) process.kill(pid, 'SIGKILL');
}

const kTyped = { testip: '10.1.2.3', profileName: '打了一半的名' };

/** Types and waits until the window has the text. */
async function typeHalfAForm(program) {
  await program.type('#c-testip', kTyped.testip);
  await program.type('#c-pname', kTyped.profileName);
  const wanted = JSON.stringify({ action: 'typed', f: kTyped });
  await waitUntil('the typed text told', async () => (await program.page.messages())
    .some(({ direction, json }) => direction === 'toHost' && JSON.parse(json) === wanted));
}

/** Marks the document, to distinguish it from its successor. */
const mark = ({ page }) => page.evaluate('window.isOld = true');
const isSameDocument = ({ page }) => page.evaluate('window.isOld === true');

/** The program's state as the page shows it. */
const shown = async (program) => ({
  state: await program.state(), address: await program.card('组网 IP'), status: await program.statusLine(),
  secret: await program.value('#c-secret'), testip: await program.value('#c-testip'),
  profileName: await program.value('#c-pname'), log: (await program.pageLog()).map(({ text, cls }) => `${cls} ${text}`),
});

/** Runs `fail` and waits for the replacement page, which must show the old state and one more log line. */
async function comesBack(program, t, name, line, fail) {
  const before = await shown(program);
  await mark(program);
  const startMs = performance.now();
  await fail(program);
  const wanted = { ...before, log: [...before.log, `wn ${line}`] };
  let last;
  await waitUntil(`the page as it was after ${name}`, async () => {
    await program.takeNewestPage();
    last = await shown(program).catch(({ message }) => message);
    return JSON.stringify(last) === JSON.stringify(wanted) && !await isSameDocument(program);
  }).catch((error) => { throw new Error(`${error.message}\n${JSON.stringify(last)}\n${JSON.stringify(wanted)}`); });
  const tookMs = performance.now() - startMs;
  t.diagnostic(`${name}: back after ${Math.round(tookMs)} ms`);
  assert.ok(tookMs < kBackMs, `back after ${tookMs} ms`);
}

for (const [name, line, kill] of [['browser', kBrowserGone, killBrowser], ['renderer', kRendererGone, killRenderers]]) {
  scenario(`a killed ${name} is replaced, with state, form and log, while the tunnel keeps running`,
    { site: true }, async (lab, program, t) => {
      await connect(program);
      await typeHalfAForm(program);
      assert.equal(await program.value('#c-secret'), kDeviceSecret);
      const pinging = ping(lab, kPlc, 30);
      for (const time of ['first', 'second']) await comesBack(program, t, `${name} killed, ${time}`, line, kill);
      const { ok, error } = await pinging;
      assert.ok(ok, error);
      assert.equal(await program.card('组网 IP'), kTunnelAddress);
      await program.pointAndClick('#c-testip');
      await lab.display.key('ctrl+a');
      await lab.display.type('10.9.8.7');
      await waitUntil('what was typed on the real keyboard', async () => (await program.value('#c-testip')) === '10.9.8.7');
      await lab.display.screenshot(path.join(lab.artifacts, 'stands-in.png'));
      await program.click('#c-stop');
      await program.waitForText('#s-state', '未连接');
      assert.equal(await program.value('#c-testip'), '10.9.8.7', 'an apply leaves alone what was typed');
    });
}

scenario('a page that crashes or keeps hanging is replaced; one that hangs briefly is not', {}, async (lab, program, t) => {
  await typeHalfAForm(program);
  await comesBack(program, t, 'page crashed', kRendererGone, ({ page }) => page.failProcess(FailedProcess.renderer));
  await mark(program);
  await logsAfter(program, kHangs, () => program.page.failProcess(FailedProcess.unresponsive));
  await program.page.evaluate('chrome.webview.postMessage(JSON.stringify({ action: "any" }))');
  await logsAfter(program, kHangs, () => program.page.failProcess(FailedProcess.unresponsive));
  assert.ok(await isSameDocument(program), 'it answered in between');
  await program.page.evaluate('chrome.webview.postMessage(JSON.stringify({ action: "any" }))');
  await logsAfter(program, kHangs, () => program.page.failProcess(FailedProcess.unresponsive));
  program.page.evaluate('for (;;) {}').catch(() => {});  // never returns
  await logsAfter(program, kStillHangs, () => program.page.failProcess(FailedProcess.unresponsive));
  await program.takeNextPage();
  await waitUntil('what was typed', async () => (await program.value('#c-testip')) === kTyped.testip);
});

scenario('the end of any other browser process is logged', {}, async (lab, program) => {
  await mark(program);
  for (const [kind, name] of [[3, '框架'], [4, '工具'], [5, '沙箱'], [6, '图形'], [7, '插件'], [8, '插件'], [9, '未知']]) {
    const grown = await logsAfter(program, `提示：界面的辅助进程已退出（${name}），由浏览器自行恢复。`,
      () => program.page.failProcess(kind));
    assert.equal(grown.trim().split('\n').length, 1, grown);
  }
  assert.ok(await isSameDocument(program));
});

scenario('the replacement page shows a running job and its result',
  {}, async (lab, program) => {
    lab.pauseService();
    await clickConnect(program);
    await program.waitForText('#c-statusline', '正在请求连接授权...');
    killBrowser(program);
    await program.takeNextPage();
    await program.waitForText('#c-statusline', '正在请求连接授权...');
    assert.equal(await program.page.evaluate('document.querySelector("#c-connect").ariaBusy'), 'true');
    lab.continueService();
    await program.waitForText('#s-state', '在线');
    await program.page.waitFor('!document.body.hasAttribute("data-job")');
  });

scenario('after three deaths in a minute a message box explains what to do, and the tunnel keeps running',
  { site: true }, async (lab, program) => {
    await connect(program);
    for (let i = 0; i < 2; i += 1) {
      killBrowser(program);
      await program.takeNextPage();
    }
    const pinging = ping(lab, kPlc, 15);
    await logsAfter(program, kGivenUp, () => killBrowser(program));
    await waitUntil('the message box', async () => (await lab.display.windowTitles())
      .filter((title) => title.includes('Velmarine.Client')).length >= 2);
    const { ok, error } = await pinging;
    assert.ok(ok, error);
    assert.deepEqual(await lab.bridge.pages(), [], 'no further page is opened');
    const log = await program.log();
    assert.deepEqual([occurrences(log, kBrowserGone), occurrences(log, kGivenUp)], [2, 1], log);
  });
