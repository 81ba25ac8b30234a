// A service on loopback for each test, and the simplest possible clients.
import assert from 'node:assert/strict';
import dgram from 'node:dgram';
import { once } from 'node:events';
import { createRequire } from 'node:module';
import net from 'node:net';
import { test } from 'node:test';

import { LabService } from '../standins/service/service.mjs';

export const { WebSocket } = createRequire(new URL('../package.json', import.meta.url))('ws');
export const kRelayPath = '/api/relay/client/C%20ONN?engineerId=ENG-12345678';
/** An IPv4 header from 192.168.77.10 to 10.88.0.2, the default granted address. */
export const kPacket = Buffer.from('450000140000000040010000' + 'c0a84d0a' + '0a580002', 'hex');
export const kPacketHex = kPacket.toString('hex');

export const upgradeRequest = (path) => `GET ${path} HTTP/1.1\r\nHost: x\r\nUpgrade: websocket\r\n` +
  'Connection: Upgrade\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\nSec-WebSocket-Version: 13\r\n\r\n';

/** Waits until `probe()` is true. */
export async function until(probe) {
  for (let i = 0; i < 500; i += 1) {
    if (await probe()) return;
    await new Promise((resolve) => { setTimeout(resolve, 10); });
  }
  assert.fail(`never: ${probe}`);
}

/** The fixture: the service, its port, a site's UDP socket, and clients that end with the test. */
class Bench {
  #ends = [];

  async start() {
    this.site = dgram.createSocket('udp4').bind(0, '127.0.0.1');
    await once(this.site, 'listening');
    this.service = new LabService();
    const site = { host: '127.0.0.1', port: this.site.address().port };
    ({ port: this.port } = await this.service.listen({ site }));
  }

  request = (path, options) => fetch(`http://127.0.0.1:${this.port}${path}`, options);
  post = (path, body = '') => this.request(path, { method: 'POST', body });

  /** An open relay connection. */
  relayClient = async (path = kRelayPath, options = {}) => {
    const client = new WebSocket(`ws://127.0.0.1:${this.port}${path}`, { perMessageDeflate: false, ...options });
    this.#ends.push(() => client.terminate());
    client.on('error', () => {});
    await once(client, 'open');
    return client;
  };

  /** A TCP connection that has sent its upgrade request. */
  rawClient = (path = kRelayPath) => {
    const socket = net.connect(this.port, '127.0.0.1');
    this.#ends.push(() => socket.destroy());
    socket.on('error', () => {});
    socket.write(upgradeRequest(path));
    return socket;
  };

  /** A UDP socket for the service that keeps all received datagrams. */
  udpClient = async () => {
    const socket = dgram.createSocket('udp4').bind(0, '127.0.0.1');
    this.#ends.push(() => socket.close());
    await once(socket, 'listening');
    const heard = [];
    socket.on('message', (bytes) => heard.push(bytes));
    const send = (bytes) => socket.send(bytes, this.port, '127.0.0.1');
    return { send, heard, from: `127.0.0.1:${socket.address().port}` };
  };

  async stop() {
    for (const end of this.#ends) end();
    await this.service.close();
    this.site.close();
  }
}

/** A test with its own service, which is closed even after a time-out. */
export function each(name, body) {
  test(name, { timeout: 20_000 }, async (t) => {
    const bench = new Bench();
    await bench.start();
    t.after(() => bench.stop());
    await body(bench);
  });
}
