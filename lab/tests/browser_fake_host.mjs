// The DLL's side of the browser bridge, and look-ups of its browsers' processes.
import assert from 'node:assert/strict';
import { once } from 'node:events';
import { readdir, readFile } from 'node:fs/promises';
import net from 'node:net';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { setTimeout as sleep } from 'node:timers/promises';

export const kCreate = 1;
export const kLoadText = 2;
export const kLoadUrl = 3;
export const kPostJson = 4;
export const kPostText = 5;
export const kBounds = 6;
export const kMouse = 9;
export const kKey = 10;
export const kInsertText = 11;
export const kCopy = 12;
export const kFrameDone = 13;
export const kReady = 101;
export const kFailed = 102;
export const kMessage = 103;
export const kNavigated = 104;
export const kFrame = 105;
export const kSelection = 106;
export const kProcessFailed = 107;

/** The DLL's side, written from the frame table, without the bridge's own code. */
export class FakeHost {
  static async connect(port) {
    const host = new FakeHost();
    host.socket = net.connect(port, '127.0.0.1');
    host.frames = [];
    host.waiters = [];
    let kept = Buffer.alloc(0);
    host.socket.on('data', (bytes) => {
      kept = Buffer.concat([kept, bytes]);
      while (kept.length >= 5 && kept.length >= 5 + kept.readUInt32LE(0)) {
        const end = 5 + kept.readUInt32LE(0);
        host.#take(kept[4], kept.subarray(5, end));
        kept = kept.subarray(end);
      }
    });
    host.socket.on('error', () => {});
    // Not once(), which would fail for a reset: the bridge may close with unread data.
    host.closed = new Promise((resolve) => { host.socket.once('close', resolve); });
    await once(host.socket, 'connect');
    return host;
  }

  #take(kind, body) {
    if (kind === kFrame) this.send(kFrameDone, body.subarray(0, 4));
    this.frames.push({ kind, body });
    this.waiters = this.waiters.filter((look) => !look());
  }

  send(kind, ...parts) {
    const body = Buffer.concat(parts.map((part) => (typeof part === 'string' ? Buffer.from(part) : part)));
    const head = Buffer.alloc(5);
    head.writeUInt32LE(body.length);
    head[4] = kind;
    this.socket.write(Buffer.concat([head, body]));
  }

  /** Waits for the next frame of that kind and removes it from the received ones. */
  async next(kind, timeoutMs = 40_000) {
    return new Promise((resolve, reject) => {
      const look = () => {
        const at = this.frames.findIndex((frame) => frame.kind === kind);
        if (at < 0) return false;
        clearTimeout(timer);
        resolve(this.frames.splice(at, 1)[0].body);
        return true;
      };
      const timer = setTimeout(() => reject(new Error(`No frame ${kind} in ${timeoutMs} ms`)), timeoutMs);
      if (!look()) this.waiters.push(look);
    });
  }

  async open(width = 640, height = 480) {
    this.send(kCreate, u32(width), u32(height));
    return (await this.next(kReady)).readUInt32LE(0);
  }

  async load(html, id = 1n) {
    this.send(kLoadText, u64(id), html);
    return readNavigated(await this.next(kNavigated));
  }

  async message() {
    const body = await this.next(kMessage);
    const sourceEnd = 5 + body.readUInt32LE(1);
    const jsonEnd = sourceEnd + 4 + body.readUInt32LE(sourceEnd);
    return {
      isText: body[0] === 1, source: body.toString('utf8', 5, sourceEnd),
      json: body.toString('utf8', sourceEnd + 4, jsonEnd), text: body.toString('utf8', jsonEnd),
    };
  }
}

export function u32(value) {
  const bytes = Buffer.alloc(4);
  bytes.writeUInt32LE(value);
  return bytes;
}

export function u64(value) {
  const bytes = Buffer.alloc(8);
  bytes.writeBigUInt64LE(value);
  return bytes;
}

export function readNavigated(body) {
  return { id: body.readBigUInt64LE(0), success: body[8] === 1, status: body.readUInt32LE(9) };
}

/** kind: 0 move, 1 press, 2 release; the left button. */
export function mouse(kind, x, y, buttons) {
  const body = Buffer.alloc(21);
  body[0] = kind;
  body[1] = kind === 0 ? 0 : 1;
  body[2] = buttons;
  body[4] = kind === 0 ? 0 : 1;
  body.writeInt32LE(x, 5);
  body.writeInt32LE(y, 9);
  return body;
}

export const key = (kind, modifiers, virtualKey, text = '') =>
  Buffer.concat([Buffer.from([kind, modifiers]), u32(virtualKey), Buffer.from(text)]);

export const kPage = `<!doctype html><html lang="zh-CN"><head><title>测试页</title>
<script>window.early = !!(window.chrome && chrome.webview);
  window.leaked = '__labPostToHost' in window || '__labCopied' in window;
  const got = [];
  const listen = (event) => got.push(event.data);
  chrome.webview.addEventListener('message', listen);
</script></head>
<body style="margin:0">
<h1 id="title">工程师远程调试</h1><input id="name"><textarea id="note"></textarea>
<button id="send" onclick="chrome.webview.postMessage(document.getElementById('name').value)">连接</button>
<select id="choice" onchange="chrome.webview.postMessage('chose ' + this.value)">
<option value="a">一</option><option value="b">二</option></select>
<p id="hidden" style="display:none">隐</p>
<div id="under">下</div><script>chrome.webview.postMessage({ ready: true });</script></body></html>`;

/** Ids of live processes whose command line contains a profile of one of this machine's bridges. */
export async function browserProcesses(profile) {
  const found = [];
  for (const pid of await readdir('/proc')) {
    if (!/^\d+$/.test(pid)) continue;
    const line = await readFile(`/proc/${pid}/cmdline`, 'utf8').catch(() => '');
    if (line.includes(profile)) found.push(Number(pid));
  }
  return found;
}

export async function profileOf(pid) {
  const line = await readFile(`/proc/${pid}/cmdline`, 'utf8');
  return /--user-data-dir=([^\0 ]+)/.exec(line)[1];
}

export async function untilGone(profile, timeoutMs = 8000) {
  const end = performance.now() + timeoutMs;
  for (;;) {
    const processes = await browserProcesses(profile);
    const folders = (await readdir(tmpdir())).filter((name) => name === path.basename(profile));
    if (processes.length + folders.length === 0) return;
    assert.ok(performance.now() < end, `left: ${processes} ${folders}`);
    await sleep(50);
  }
}
