// The bridge: the stand-in DLL connects once per controller and gets a browser for it.
import net from 'node:net';
import { once } from 'node:events';
import { setTimeout as sleep } from 'node:timers/promises';

import { Chromium, kChromium } from './chromium.mjs';
import { Page } from './page.mjs';
import {
  encodeFrame, FrameCutter, FromHost, KeyKind, messageBody, readMouse, ToHost, u32,
} from './wire.mjs';

const kDefaultPort = 7300;
const kPollMs = 25;

/**
 * Listens on `host`:`port` (0: any free port). The result:
 *   port          the port it listens on
 *   pages()       the open pages, oldest first (see Page)
 *   waitForPage(timeoutMs)   the newest page, once there is one
 *   close()       closes every page and its browser, then the port
 */
export async function startBridge({ port = kDefaultPort, host = '127.0.0.1',
  chromium = kChromium, log = () => {} } = {}) {
  const links = new Set();
  let lastId = 0;
  const server = net.createServer({ noDelay: true }, (socket) => {
    lastId += 1;
    const link = new Link(lastId, socket, { chromium, log });
    links.add(link);
    link.closed.then(() => links.delete(link));
  });
  server.listen(port, host);
  await once(server, 'listening');
  const pages = () => [...links].map((link) => link.page).filter(Boolean);
  return {
    port: server.address().port,
    pages,
    async waitForPage(timeoutMs = 10_000) {
      const end = performance.now() + timeoutMs;
      while (pages().length === 0) {
        if (performance.now() > end) throw new Error(`No page was opened in ${timeoutMs} ms.`);
        await sleep(kPollMs);
      }
      return pages().at(-1);
    },
    async close() {
      server.close();
      await Promise.all([...links].map((link) => link.close()));
    },
  };
}

/** One connection of the DLL, its browser and its page. */
class Link {
  #socket;
  #options;
  #browser;
  #cutter = new FrameCutter();
  #creating = Promise.resolve();
  #closing;
  page;

  constructor(id, socket, options) {
    this.id = id;
    this.#socket = socket;
    this.#options = options;
    this.closed = new Promise((resolve) => { this.#closing = { resolve, started: false }; });
    socket.on('data', (bytes) => this.#onData(bytes));
    socket.on('error', () => {});  // 'close' follows
    socket.on('close', () => this.close());
  }

  #onData(bytes) {
    try {
      this.#cutter.feed(bytes, (kind, body) => this.#onFrame(kind, Buffer.from(body)));
    } catch (error) {
      this.#options.log(`page ${this.id}: ${error.message}`);
      this.#socket.destroy();
    }
  }

  #onFrame(kind, body) {
    if (kind === FromHost.create) {
      this.#creating = this.#create(body.readUInt32LE(0), body.readUInt32LE(4));
      return;
    }
    // Frames that arrive before the browser is up wait for it; the order is kept.
    const act = () => this.#act(kind, body)?.catch((error) =>
      this.#options.log(`page ${this.id}, request ${kind}: ${error.message}`));
    if (this.page) act();
    else this.#creating.then(() => { if (this.page) act(); });
  }

  async #create(width, height) {
    try {
      this.#browser = await Chromium.launch({ program: this.#options.chromium, width, height });
      if (this.#closing.started) return;
      this.#browser.once('exit', () => this.#socket.destroy());
      const page = new Page(this.id, this.#browser, this.#host());
      await page.open({ width: width || 1, height: height || 1 });
      this.page = page;
      this.#send(ToHost.ready, u32(this.#browser.pid));
    } catch (error) {
      this.#options.log(`page ${this.id}: ${error.message}`);
      this.#send(ToHost.failed, error.message);
    }
  }

  #host() {
    return {
      message: (source, json) => this.#send(ToHost.message, messageBody(source, json)),
      navigated: (id, success, status) => {
        const body = Buffer.alloc(13);
        body.writeBigUInt64LE(id, 0);
        body.writeUInt8(success ? 1 : 0, 8);
        body.writeUInt32LE(status, 9);
        this.#send(ToHost.navigated, body);
      },
      frame: (number, jpeg) => this.#send(ToHost.frame, Buffer.concat([u32(number), jpeg])),
      selection: (text) => this.#send(ToHost.selection, text),
      processFailed: (kind) => this.#send(ToHost.processFailed, u32(kind)),
    };
  }

  #send(kind, body) {
    if (!this.#socket.destroyed) this.#socket.write(encodeFrame(kind, body));
  }

  #act(kind, body) {
    const { page } = this;
    const text = (from) => body.toString('utf8', from);
    switch (kind) {
      case FromHost.loadText: return page.loadText(body.readBigUInt64LE(0), text(8));
      case FromHost.loadUrl: return page.loadUrl(body.readBigUInt64LE(0), text(8));
      case FromHost.postJson: return page.post(text(0));
      case FromHost.postText: return page.post(JSON.stringify(text(0)));
      case FromHost.bounds: return page.resize(body.readUInt32LE(0), body.readUInt32LE(4));
      case FromHost.visible: return page.show(body.readUInt8(0) === 1);
      case FromHost.focus: return undefined;  // the page always counts as focused
      case FromHost.mouse: return page.mouse(readMouse(body));
      case FromHost.key:
        return page.key({ kind: KeyKind[body.readUInt8(0)], modifiers: body.readUInt8(1),
          virtualKey: body.readUInt32LE(2), text: text(6) });
      case FromHost.insertText: return page.insertText(text(0));
      case FromHost.copy: return page.copy(body.readUInt8(0) === 1);
      case FromHost.frameDone: return page.frameDone(body.readUInt32LE(0));
      case FromHost.background:
        return page.background(body[1], body[2], body[3], body[0]);
      default: throw new Error(`Unknown request ${kind}.`);
    }
  }

  /** Ends the connection, the browser and its profile; safe to call again. */
  close() {
    if (!this.#closing.started) {
      this.#closing.started = true;
      this.#socket.destroy();
      this.#end().then(this.#closing.resolve);
    }
    return this.closed;
  }

  async #end() {
    this.page = undefined;
    await this.#creating;
    this.page = undefined;
    await this.#browser?.close().catch((error) =>
      this.#options.log(`page ${this.id}: ${error.message}`));
  }
}
