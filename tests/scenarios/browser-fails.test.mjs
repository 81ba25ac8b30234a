// The browser's data folder, and the message if the browser cannot be created.
import assert from 'node:assert/strict';
import { access, rm } from 'node:fs/promises';
import path from 'node:path';

import { waitUntil } from '../../lab/harness/program.mjs';
import { scenario } from './scenario.mjs';

const kDataFolder = 'VelmarineWebUI_Client';

scenario("the browser's data lies in the temporary folder", { start: false }, async (lab) => {
  const folder = path.join(lab.prefix.temp, kDataFolder);
  await rm(folder, { recursive: true, force: true });
  await lab.startProgram();
  await access(path.join(folder, 'EBWebView'));
});

const kFailures = [
  ['environment=0x80070005', 'WebView2 环境创建失败，请确认已安装 WebView2 运行时。', '错误 0x80070005：拒绝访问，无法写入界面数据文件夹。', true],
  ['create=0x80080005', 'WebView2 环境创建失败，请确认已安装 WebView2 运行时。', '错误 0x80080005：浏览器进程未能启动。', true],
  ['controller=0x8007139F', 'WebView2 控制器创建失败。', '错误 0x8007139F：界面数据文件夹正由另一程序以不同的选项使用，或窗口已关闭。', false],
];
for (const [fault, line, cause, hasBox] of kFailures) {
  scenario(`a browser failure (${fault}) is reported with its code and cause`, { start: false }, async (lab) => {
    const program = await lab.startProgram({ env: { LAB_WEBVIEW_FAIL: fault }, waitForPage: false });
    const log = await program.waitForLog('提示：界面没有打开。');
    assert.match(log, new RegExp(`\\] ${line}\r\n\\[[\\d:]+\\] ${cause}\r\n\\[[\\d:]+\\] 提示：界面没有打开。`));
    if (!hasBox) return;
    await waitUntil('the message box', async () => (await lab.display.windowTitles())
      .filter((title) => title.includes('Velmarine.Client')).length >= 2);
  });
}
