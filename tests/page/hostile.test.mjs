// Malformed and hostile messages: whatever arrives, the page stays whole and shows the next good one.
import assert from 'node:assert/strict';

import { Random } from '../../lab/harness/random.mjs';
import { pageTest, useBrowser } from './browser_page.mjs';
import { apply, log, state } from './page_states.mjs';

useBrowser();

/** What no message may change: the elements with ids, anything executable, dangerous attributes, the class names. */
const frameOf = (page) => page.view.evaluate(() => {
  const all = [...document.querySelectorAll('*')];
  const names = new Set(all.flatMap((element) => element.getAttributeNames()));
  return {
    ids: all.map(({ id }) => id).filter(Boolean),
    foreign: all.filter((element) => element.matches('img, iframe, object, embed, link, a, form, script ~ script')).length,
    attributes: [...names].filter((name) => name.startsWith('on')),
    classes: all.flatMap((element) => [...element.classList]).filter((word) => !/^[\w-]+$/.test(word)),
  };
});

/** One good message of each kind, distinguished by `mark`, with its expected effect. */
async function checkRound(page, mark, frame) {
  await page.deliverAll([
    state('up', `状态 ${mark}`), apply({ secret: `KEY-${mark}`, profiles: [`站 ${mark}`], profileSel: `站 ${mark}` }),
    log('02:14:31', `日志 ${mark}`, 'ok'),
  ]);
  assert.equal(await page.text('s-state'), '在线');
  assert.equal(await page.text('s-logo'), 'Velmarine.Client');
  assert.equal(await page.text('c-statusline'), `状态 ${mark}`);
  assert.equal((await page.cards()).length, 5);
  assert.equal(await page.value('c-secret'), `KEY-${mark}`);
  assert.equal(await page.value('c-profiles'), `站 ${mark}`);
  for (const id of ['c-log', 'full-log']) assert.deepEqual((await page.log(id)).at(-1), ['02:14:31', `日志 ${mark}`, 'ok']);
  assert.ok(await page.isVisible('pane-client'));
  assert.deepEqual(await frameOf(page), frame);
  assert.deepEqual(page.errors, []);
}

// ---- messages by chance, the same ones in every run

const kTexts = ['', ' ', '\r\n', '\u0000', '\ud83d', '\u202e逆', '自动', '在线', 'ALL', 'client', 'edge', 'ok', 'er" onmouseover="window.hacked=1',
  'ok wn', '<img src=x onerror="window.hacked=1">', '</script><script>window.hacked=1</script>', '&amp;&#60;', '正在请求连接授权...',
  '授权未恢复，将每 5 秒自动重试连接。', '软件隧道正在自动重连', '25:61:61', '{"t":"state"}', 'constructor', 'x'.repeat(20_000)];
const kKeys = ['role', 'side', 'logo', 'sub', 'on', 'err', 'state', 'detail', 'foot', 'cards', 'k', 'v', 'cls', 'statusline', 'fields',
  'secret', 'testip', 'profileName', 'targets', 'target', 'discovery', 'profiles', 'profileSel', 'devname', 'manual', 'nics',
  'nicSel', 'shared', 'autostart', 'ts', 'msg', 'lines', '__proto__', 'constructor', 'toString', 'valueOf', 'length', 'map'];
const kShapes = { state: ['role', 'side', 'statusline'], apply: ['role', 'fields'], log: ['ts', 'msg', 'cls'], logs: ['lines'],
  init: ['role'] };

/** Writes JSON texts: only a text can have two members of one name, or one named __proto__. */
class Chance extends Random {
  upTo(count) { return Math.floor(this.share() * count); }

  value(depth = 0) {
    const kind = this.upTo(depth > 4 ? 6 : 10);
    if (kind < 3) return JSON.stringify(this.choice(kTexts));
    if (kind < 6) return this.choice(['null', 'true', 'false', '0', '-1', '1e308', '0.1', '[]', '{}', '{"toString":1,"valueOf":1}']);
    if (kind < 8) return `[${Array.from({ length: this.upTo(5) }, () => this.value(depth + 1)).join()}]`;
    return this.object(Array.from({ length: this.upTo(8) }, () => this.choice(kKeys)), depth + 1);
  }

  object(keys, depth) { return `{${keys.map((key) => `${JSON.stringify(key)}:${this.value(depth)}`).join()}}`; }

  /** Mostly of a shape that gets far into the page. */
  message() {
    const kind = this.choice(Object.keys(kShapes));
    const t = this.share() < 0.95 ? JSON.stringify(kind) : this.value();
    const members = kShapes[kind].map((key) => {
      const isDeep = ['side', 'fields'].includes(key) && this.share() < 0.8;
      return `${JSON.stringify(key)}:${isDeep ? this.object(kKeys, 1) : this.value()}`;
    });
    const text = `{"t":${t},${members.join()}}`;
    return this.share() < 0.05 ? text.slice(0, this.upTo(text.length)) : text;
  }
}

for (const seed of [1, 2, 3, 4]) {
  pageTest(`any 200 messages leave the page whole (seed ${seed})`, async (page) => {
    const frame = await frameOf(page);
    const chance = new Chance(seed);
    for (let batch = 0; batch < 5; batch += 1) {
      const texts = Array.from({ length: 40 }, () => chance.message());
      await page.view.evaluate((all) => all.forEach((text, i) => {
        let data = text;
        try { if (i % 2) data = JSON.parse(text); } catch { /* as a text, then */ }
        window.deliver(data);
      }), texts);
      await checkRound(page, `${seed}-${batch}`, frame);
    }
    assert.equal(await page.view.evaluate(() => window.hacked), undefined);
  });
}

// ---- messages with a purpose

const kObject = '{"toString":1,"valueOf":1}';
const kDeep = `${'['.repeat(50_000)}${']'.repeat(50_000)}`;
const kFields = (value) => `{${['secret', 'testip', 'profileName', 'targets', 'target', 'discovery', 'profiles', 'profileSel', 'devname',
  'manual', 'nics', 'nicSel', 'shared', 'autostart'].map((key) => `"${key}":${value}`).join()}}`;
const kSide = (value) => `{${['logo', 'sub', 'on', 'err', 'state', 'detail', 'foot', 'cards'].map((key) => `"${key}":${value}`).join()}}`;
const everywhere = (value) => [
  `{"t":"log","ts":${value},"msg":${value},"cls":${value}}`, `{"t":"logs","lines":${value}}`,
  `{"t":"logs","lines":[${value},[${value},${value},${value}]]}`, `{"t":"init","role":${value}}`,
  `{"t":"state","role":${value},"side":${kSide(value)},"statusline":${value}}`, `{"t":"state","side":${value}}`,
  `{"t":"state","side":{"cards":[${value},{"k":${value},"v":${value},"cls":${value}}]}}`,
  `{"t":"apply","role":${value},"fields":${kFields(value)}}`, `{"t":"apply","fields":${value}}`,
  `{"t":"apply","role":"edge","fields":${kFields(value)}}`, `{"t":"apply","fields":${kFields(`[${value}]`)}}`, `{"t":${value}}`,
];
const kPurposes = {
  'objects that are no texts': everywhere(kObject), 'deep nesting': everywhere(kDeep), 'empty lists': everywhere('[]'),
  'truth': everywhere('true'), 'numbers': everywhere('1e999'), 'its own prototype': everywhere('{"__proto__":{"toString":1}}'),
  'prototypes of messages': ['{"__proto__":{"t":"state"},"t":"log"}', '{"__proto__":null,"t":"log","msg":{"__proto__":[]}}'],
  'ten thousand cards': [`{"t":"state","side":{"cards":${JSON.stringify(Array(10_000).fill({ k: '键', v: '值', cls: 'ok' }))}}}`],
  'ten thousand null cards': [`{"t":"state","side":{"cards":${JSON.stringify(Array(10_000).fill(null))}}}`],
  'ten thousand profiles': [`{"t":"apply","fields":${kFields(JSON.stringify(Array(10_000).fill('站')))}}`],
  'a huge text': everywhere(JSON.stringify('大'.repeat(100_000))),
};
for (const [name, texts] of Object.entries(kPurposes)) {
  pageTest(`stays whole after ${name}`, async (page) => {
    const frame = await frameOf(page);
    for (const [i, text] of texts.entries()) {
      await page.deliver(text);
      await page.view.evaluate((given) => window.deliver(JSON.parse(given)), text);
      await checkRound(page, i, frame);
    }
    assert.equal(await page.view.evaluate(() => Object.keys(Object.prototype).length), 0);
  });
}

pageTest('an event without data, or with what JSON cannot hold, is no message', async (page) => {
  const frame = await frameOf(page);
  await page.view.evaluate(() => [undefined, null, 5, () => 0, Symbol('s'), new Date(NaN), new Map(), document].forEach(window.deliver));
  await checkRound(page, 'data', frame);
});

for (const value of [kObject, kDeep, '[]', 'null', '5', '{"__proto__":1}', '"<b>"']) {
  pageTest(`typed fields of ${value.slice(0, 20)} from a page before leave the form in use`, async (page) => {
    await page.deliverAll([`{"t":"form","fields":${value}}`, `{"t":"form","fields":${kFields(value)}}`]);
    await page.deliverAll([state('up', '就绪。'), log('02:14:31', '还在', 'ok')]);
    await page.fill('c-secret', 'KEY-1');
    await page.takePosted();
    await page.click('c-connect');
    assert.equal(JSON.parse((await page.takePosted())[0]).f.secret, 'KEY-1');
    assert.deepEqual((await page.log()).at(-1), ['02:14:31', '还在', 'ok']);
  });
}

pageTest('what is no text is shown as none, numbers and truth as they are written', async (page) => {
  for (const msg of [{}, { toString: 1 }, [], ['x'], null]) await page.deliver({ t: 'log', ts: msg, msg, cls: msg });
  await page.deliverAll([{ t: 'log', ts: 1, msg: 0, cls: 2 }, { t: 'log', ts: true, msg: false, cls: true }]);
  assert.deepEqual(await page.log(), [...Array(5).fill(['', '', '']), ['1', '0', '2'], ['true', 'false', 'true']]);
});

pageTest('of a class only words are taken', async (page) => {
  for (const cls of ['er" onmouseover', '<b>', 'ok wn', ' er\n', 'a/b c_d-9', '']) await page.deliver(log('02:14:31', '行', cls));
  assert.deepEqual((await page.log()).map(([, , cls]) => cls), ['onmouseover', '', 'ok wn', 'er', 'c_d-9', '']);
});

for (const lines of [undefined, null, 'text', 5, {}, { length: 3 }]) {
  pageTest(`lines that are ${JSON.stringify(lines)} leave the log as it is`, async (page) => {
    await page.deliverAll([log('02:14:31', '一行', 'ok'), { t: 'logs', lines }]);
    assert.deepEqual(await page.log(), [['02:14:31', '一行', 'ok']]);
  });
}

pageTest('an error in one message is reported and does not keep the next one away', async (page) => {
  await page.view.evaluate((next) => {
    window.reported = [];
    addEventListener('error', (event) => { window.reported.push(event.message); event.preventDefault(); });
    document.getElementById('s-status').remove();
    [{ t: 'state', side: {} }, next].forEach((message) => window.deliver(message));
  }, log('02:14:31', '下一条'));
  assert.equal((await page.view.evaluate(() => window.reported)).length, 1);
  assert.deepEqual(await page.log(), [['02:14:31', '下一条', '']]);
});
