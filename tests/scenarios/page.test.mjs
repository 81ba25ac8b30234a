// The page in the real window shows the program's state at a glance, at each step of a day.
import assert from 'node:assert/strict';
import path from 'node:path';

import { kTunnelAddress } from '../../lab/harness/network.mjs';
import { kTitle, waitUntil } from '../../lab/harness/program.mjs';
import { clickConnect, connect, kDeviceSecret, scenario } from './scenario.mjs';

const kBusy = { connect: '正在请求连接授权...' };

/** {phase, job, busy, tag, status}: the program's state for the style sheet. */
const seen = async (program) => JSON.parse(await program.page.evaluate(`JSON.stringify({
  phase: document.body.dataset.phase, job: document.body.hasAttribute('data-job'),
  busy: [...document.querySelectorAll('[aria-busy]')].map(({ id }) => id),
  tag: document.querySelector('#s-tag').textContent, status: document.querySelector('#c-statusline').textContent })`));

async function shows(program, wanted, timeoutMs = 30_000) {
  let last;
  await waitUntil(`the page showing ${JSON.stringify(wanted)}`, async () => {
    last = await seen(program);
    return Object.entries(wanted).every(([key, value]) => JSON.stringify(last[key]) === JSON.stringify(value));
  }, timeoutMs).catch((error) => { throw new Error(`${error.message}; shows ${JSON.stringify(last)}`); });
  return last;
}

scenario('idle, working, online, reconnecting, online again and idle are each shown as such', {}, async (lab, program, t) => {
  await shows(program, { phase: 'idle', job: false, busy: [], tag: '' });
  await lab.pauseService();
  await clickConnect(program);
  t.diagnostic(JSON.stringify(await shows(program, { phase: 'idle', job: true, busy: ['c-connect'], tag: '处理中', status: kBusy.connect })));
  await program.click('#c-test');  // dropped by the window
  await lab.continueService();
  t.diagnostic(JSON.stringify(await shows(program, { phase: 'online', job: false, busy: [], tag: '' })));
  assert.doesNotMatch(await program.log(), /通讯延迟/);
  await lab.killService();
  t.diagnostic(JSON.stringify(await shows(program, { phase: 'reconnecting', job: false, tag: '自动重连' })));
  await lab.restartService();
  await shows(program, { phase: 'online', job: false, tag: '' });
  await program.click('#c-stop');
  await shows(program, { phase: 'idle', job: false, busy: [], tag: '' });
});

scenario('a refusal that is retried is shown until it is granted', {}, async (lab, program, t) => {
  await lab.service.refuseNext({ code: 'DEVICE_OFFLINE', message: '设备离线', times: 2 });
  await clickConnect(program);
  t.diagnostic(JSON.stringify(await shows(program, { phase: 'retrying', tag: '自动重试' })));
  await shows(program, { phase: 'online', tag: '' });
});

scenario('a failed connection is shown as failed until the next action', {}, async (lab, program) => {
  await lab.service.stopListening();
  await clickConnect(program);
  await shows(program, { phase: 'failed', job: false, tag: '未成功' });
  await lab.service.resumeListening();
  await connect(program);
  await shows(program, { phase: 'online', tag: '' });
});

scenario('the page fills the window without being cut off', {}, async (lab, program) => {
  const { findCut, findOverlaps } = await import('../page/page_geometry.mjs');
  await connect(program);
  const area = await lab.display.clientArea(kTitle);
  const inner = JSON.parse(await program.page.evaluate('JSON.stringify([innerWidth, innerHeight])'));
  assert.deepEqual(inner, [area.width, area.height]);
  for (const find of [findCut, findOverlaps]) {
    assert.deepEqual(JSON.parse(await program.page.evaluate(`JSON.stringify((${find})())`)), []);
  }
  await lab.display.screenshot(path.join(lab.artifacts, 'online.png'));
});

/** Waits until the clipboard offers `text` to another program. */
async function isOnClipboard(lab, text) {
  let held;
  await waitUntil(`${text} on the clipboard`, async () => {
    held = await lab.desktop.clipboard.read();
    return held === text;
  }).catch((error) => { throw new Error(`${error.message}; it holds ${held}`); });
}

scenario('other programs can paste a clicked value and a copied selection', {}, async (lab, program) => {
  await connect(program);
  assert.equal(await program.card('组网 IP'), kTunnelAddress);
  await program.pointAndClick('#s-cards li:nth-child(2) .v');
  await isOnClipboard(lab, kTunnelAddress);
  await program.pointAndClick('#c-secret');
  await lab.display.key('ctrl+a');
  await lab.display.key('ctrl+c');
  await isOnClipboard(lab, kDeviceSecret);
});
