// A field engineer's laptop: it sleeps and wakes, is locked, has a small screen and an impatient user, and
// Windows ends the session.
import assert from 'node:assert/strict';
import { readdir, readFile } from 'node:fs/promises';
import path from 'node:path';

import { kProgramFile } from '../../lab/harness/paths.mjs';
import { kDirectRoute, kTunnelAddress } from '../../lab/harness/network.mjs';
import { kTitle, waitUntil } from '../../lab/harness/program.mjs';
import { run } from '../../lab/harness/processes.mjs';
import { connect, logsAfter, scenario } from './scenario.mjs';

const kQueryEndSession = 0x11;
const kEndSession = 0x16;
const kPowerBroadcast = 0x218;
const kSessionChange = 0x2B1;
const kSuspend = 4;
const kResumeAutomatic = 0x12;
const kLock = 7;
const kUnlock = 8;

const kLost = '警告：中继连接中断，软件隧道正在自动重连。';
const kFound = '软件隧道已重新在线。';

const sinceMs = (begin) => performance.now() - begin;

scenario('after a wake, a relay that no longer answers is replaced without waiting for its time-out', {},
  async (lab, program, t) => {
    await connect(program);
    await logsAfter(program, '电脑即将睡眠，远程连接会中断，唤醒后自动恢复。',
      () => lab.desktop.sendToWindow(kPowerBroadcast, kSuspend));

    // A relay that answers is kept.
    await logsAfter(program, '电脑已唤醒，正在检查中继连接。',
      () => lab.desktop.sendToWindow(kPowerBroadcast, kResumeAutomatic));
    assert.equal(await program.state(), '在线');

    await lab.desktop.sendToWindow(kPowerBroadcast, kSuspend);
    lab.pauseService();  // the connection stays open, but unanswered
    let begin = performance.now();
    await logsAfter(program, kLost, () => lab.desktop.sendToWindow(kPowerBroadcast, kResumeAutomatic));
    const wokenMs = sinceMs(begin);
    assert.ok(wokenMs < 4_000, `${wokenMs} ms`);
    begin = performance.now();
    await logsAfter(program, kFound, async () => lab.continueService());
    t.diagnostic(`lost after ${Math.round(wokenMs)} ms, found ${Math.round(sinceMs(begin))} ms after the return`);
    assert.ok(!(await program.log()).slice(0, (await program.log()).indexOf('电脑已唤醒')).includes(kLost));

    await logsAfter(program, '电脑已锁定，软件继续运行。', () => lab.desktop.sendToWindow(kSessionChange, kLock));
    await logsAfter(program, '电脑已解锁。', () => lab.desktop.sendToWindow(kSessionChange, kUnlock));
    assert.equal(await program.state(), '在线');
  });

scenario('the end of the session stops the tunnel, clears the proxy list and leaves intact settings', {},
  async (lab, program, t) => {
    await lab.prefix.setProxyOverride('localhost', { namespace: lab.network.engineer });
    await lab.service.setGrant({
      connectionId: 'CONN-0001', assignedAddress: kTunnelAddress, routes: [kDirectRoute],
    });
    await connect(program);
    const list = () => lab.prefix.proxyOverride({ namespace: lab.network.engineer });
    assert.notEqual(await list(), 'localhost');

    assert.equal((await lab.desktop.sendToWindow(kQueryEndSession, 0)).answer, 1);
    assert.equal(await program.state(), '在线', 'it may still be called off');
    const { tookMs } = await lab.desktop.sendToWindow(kEndSession, 1);
    t.diagnostic(`ended in ${tookMs} ms`);
    assert.ok(tookMs < 3_000, `${tookMs} ms`);

    assert.equal(await list(), 'localhost');
    assert.match(await program.log(), /软件隧道已停止，设置已保存。\r\n/);
    const driver = await lab.driverLog();
    assert.equal(driver.match(/^open .*error=0/gm).length, driver.match(/^close /gm).length, driver);
    const settings = JSON.parse(await readFile(lab.prefix.settingsFile, 'utf8'));
    assert.equal(settings.connectionId, 'CONN-0001', 'the next connect reports its end');
  });

scenario('a second start brings the first window to the front and ends with 0', {},
  async (lab, program) => {
    const { id } = await waitUntil('the window', () => lab.display.clientArea(kTitle));
    const display = { env: { DISPLAY: lab.display.name } };
    await run(['xdotool', 'windowminimize', id], display);
    const state = async () => /Map State: (\w+)/.exec((await run(['xwininfo', '-id', id], display)).stdout)?.[1];
    await waitUntil('the minimised window', async () => (await state()) !== 'IsViewable');

    const logs = async () => (await readdir(program.folder, { recursive: true }))
      .filter((name) => name.endsWith('.log'));
    const before = await logs();
    const second = await lab.processes.start('second start',
      lab.prefix.command(lab.prefix.windowsPath(kProgramFile)), {
        namespace: lab.network.engineer, env: lab.windowsEnv, cwd: program.folder,
        log: path.join(lab.artifacts, 'second-start.log'),
      });
    assert.equal(await lab.processes.waitForExit(second, 15_000), 0);
    await waitUntil('the window in front', async () => (await state()) === 'IsViewable');
    // The window manager activates it a moment after showing it.
    await waitUntil('the active window', async () =>
      Number((await run(['xdotool', 'getactivewindow'], display)).stdout) === Number(id));
    assert.deepEqual(await logs(), before, 'the second start leaves no trace');
    assert.equal((await lab.display.windowTitles()).filter((title) => title === kTitle).length, 1);
  });

scenario('on a screen of 1366 x 768 the whole window is visible', { size: { width: 1366, height: 768 } },
  async (lab, program) => {
    const area = await waitUntil('the window', () => lab.display.clientArea(kTitle));
    assert.ok(area.x >= 0 && area.x + area.width <= 1366, JSON.stringify(area));
    assert.ok(area.y >= 0 && area.y + area.height <= 768, JSON.stringify(area));
    assert.ok(area.width > 1_200, JSON.stringify(area));
    await program.pointAndClick('#c-test');  // with the real mouse
    await program.waitForLog('通讯延迟');
    await lab.display.screenshot(path.join(lab.artifacts, 'small-screen.png'));
  });
