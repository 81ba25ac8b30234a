// The browser bridge alone; the test takes the DLL's side of the connection.
import assert from 'node:assert/strict';
import { fork } from 'node:child_process';
import { once } from 'node:events';
import { mkdtemp, rm, writeFile } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';

import { startBridge } from '../standins/browser/bridge.mjs';
import { connectBridge } from '../standins/browser/client.mjs';
import { FailedProcess } from '../standins/browser/page.mjs';
import { kProfilePrefix, rendererProcesses } from '../standins/browser/chromium.mjs';
import { keyName } from '../standins/browser/keys.mjs';
import {
  kCreate, kLoadUrl, kPostJson, kPostText, kBounds, kMouse, kKey, kInsertText, kCopy, kFailed, kMessage,
  kNavigated, kFrame, kSelection, kProcessFailed, FakeHost, u32, u64, readNavigated, mouse, key, kPage,
  browserProcesses, profileOf, untilGone,
} from './browser_fake_host.mjs';

describe('one page', () => {
  let bridge;
  let host;
  let page;
  before(async () => {
    bridge = await startBridge({ port: 0, log: (line) => assert.fail(line) });
    host = await FakeHost.connect(bridge.port);
    await host.open();
    page = await bridge.waitForPage();
    assert.deepEqual(await host.load(kPage, 7n), { id: 7n, success: true, status: 0 });
  });
  after(() => bridge.close());

  it('gives the page its bridge object before the first script and hides the binding', async () => {
    assert.equal(await page.evaluate('early'), true);
    assert.equal(await page.evaluate('leaked'), false);
    assert.equal(await page.evaluate('origin'), 'null');
  });

  it('passes the page\'s messages on, with their JSON, from about:blank', async () => {
    assert.deepEqual(await host.message(),
      { isText: false, source: 'about:blank', json: '{"ready":true}', text: '' });
    const posted = [
      ['"中文 \\u0001 \\"引号\\" 😀"', { isText: true, text: '中文 \u0001 "引号" 😀' }],
      ['""', { isText: true, text: '' }],
      ['null', { isText: false, json: 'null' }], ['undefined', { isText: false, json: 'null' }],
      ['[1,"a"]', { isText: false, json: '[1,"a"]' }], ['1.5', { isText: false, json: '1.5' }],
    ];
    for (const [expression, wanted] of posted) {
      await page.evaluate(`chrome.webview.postMessage(${expression})`);
      const seen = await host.message();
      for (const [name, value] of Object.entries(wanted)) assert.equal(seen[name], value, expression);
      if (wanted.isText) assert.equal(JSON.parse(seen.json), wanted.text);
    }
  });

  it('delivers posted JSON parsed, strings as strings, in order, and drops invalid JSON', async () => {
    host.send(kPostJson, '{"t":"state","v":"在线","__proto__":{"x":1}}');
    host.send(kPostJson, '{"t":"lone');
    host.send(kPostText, '{"not":"parsed"}\u2028');
    host.send(kPostJson, '[1,null]');
    await page.waitFor('got.length >= 3');
    assert.equal(await page.evaluate('JSON.stringify(got)'),
      '[{"t":"state","v":"在线","__proto__":{"x":1}},"{\\"not\\":\\"parsed\\"}\u2028",[1,null]]');
    const kinds = page.messages().map(({ direction }) => direction);
    assert.equal(kinds.filter((kind) => kind === 'notJson').length, 1);
    await page.evaluate('chrome.webview.removeEventListener("message", listen)');
    host.send(kPostJson, '4');
    host.send(kPostText, 'x');
    await page.waitFor('true');
    assert.equal(await page.evaluate('got.length'), 3);
  });

  it('types Chinese into a field, replacing its text, and clicks with the mouse', async () => {
    await page.evaluate(`window.typed = [];
      document.querySelector('#name').addEventListener('input', (e) => typed.push(e.isTrusted && e.target.value))`);
    await page.type('#name', '旧的');
    await page.type('#name', '维马林 密钥-7F3A');
    await page.evaluate('document.querySelector("#send").addEventListener("click", (e) => { window.trusted = e.isTrusted; })');
    await page.click('#send');
    assert.equal((await host.message()).text, '维马林 密钥-7F3A');
    assert.equal(await page.evaluate('trusted'), true);
    await page.type('#name', '');
    assert.equal(await page.evaluate('document.querySelector("#name").value'), '');
    assert.deepEqual(await page.evaluate('typed'), ['旧的', '维马林 密钥-7F3A', '']);
  });

  it('refuses to click an element that is covered, empty or missing', async () => {
    await page.evaluate(`document.body.insertAdjacentHTML('beforeend',
      '<div id="cover" style="position:fixed;inset:0"></div>')`);
    await assert.rejects(page.click('#send'), /covered by DIV#cover/);
    await page.evaluate('document.querySelector("#cover").remove()');
    await assert.rejects(page.click('#hidden'), /no size/);
    await assert.rejects(page.text('#none'), /no element #none/);
  });

  it('reads text, chooses options, and waits for conditions', async () => {
    assert.equal(await page.text('#title'), '工程师远程调试');
    assert.equal(await page.text('#hidden'), '隐');
    await page.select('#choice', 'b');
    assert.equal((await host.message()).text, 'chose b');
    await assert.rejects(page.select('#choice', 'c'), /no option c/);
    await assert.rejects(page.waitFor('false', 60), /Not true in 60 ms/);
    assert.equal(await page.waitFor('new Promise((done) => setTimeout(done, 5, "späte"))'), 'späte');
    await assert.rejects(page.evaluate('nothing.here'), /ReferenceError/);
  });

  it('passes on the window\'s mouse, keys and clipboard', async () => {
    const { x, y } = await page.evaluate(`(() => { const r = document.querySelector('#note')
      .getBoundingClientRect(); return { x: Math.round(r.x + 20), y: Math.round(r.y + 10) }; })()`);
    for (const [kind, buttons] of [[0, 0], [1, 1], [2, 0]]) host.send(kMouse, mouse(kind, x, y, buttons));
    await page.waitFor('document.activeElement.id === "note"');
    for (const letter of ['a', '中', '\r', 'b']) {
      const virtualKey = letter === '\r' ? 0x0d : 0x41;
      host.send(kKey, key(0, 0, virtualKey));
      host.send(kKey, key(2, 0, virtualKey, letter));
      host.send(kKey, key(1, 0, virtualKey));
    }
    await page.waitFor('document.querySelector("#note").value === "a中\\nb"');
    host.send(kKey, key(0, 0, 0x08));
    await page.waitFor('document.querySelector("#note").value === "a中\\n"');
    host.send(kInsertText, '粘贴');
    await page.waitFor('document.querySelector("#note").value === "a中\\n粘贴"');
    host.send(kKey, key(0, 2, 0x41));
    host.send(kCopy, Buffer.from([0]));
    assert.equal((await host.next(kSelection)).toString(), 'a中\n粘贴');
    host.send(kCopy, Buffer.from([1]));
    assert.equal((await host.next(kSelection)).toString(), 'a中\n粘贴');
    await page.waitFor('document.querySelector("#note").value === ""');
  });

  it('passes on text that the page copies at a click', async () => {
    await page.evaluate(`document.querySelector('#under').onclick = () => {
      document.addEventListener('copy', (event) => {
        event.clipboardData.setData('text/plain', '192.168.77.10\\n中文');
        event.preventDefault();
      }, { once: true });
      document.execCommand('copy');
    }`);
    await page.click('#under');
    assert.equal((await host.next(kSelection)).toString(), '192.168.77.10\n中文');
  });

  it('passes on the text that the page provides for a copy or cut', async () => {
    await page.evaluate(`for (const type of ['copy', 'cut']) addEventListener(type, (event) => {
      event.clipboardData.setData('text/plain', type + ' by the page');
      event.preventDefault();
    }, { once: true })`);
    await page.type('#name', 'KEY-7F3A');
    await page.evaluate('document.querySelector("#name").select()');
    for (const [cut, text] of [[0, 'copy by the page'], [1, 'cut by the page'], [0, 'KEY-7F3A']]) {
      host.send(kCopy, Buffer.from([cut]));
      assert.equal((await host.next(kSelection)).toString(), text);
    }
    assert.equal(await page.evaluate('document.querySelector("#name").value'), 'KEY-7F3A', 'nothing was cut');
  });

  it('leaves the clipboard alone if there is nothing to copy', async () => {
    await page.evaluate(`document.querySelector('#name').readOnly = true;
      document.querySelector('#note').value = 'the next one'`);
    await page.copy(true);  // from a read-only field
    await page.evaluate('document.querySelector("#name").readOnly = false');
    await page.type('#name', 'password');
    await page.evaluate('document.querySelector("#name").type = "password"; document.querySelector("#name").select()');
    await page.copy(false);
    await page.evaluate(`document.querySelector('#name').type = 'text'; getSelection().empty();
      document.addEventListener('copy', (event) => event.preventDefault(), { once: true });
      document.execCommand('copy');
      document.dispatchEvent(new ClipboardEvent('copy', { bubbles: true }));
      document.querySelector('#note').select()`);
    host.send(kCopy, Buffer.from([0]));
    assert.equal((await host.next(kSelection)).toString(), 'the next one');
  });

  it('sends JPEG pictures of the window\'s size', async () => {
    host.frames = [];
    host.send(kBounds, u32(500), u32(300));
    await page.waitFor('innerWidth === 500 && innerHeight === 300');
    for (let tries = 0; ; tries += 1) {
      // The last picture of a static page may still have the old size.
      await page.evaluate(`document.body.append('change ${tries}')`);
      const picture = (await host.next(kFrame)).subarray(4);
      assert.deepEqual([...picture.subarray(0, 2)], [0xff, 0xd8]);
      const size = jpegSize(picture);
      if (size.width === 500 && size.height === 300) break;
      assert.ok(tries < 20, `last size ${size.width}x${size.height}`);
    }
  });

  it('loads a file by its URL and reports a missing one', async () => {
    const folder = await mkdtemp(path.join(tmpdir(), 'lab-page-'));
    await writeFile(path.join(folder, 'app.html'), '<title>文件</title><script>chrome.webview.postMessage("f")</script>');
    host.send(kLoadUrl, u64(8n), `file://${folder}/app.html`);
    assert.deepEqual(readNavigated(await host.next(kNavigated)), { id: 8n, success: true, status: 0 });
    assert.equal((await host.message()).source, `file://${folder}/app.html`);
    host.send(kLoadUrl, u64(9n), `file://${folder}/none.html`);
    assert.deepEqual(readNavigated(await host.next(kNavigated)), { id: 9n, success: false, status: 0 });
    host.send(kLoadUrl, u64(10n), 'http://outside.example/');
    assert.deepEqual(readNavigated(await host.next(kNavigated)), { id: 10n, success: false, status: 13 });
    await rm(folder, { recursive: true });
  });

  it('shows a page of the largest size that the control accepts', async () => {
    const html = '<body>' + 'x'.repeat(1_572_834 - 6);
    assert.equal((await host.load(html, 11n)).success, true);
    assert.equal(await page.evaluate('document.body.textContent.length'), 1_572_828);
  });
});

describe('a browser that fails', () => {
  /** A bridge with one page; {bridge, host, page}. */
  async function open(t) {
    const bridge = await startBridge({ port: 0 });
    t.after(() => bridge.close());
    const host = await FakeHost.connect(bridge.port);
    await host.open();
    const page = await bridge.waitForPage();
    await host.load(kPage, 1n);
    await host.message();
    return { bridge, host, page };
  }

  it('reports the end of the page\'s process, and shows the next document', async (t) => {
    const { host, page } = await open(t);
    await page.failProcess(FailedProcess.renderer);
    assert.equal((await host.next(kProcessFailed)).readUInt32LE(0), FailedProcess.renderer);
    host.send(kPostJson, '"for nobody"');
    host.frames = [];
    assert.equal((await host.load(kPage, 2n)).success, true);
    assert.deepEqual((await host.message()).json, '{"ready":true}');
    host.send(kPostJson, '"for the next"');
    await page.waitFor('got.length === 1 && got[0] === "for the next"');
    await host.next(kFrame);
    await page.type('#name', '新页');
    await page.click('#send');
    assert.equal((await host.message()).text, '新页');
  });

  it('reports the same when that process is killed', async (t) => {
    const { host, page } = await open(t);
    for (const pid of await rendererProcesses(page.pid)) process.kill(pid, 'SIGKILL');
    assert.equal((await host.next(kProcessFailed)).readUInt32LE(0), FailedProcess.renderer);
    assert.equal((await host.load(kPage, 2n)).success, true);
  });

  it('ends the connection with the browser', async (t) => {
    const { host, page } = await open(t);
    await page.failProcess(FailedProcess.browser);
    await host.closed;
  });

  it('reports the failure of any other process', async (t) => {
    const { host, page } = await open(t);
    for (const kind of [FailedProcess.unresponsive, 3, 4, 5, FailedProcess.gpu, 7, 8, 9]) {
      await page.failProcess(kind);
      assert.equal((await host.next(kProcessFailed)).readUInt32LE(0), kind);
    }
    assert.equal(await page.evaluate('document.title'), '测试页');
  });
});

/** Size in the picture's frame header (markers C0 to C2). */
function jpegSize(picture) {
  for (let at = 2; at < picture.length;) {
    const marker = picture[at + 1];
    if (marker >= 0xc0 && marker <= 0xc2) {
      return { height: picture.readUInt16BE(at + 5), width: picture.readUInt16BE(at + 7) };
    }
    at += 2 + picture.readUInt16BE(at + 2);
  }
  throw new Error('No frame header');
}

describe('lifetime', () => {
  it('ends the browser and removes its profile when the DLL disconnects', async () => {
    const bridge = await startBridge({ port: 0 });
    const host = await FakeHost.connect(bridge.port);
    const profile = await profileOf(await host.open());
    assert.ok(path.basename(profile).startsWith(kProfilePrefix));
    assert.ok((await browserProcesses(profile)).length > 1);
    host.socket.destroy();
    await untilGone(profile);
    assert.deepEqual(bridge.pages(), []);
    await bridge.close();
  });

  it('closes two independent pages', async () => {
    const bridge = await startBridge({ port: 0 });
    const hosts = [await FakeHost.connect(bridge.port), await FakeHost.connect(bridge.port)];
    const pids = await Promise.all(hosts.map((host) => host.open()));
    assert.notEqual(pids[0], pids[1]);
    const profiles = await Promise.all(pids.map(profileOf));
    await hosts[0].load('<title>one</title>');
    await hosts[1].load('<title>two</title>');
    const titles = await Promise.all(bridge.pages().map((page) => page.evaluate('document.title')));
    assert.deepEqual(titles, ['one', 'two']);
    await bridge.close();
    for (const profile of profiles) await untilGone(profile);
  });

  it('closes the connection when the browser dies', async () => {
    const bridge = await startBridge({ port: 0 });
    const host = await FakeHost.connect(bridge.port);
    const pid = await host.open();
    const profile = await profileOf(pid);
    process.kill(pid, 'SIGKILL');
    await host.closed;
    await untilGone(profile);
    await bridge.close();
  });

  it('reports a browser that cannot be started', async () => {
    const bridge = await startBridge({ port: 0, chromium: '/nonexistent/chromium' });
    const host = await FakeHost.connect(bridge.port);
    host.send(kCreate, u32(10), u32(10));
    assert.match((await host.next(kFailed)).toString(), /ENOENT/);
    await bridge.close();
  });

  it('drops a connection that declares an absurd frame', async () => {
    const bridge = await startBridge({ port: 0 });
    const host = await FakeHost.connect(bridge.port);
    host.socket.write(Buffer.from([0xff, 0xff, 0xff, 0xff, 1]));
    await host.closed;
    await bridge.close();
  });

  it('works as a separate process and ends with its parent', async (t) => {
    const child = fork(new URL('../standins/browser/main.mjs', import.meta.url).pathname);
    t.after(() => child.kill());
    const exit = once(child, 'exit');
    const bridge = await connectBridge(child);
    const { port } = await bridge.listen({ port: 0 });
    const host = await FakeHost.connect(port);
    const profile = await profileOf(await host.open());
    await host.load(kPage);
    const page = await bridge.waitForPage(5000);
    await page.type('#name', '进程');
    await page.click('#send');
    await host.next(kMessage);  // ready
    await host.next(kMessage);  // from the click, possibly after the click has returned
    assert.deepEqual((await page.messages()).map(({ json }) => json), ['{"ready":true}', '"进程"']);
    await assert.rejects(page.text('#none'), /no element/);
    assert.equal((await bridge.pages()).length, 1);
    child.disconnect();
    assert.deepEqual(await exit, [0, null]);
    await assert.rejects(page.text('#name'), /bridge has ended/);
    await untilGone(profile);
  });
});

it('names the keys of a keyboard', () => {
  for (const [virtualKey, name] of [[0x0d, 'Enter'], [0x41, 'a'], [0x39, '9'], [0x70, 'F1'],
    [0x7b, 'F12'], [0x7c, ''], [0x2e, 'Delete'], [0xff, '']]) {
    assert.equal(keyName(virtualKey), name);
  }
});
