// The window, its page and the page's messages.
import assert from 'node:assert/strict';

import { kTitle, waitUntil } from '../../lab/harness/program.mjs';
import { kDeviceSecret, scenario } from './scenario.mjs';

scenario('without a browser runtime, a message box and the log report it',
  { start: false }, async (lab) => {
    await lab.prefix.setBrowserRuntime(null, { namespace: lab.network.engineer });
    const program = await lab.startProgram({ waitForPage: false });
    await program.waitForLog('WebView2 环境创建失败，请确认已安装 WebView2 运行时。');
    const box = await waitUntil('the message box', async () => {
      const windows = await lab.display.windowTitles();
      return windows.filter((title) => title.includes('Velmarine.Client')).length >= 2;
    });
    assert.ok(box);
  });

scenario('malformed messages from the page change nothing', {}, async (lab, program) => {
  const before = await program.log();
  for (const message of ['', '{', '[1,2]', '{"action":5}', '{"action":"CONNECT","f":{}}', '"connect"',
    '{"f":{"secret":"x"}}', '['.repeat(100_000)]) {
    await program.page.evaluate(`chrome.webview.postMessage(${JSON.stringify(message)})`);
  }
  await program.page.evaluate('chrome.webview.postMessage({ action: "connect", f: {} })');
  await program.page.evaluate('chrome.webview.postMessage(null)');
  await program.click('#c-discovery');
  await program.waitForLog('局域网发现模式已开启：支持 PLC 广播扫描。');
  const after = (await program.log()).slice(before.length);
  assert.equal(after.trim().split('\n').length, 1, after);
  assert.equal((await lab.service.requests({ pathPrefix: '/api/connections' })).length, 0);
});

scenario('the real mouse and keyboard reach the page', {}, async (lab, program) => {
  await program.pointAndClick('#c-secret');
  await lab.display.type(kDeviceSecret);
  await waitUntil('the typed key', async () =>
    (await program.page.evaluate('document.querySelector("#c-secret").value')) === kDeviceSecret);
  await program.pointAndClick('#c-discovery');
  await program.waitForText('#c-discovery', 'PLC发现模式：开');
  const area = await lab.display.clientArea(kTitle);
  assert.ok(area.width >= 1200 && area.height >= 780, JSON.stringify(area));
});

scenario('without RustDesk and without a download, the remote desktop reports it', {},
  async (lab, program) => {
    await program.type('#c-secret', kDeviceSecret);
    await program.click('#c-fetch');
    await program.waitForLog('已获取现场端 ');
    await program.click('#c-desktop');
    await program.waitForLog('未找到 RustDesk 程序。');
    await program.waitForText('#c-statusline', '未找到 RustDesk 程序。');
  });
