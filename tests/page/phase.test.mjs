// The connection's state as the page derives it from the window's messages, tested without a page.
import assert from 'node:assert/strict';
import { readdir, readFile } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { Random } from '../../lab/harness/random.mjs';
import { kJobButtons, kNativeTexts, nextChangeMs, seeMessage, startOfConnection, viewOf } from '../../webui/script/phase.js';
import { log, state } from './page_states.mjs';
import { kArmed, kConnecting, kGranted, kJobs, kRetrying, WindowModel } from './window_model.mjs';

const kRetryGoneMs = 12_000;
const kRefused = '\r\nConnection authorization failed: 设备离线';
const kUnreachable = 'Error: WinHttpReceiveResponse: 无法与服务器建立连接';
const kIdle = { phase: 'idle', job: null, tone: '', tag: '', waiting: [], resting: true, offer: 'connect' };

const seeAll = (messages, nowMs = 0, seen = startOfConnection()) =>
  messages.reduce((before, message) => seeMessage(before, message, nowMs, '12:00:00'), seen);
const viewAfter = (messages, nowMs = 0) => viewOf(seeAll(messages), nowMs);

const busy = (text, tunnel = 'off') => [state(tunnel, text), log('12:00:00', text, text === kRetrying ? 'wn' : '')];
const result = (text, cls = '', tunnel = 'off') => [state(tunnel, text), log('12:00:00', text, cls)];
const armed = log('12:00:00', kArmed, 'wn');
const refusal = result(kRefused);

/** Rows of [name, messages, what the view must hold]. */
function table(rows) {
  for (const [name, messages, wanted] of rows) {
    test(name, () => {
      const view = viewAfter(messages);
      const told = Object.fromEntries(Object.keys(wanted).map((key) => [key, view[key]]));
      assert.deepEqual(told, wanted);
    });
  }
}

test('before the first message nothing is going on', () => {
  assert.deepEqual(viewOf(startOfConnection(), 0), kIdle);
  assert.equal(nextChangeMs(startOfConnection(), 0), null);
});

// ---- the side panel

const sidePanel = (side) => ({ t: 'state', side });
table([
  ['on is online', [sidePanel({ on: true })], { phase: 'online', tag: '', offer: 'stop', resting: false }],
  ['on wins over an error', [sidePanel({ on: true, err: true })], { phase: 'online' }],
  ['only true is on', [sidePanel({ on: 1 }), sidePanel({ on: 'true' })], { phase: 'idle' }],
  ['an error', [sidePanel({ err: true })], { phase: 'error', tag: '出错', offer: 'connect', resting: false }],
  ['an error wins over a link that is down', [sidePanel({ err: true, detail: '软件隧道正在自动重连' })], { phase: 'error' }],
  ['a tunnel without its link', [state('down', '就绪。')],
    { phase: 'reconnecting', tag: '自动重连', offer: 'stop', resting: false }],
  ['a message without a detail leaves it', [state('down', '就绪。'), sidePanel({})], { phase: 'reconnecting' }],
  ['another detail ends it', [state('down', '就绪。'), state('off', '就绪。')], kIdle],
  ['a message without a side panel is not on', [state('up', '就绪。'), { t: 'state' }], { phase: 'idle' }],
  ['a message without a status leaves it', [...busy('正在测试通讯延迟...'), sidePanel({})], { job: 'c-test' }],
  ['a status that is null leaves it', [...busy('正在测试通讯延迟...'), { t: 'state', statusline: null }], { job: 'c-test' }],
]);

// ---- jobs

for (const [text, button] of kJobs) {
  for (const tunnel of ['off', 'up', 'down']) {
    test(`${text} with the tunnel ${tunnel} keeps ${button} busy and the others waiting`, () => {
      const view = viewAfter(busy(text, tunnel));
      assert.equal(view.job, button);
      assert.equal(view.resting, false);
      const isTry = text === kRetrying && tunnel === 'off';
      assert.deepEqual(view.waiting, kJobButtons.filter((id) => id !== button && !(text === kRetrying && id === 'c-stop')));
      const tag = { off: isTry ? '自动重试' : '处理中', up: '处理中', down: '自动重连' }[tunnel];
      assert.equal(view.tag, tag);
      assert.equal(view.offer, tunnel === 'off' && !isTry ? 'connect' : 'stop');
    });
  }
}

table([
  ['a result that only begins like a running job is a result', result('正在请求连接授权...\r\n完成'), kIdle],
  ['a job that only the log knows does not run', [log('12:00:00', kConnecting)], kIdle],
  ['connecting by hand while retrying keeps ending waiting', [...refusal, armed, ...busy(kConnecting)],
    { phase: 'retrying', job: 'c-connect', waiting: ['c-stop', 'c-test', 'c-desktop', 'c-fetch'] }],
]);

// ---- the tone of the status line

for (const cls of ['ok', 'wn', 'er']) {
  test(`a log line with the status line's text gives it the tone ${cls}`, () => {
    const told = result('一行', cls);
    assert.equal(viewAfter([told[0]]).tone, '');
    assert.equal(viewAfter(told).tone, cls);
    assert.equal(viewAfter([...told, told[0]]).tone, cls, 'told again');
    assert.equal(viewAfter([...told, log('12:00:00', '一行')]).tone, cls, 'a plain line');
    assert.equal(viewAfter([...told, log('12:00:00', '别的一行', 'er')]).tone, cls, 'another line');
    assert.equal(viewAfter([...told, state('off', '下一行')]).tone, '', 'the next status');
  });
}

table([
  ['a class that is no tone changes nothing', result('一行', 'off'), { tone: '' }],
  ['a refusal is red before the log has it', [state('off', kRefused)], { tone: 'er' }],
  ['a refusal whose reason holds a word of success stays red',
    [...busy(kConnecting), ...result('\r\nConnection authorization failed: 设备不在线', 'ok')], { tone: 'er', phase: 'failed' }],
  ['a refusal whose reason holds a word of warning stays red',
    [...busy(kConnecting), ...result('\r\nConnection authorization failed: 请等待', 'wn')], { tone: 'er', phase: 'failed' }],
  ['a refused resolve is red', [...busy('正在获取现场端网段...'), ...result('Resolve failed: 密钥无效')], { tone: 'er' }],
  ['an error of unknown kind is red', [...busy('正在测试通讯延迟...'), ...result('Unknown error.')], { tone: 'er' }],
]);

// ---- connecting has failed

const kFailures = [[kUnreachable, 'er'], [kRefused, ''], ['Unknown error.', ''],
  ['\r\n会话断开上报失败：超时\r\nConnection authorization failed: 设备离线', 'er'],
  ['Error: 驱动加载失败', 'er'], ['Error: No valid target routes were configured.', 'er']];
for (const [text, cls] of kFailures) {
  for (const [job, button] of kJobs) {
    const connects = button === 'c-connect';
    const name = `${JSON.stringify(text)} after ${job} is ${connects ? '' : 'not '}a failed connection`;
    test(name, () => {
      // A try's end alone would count as retrying; expected here is the state without a further try.
      const seen = seeAll([...busy(job), ...result(text, cls)]);
      const view = viewOf(seen, kRetryGoneMs);
      assert.equal(view.phase, connects ? 'failed' : 'idle');
      assert.equal(view.tag, connects ? '未成功' : '');
      assert.equal(view.tone, 'er');
      assert.equal(view.resting, false);
      assert.equal(view.offer, 'connect');
    });
  }
}

const failed = [...busy(kConnecting), ...result(kUnreachable, 'er')];
table([
  ['the job may be known from the log alone',
    [log('12:00:00', kConnecting), ...result(kUnreachable, 'er')], { phase: 'failed' }],
  ['lines of a running job do not hide it',
    [...busy(kConnecting), log('12:00:00', '警告：一', 'wn'), ...result(kUnreachable, 'er')],
    { phase: 'failed' }],
  ['a refusal speaks for itself when its job is unknown', refusal, { phase: 'failed' }],
  ['any other failure without a job does not', result(kUnreachable, 'er'), { phase: 'idle', tone: 'er', resting: false }],
  ['a resolve that fails without a job does not either', result('Resolve failed: x'), { phase: 'idle', tone: 'er' }],
  ['the next job ends it', [...failed, ...busy('正在获取现场端网段...')], { phase: 'idle', job: 'c-fetch', tone: '' }],
  ['the result of the next job is that job\'s', [...failed, ...busy('正在测试通讯延迟...'), ...result('通讯延迟测试失败：x', 'er')],
    { phase: 'idle', tone: 'er' }],
  ['even one whose own line is red',
    [...failed, ...result(kConnecting, 'er')], { phase: 'idle', job: 'c-connect', tone: 'er' }],
  ['any other status ends it', [...failed, ...result('档案已保存。', 'ok')], { phase: 'idle', tone: 'ok', resting: true }],
  ['one job has one result', [...failed, ...result('Error: 别的', 'er')], { phase: 'idle', tone: 'er' }],
  ['failing to end a connection is no failed connection',
    [...busy('正在停止软件隧道...'), ...result('软件隧道已停止。\r\n会话断开上报失败：超时', 'er')],
    { phase: 'idle', tone: 'er', resting: false, offer: 'connect' }],
  ['a connection that came about after a report that failed has not failed',
    [...busy(kConnecting), ...result(`\r\n会话断开上报失败：超时\r\n${kGranted}9f3c`, 'er', 'up'), state('off', undefined)],
    { phase: 'idle', tone: 'er' }],
  ['a failure while the old tunnel stands is shown in the status line only',
    [...busy(kConnecting, 'up'), ...result(kRefused, '', 'up')],
    { phase: 'online', tone: 'er', offer: 'stop' }],
]);

// ---- retrying

const retrying = [...busy(kConnecting), ...refusal, armed];
const aTry = [...busy(kRetrying), ...refusal];
table([
  ['retrying begins with its line in the log', retrying,
    { phase: 'retrying', tag: '自动重试', offer: 'stop', resting: false, waiting: [] }],
  ['a try leaves ending alone', [...retrying, ...busy(kRetrying)],
    { phase: 'retrying', job: 'c-connect', waiting: ['c-test', 'c-desktop', 'c-fetch'], tone: 'wn' }],
  ['a try that failed goes on', [...retrying, ...aTry], { phase: 'retrying', tone: 'er' }],
  ['a page that starts in the middle of a try knows it', [state('off', kRetrying)], { phase: 'retrying', job: 'c-connect' }],
  ['a connection ends it', [...retrying, ...busy(kRetrying), ...result(kGranted, 'ok', 'up')], { phase: 'online' }],
  ['for good', [...retrying, ...busy(kRetrying), ...result(kGranted, 'ok', 'up'), state('off', kGranted)], { phase: 'idle' }],
  ['so does one that is gone at once',
    [...retrying, ...busy(kRetrying), ...result(kGranted, 'ok')], { phase: 'idle', tone: 'ok' }],
  ['a tunnel that still stands hides it',
    [...busy(kConnecting, 'up'), ...result(kRefused, '', 'up'), armed], { phase: 'online' }],
  ['until it is gone', [...busy(kConnecting, 'up'), ...result(kRefused, '', 'up'), armed, state('off', kRefused)],
    { phase: 'retrying' }],
]);

test('retrying is over when no further try is seen', () => {
  const seen = seeAll(retrying, 1_000);
  assert.equal(nextChangeMs(seen, 1_000), kRetryGoneMs);
  assert.equal(viewOf(seen, 12_999).phase, 'retrying');
  assert.equal(nextChangeMs(seen, 12_999), 1);
  assert.equal(viewOf(seen, 13_000).phase, 'failed');
  assert.equal(nextChangeMs(seen, 13_000), null);
});

test('telling the same state again is no try', () => {
  const seen = seeAll([state('off', kRefused), log('12:00:05', kRefused)], 8_000, seeAll(retrying, 0));
  assert.equal(viewOf(seen, 12_000).phase, 'failed');
});

test('a try lasts as long as it takes, and counts from its end', () => {
  const during = seeAll(busy(kRetrying), 5_000, seeAll(retrying, 0));
  assert.equal(nextChangeMs(during, 5_000), null);
  assert.equal(viewOf(during, 90_000).phase, 'retrying');
  const after = seeAll(refusal, 90_000, during);
  assert.equal(viewOf(after, 101_999).phase, 'retrying');
  assert.equal(viewOf(after, 102_000).phase, 'failed');
});

test('another job in between holds the tries back and does not end them', () => {
  const during = seeAll(busy('正在测试通讯延迟...'), 4_000, seeAll(retrying, 0));
  assert.equal(viewOf(during, 60_000).phase, 'retrying');
  const after = seeAll(result('通讯延迟测试超时：10.0.0.1'), 60_000, during);
  assert.equal(viewOf(after, 71_999).phase, 'retrying');
  assert.equal(viewOf(after, 72_000).phase, 'idle');
});

test('a job after the end of retrying does not bring it back', () => {
  const during = seeAll(busy('正在测试通讯延迟...'), 20_000, seeAll(retrying, 0));
  assert.equal(viewOf(during, 20_000).phase, 'idle');
  assert.equal(viewOf(seeAll(result('通讯延迟 23 ms'), 21_000, during), 21_000).phase, 'idle');
});

// ---- the log of a page before

const logs = (...lines) => ({ t: 'logs', lines });
/** The record of a page that at 12:00:30 receives `status` and then `lines`. */
const seeLog = (status, lines) => [state('off', status), logs(...lines)].reduce(
  (seen, message) => seeMessage(seen, message, 0, '12:00:30'), startOfConnection());
const kPastRows = [
  ['its last job was connecting', kUnreachable, [['11:00:00', kConnecting, ''], ['11:00:01', kUnreachable, 'er']], 'failed'],
  ['other lines stand between', kUnreachable,
    [['11:00:00', kConnecting, ''], ['11:00:01', '警告：一', 'wn'], ['11:00:02', kUnreachable, 'er'],
      ['11:00:03', '后来', '']], 'failed'],
  ['its last job was another one', kUnreachable,
    [['11:00:00', kConnecting, ''], ['11:00:01', kRefused, ''], ['11:05:00', '正在请求远程桌面...', ''],
      ['11:05:01', kUnreachable, 'er']], 'idle'],
  ['it no longer has the job', kUnreachable, [['11:00:01', kUnreachable, 'er']], 'idle'],
  ['it no longer has the job of a refusal', kRefused, [['11:00:01', kRefused, '']], 'failed'],
  ['it does not have the status line', kUnreachable, [['11:00:00', kConnecting, '']], 'idle'],
  ['retrying began just now', kRefused,
    [['12:00:18', kConnecting, ''], ['12:00:19', kRefused, ''], ['12:00:19', kArmed, 'wn']], 'retrying'],
  ['retrying began too long ago', kRefused,
    [['12:00:10', kConnecting, ''], ['12:00:18', kRefused, ''], ['12:00:18', kArmed, 'wn']], 'failed'],
  ['retrying began a day ago', kRefused,
    [['12:00:29', kConnecting, ''], ['12:00:29', kRefused, ''], ['12:00:29', kArmed, 'wn'], ['12:00:20', '后来', '']], 'failed'],
  ['a long try ended just now', kRefused,
    [['11:59:00', kConnecting, ''], ['11:59:01', kRefused, ''], ['11:59:01', kArmed, 'wn'], ['11:59:06', kRetrying, 'wn'],
      ['12:00:25', kRefused, '']], 'retrying'],
  ['another job has held the tries back', '通讯延迟 23 ms',
    [['11:59:01', kRefused, ''], ['11:59:01', kArmed, 'wn'], ['11:59:03', '正在测试通讯延迟...', ''],
      ['12:00:25', '通讯延迟 23 ms', '']], 'retrying'],
  ['a try has succeeded and the tunnel was ended', '软件隧道已停止。',
    [['12:00:15', kArmed, 'wn'], ['12:00:20', kRetrying, 'wn'], ['12:00:21', kGranted, 'ok'], ['12:00:22', 'UDP 通道已就绪', 'ok'],
      ['12:00:25', '正在停止软件隧道...', ''], ['12:00:26', '软件隧道已停止。', '']], 'idle'],
  ['retrying had ended before its last job', '通讯延迟 23 ms',
    [['11:59:50', kRetrying, 'wn'], ['11:59:51', kRefused, ''], ['12:00:00', '后来', ''], ['12:00:05', '正在测试通讯延迟...', ''],
      ['12:00:28', '通讯延迟 23 ms', '']], 'idle'],
  ['nothing, in the middle of a try', kRetrying, [], 'retrying'],
  ['its times cannot be read', kRefused, [['', kConnecting, ''], [null, kRefused, ''], ['now', kArmed, 'wn']], 'failed'],
];
for (const [name, status, lines, wanted] of kPastRows) {
  test(`a page whose log tells that ${name} is ${wanted}`, () => {
    assert.equal(viewOf(seeLog(status, lines), 0).phase, wanted);
  });
}

test('a line that explains a result changes nothing, also before the next job', () => {
  const told = [['12:00:18', kArmed, 'wn'], ['12:00:20', kRetrying, 'wn'], ['12:00:21', kUnreachable, 'er'],
    ['12:00:22', '正在测试通讯延迟...', '']];
  for (const lines of [told.slice(0, 3), told]) {
    const explained = lines.toSpliced(3, 0, ['12:00:21', '提示：连不上中心服务。', '']);
    assert.deepEqual(seeLog(kUnreachable, explained), seeLog(kUnreachable, lines));
    assert.deepEqual(seeLog(told[3][1], explained), seeLog(told[3][1], lines));
  }
  const seen = seeAll([...busy(kConnecting), ...result(kUnreachable, 'er')]);
  assert.equal(seeMessage(seen, log('12:00:00', '提示：连不上中心服务。', ''), 1, ''), seen);
});

test('midnight is no gap', () => {
  const told = [state('off', kRefused), logs(['23:59:55', kRefused, ''], ['23:59:55', kArmed, 'wn'])];
  const seen = told.reduce((before, message) => seeMessage(before, message, 500, '00:00:05'), startOfConnection());
  assert.equal(nextChangeMs(seen, 500), 2_000);
});

test('the tone of the status line is that of its line', () => {
  const told = [state('off', '一行'), logs(['11:00:00', '前', 'wn'], ['11:00:00', '一行', 'ok'], ['11:00:00', '后', 'er'])];
  assert.equal(viewAfter(told).tone, 'ok');
});

test('a line that says nothing new leaves the record as it is', () => {
  const seen = seeAll([...busy(kConnecting), ...result('一行', 'ok')]);
  assert.equal(seeMessage(seen, log('12:00:00', '一行', 'ok'), 1, ''), seen);
  assert.equal(seeMessage(seen, log('12:00:00', '别的', 'er'), 1, ''), seen);
});

// ---- chance

/** A page that receives `messages` in this second of the model. */
const seeAt = (model, messages, seen = startOfConnection()) =>
  messages.reduce((before, message) => seeMessage(before, message, model.second * 1000, model.clock), seen);

/** Compares what the window knows with what the page shows. */
function assertTrue(model, view) {
  assert.equal(view.job, model.job ? kJobs.find(([text]) => text === model.job.text)[1] : null);
  if (model.tunnel !== 'off') return assert.equal(view.phase, model.tunnel === 'up' ? 'online' : 'reconnecting');
  if (model.armedAt !== null) return assert.equal(view.phase, 'retrying');
  const settled = model.hasFailedToConnect ? 'failed' : 'idle';
  if (model.second - model.quietSince >= kRetryGoneMs / 1000) return assert.equal(view.phase, settled);
  assert.ok([settled, 'retrying'].includes(view.phase), view.phase);
}

for (let seed = 1; seed <= 60; seed += 1) {
  test(`whatever the window does, the page tells what is true, and so does the page after it (${seed})`, () => {
    const random = new Random(seed);
    const model = new WindowModel(random, Math.floor(random.share() * 24 * 3600));
    let seen = seeAt(model, [model.stateMessage()]);
    for (let i = 0; i < 250; i += 1) {
      seen = seeAt(model, model.pass(), seen);
      const view = viewOf(seen, model.second * 1000);
      const where = `second ${model.second} at ${model.clock}: ${JSON.stringify(model.lines.slice(-6))}`;
      try {
        assertTrue(model, view);
        assert.deepEqual(viewOf(seeAt(model, model.welcome()), model.second * 1000), view, 'the page after it');
      } catch (error) {
        throw new Error(`${where}: ${error.message}`, { cause: error });
      }
    }
  });
}

/** Any value, mostly in the shape of a message. */
function anyMessage(random) {
  const texts = [...kJobs.map(([text]) => text), kArmed, kRefused, kUnreachable, kGranted, '就绪。', '', 'x'];
  const value = () => random.choice([...texts, null, undefined, 0, 1, true, {}, [], [[]], { toString: 1 }, '__proto__']);
  const side = () => random.choice([null, 'x', 1, [], {}, { on: true }, { on: value(), err: value(), detail: value() },
    { detail: '软件隧道正在自动重连' }]);
  const cls = () => random.choice(['', 'ok', 'wn', 'er', 'off', 'er x', null, {}]);
  const ts = () => random.choice(['12:00:00', '11:59:55', '23:59:59', '', 'x', 7, null]);
  const line = () => random.choice([[ts(), value(), cls()], [ts(), value(), cls()], [], [[]], null, 'x', {}]);
  const lines = () => random.choice([Array.from({ length: random.share() * 9 }, line), value()]);
  return random.choice([
    () => ({ t: 'state', side: side(), statusline: value() }), () => ({ t: 'state', side: side(), statusline: value() }),
    () => ({ t: 'log', ts: ts(), msg: value(), cls: cls() }), () => ({ t: 'logs', lines: lines() }),
    () => ({ t: value() }), value,
  ])();
}

/** Invariants of every view, whatever came before. */
function assertSound(seen, view, nowMs) {
  assert.ok([seen, view, view.waiting].every(Object.isFrozen));
  assert.ok(['online', 'error', 'reconnecting', 'retrying', 'failed', 'idle'].includes(view.phase));
  assert.ok(['', 'ok', 'wn', 'er'].includes(view.tone));
  assert.equal(view.offer, ['online', 'reconnecting', 'retrying'].includes(view.phase) ? 'stop' : 'connect');
  assert.equal(view.resting, view.phase === 'idle' && !view.job && view.tone !== 'er');
  assert.ok(view.job ? view.waiting.length >= 3 && !view.waiting.includes(view.job) : view.waiting.length === 0);
  if (view.phase === 'failed') assert.ok(view.tone === 'er' && view.job === null);
  const waitMs = nextChangeMs(seen, nowMs);
  if (waitMs === null) return assert.deepEqual(viewOf(seen, nowMs + 1e9), view);
  assert.ok(waitMs > 0 && waitMs <= kRetryGoneMs);
  assert.deepEqual(viewOf(seen, nowMs + waitMs - 1), view);
  assert.notEqual(viewOf(seen, nowMs + waitMs).phase, 'retrying');
}

for (let seed = 1; seed <= 60; seed += 1) {
  test(`whatever is said, the page stays sound (${seed})`, () => {
    const random = new Random(seed);
    let seen = startOfConnection();
    for (let i = 0, nowMs = 0; i < 300; i += 1) {
      const message = anyMessage(random);
      const before = JSON.stringify([seen, message]);
      const next = seeMessage(seen, message, nowMs, '12:00:00');
      assert.equal(JSON.stringify([seen, message]), before, 'nothing handed in is changed');
      if (!['state', 'log', 'logs'].includes(message?.t)) assert.equal(next, seen);
      seen = next;
      assertSound(seen, viewOf(seen, nowMs), nowMs);
      nowMs += Math.floor(random.share() ** 3 * 20_000);
    }
  });
}

// ---- the program's own words

/** The C++ sources of the program, whose texts the page reads. */
async function programSources() {
  const folder = path.join(import.meta.dirname, '../../src');
  const names = (await readdir(folder, { recursive: true })).filter((name) => name.endsWith('.cpp'));
  return (await Promise.all(names.map((name) => readFile(path.join(folder, name), 'utf8')))).join('\n');
}

test('every text that it reads the connection from is one that the program sends', async () => {
  const sources = await programSources();
  const { busy: running, whole, starts } = kNativeTexts;
  assert.ok(running.length === 6 && whole.length === 3 && starts.length === 3);
  for (const text of [...running, ...whole]) assert.ok(sources.includes(`L"${text}"`), text);
  for (const text of starts) assert.ok(sources.includes(`L"${text}`), text);
});

test('every text that the program shows while a job runs is known', async () => {
  const shown = [...(await programSources()).matchAll(/\bk\w+Busy\[\] = L"(.+)";/g)].map(([, text]) => text);
  assert.deepEqual(shown.toSorted(), kNativeTexts.busy.toSorted());
});

test('the status line of the program is a running job, its result, or nothing yet', async () => {
  const set = [...(await programSources()).matchAll(/lastMessage = (.+);/g)].map(([, text]) => text);
  assert.deepEqual(set, ['busyText', 'text']);
});
