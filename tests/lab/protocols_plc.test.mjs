// The PLC makers' protocols on loopback, both sides, and that a changed answer does not pass.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { once } from 'node:events';
import net from 'node:net';
import { after, before, describe, it } from 'node:test';

import * as modbusTcp from '../../lab/protocols/modbus_tcp.mjs';
import * as siemensS7 from '../../lab/protocols/siemens_s7.mjs';

const kAddresses = ['127.0.0.1', '127.0.0.2'];
const kLiar = '127.0.0.3';
const kNobody = '127.0.0.4';
const kRounds = 20;
const kTimeoutMs = 2000;
/** Longer than what only acknowledges, shorter than what carries values. */
const kAnswerWithValues = 100;

const listeners = (port) => execFileSync('ss', ['-Hltn', `sport = :${port}`]).toString();

/** Hands everything on, but changes the last byte of long answers while `lies` is true. */
async function startLiar(port) {
  const liar = { lies: true };
  const sockets = new Set();
  const server = net.createServer((near) => {
    const far = net.connect(port, kAddresses[0]);
    for (const socket of [near, far]) {
      sockets.add(socket);
      socket.on('error', () => {});
      socket.on('close', () => { near.destroy(); far.destroy(); });
    }
    near.on('data', (bytes) => far.write(bytes));
    far.on('data', (bytes) => {
      if (liar.lies && bytes.length > kAnswerWithValues) bytes[bytes.length - 1] ^= 1;
      near.write(bytes);
    });
  });
  server.listen(port, kLiar);
  await once(server, 'listening');
  liar.close = async () => {
    for (const socket of sockets) socket.destroy();
    server.close();
    await once(server, 'close');
  };
  return liar;
}

const kProtocols = [
  { name: 'Siemens S7', protocol: siemensS7, port: 102, wrong: /^S7, DB2, number \d+: wanted (\d+), got (?!\1$)\d+$/ },
  { name: 'Modbus TCP', protocol: modbusTcp, port: 502, wrong: /^Modbus, \w+ registers, number 99: wanted (\d+), got (?!\1$)\d+$/ },
];

for (const { name, protocol, port, wrong } of kProtocols) {
  describe(name, () => {
    const ways = [protocol, ...(protocol.variants ?? [])];
    const options = { rounds: kRounds, timeoutMs: kTimeoutMs };
    let stop;
    let liar;
    before(async () => {
      stop = await protocol.serve({ addresses: kAddresses });
      liar = await startLiar(port);
    });
    after(async () => {
      await liar.close();
      await stop();
      assert.equal(listeners(port), '', 'nothing listens any more');
    });

    for (const { title, use } of ways) {
      it(`${title}: reads and writes at every address at once`, async () => {
        const reports = await Promise.all(kAddresses.map((address) => use({ ...options, address })));
        for (const { requestMs, connectMs, notes } of reports) {
          assert.equal(requestMs.length, kRounds * (notes.masters ?? 1));
          assert.ok(requestMs.every((ms) => ms > 0 && ms < kTimeoutMs));
          assert.ok(connectMs > 0 && connectMs < kTimeoutMs);
        }
      });

      it(`${title}: an answer that was changed on its way fails, and only that`, async () => {
        liar.lies = true;
        await assert.rejects(use({ ...options, address: kLiar }), { message: wrong });
        liar.lies = false;
        const { requestMs } = await use({ ...options, address: kLiar });
        assert.ok(requestMs.length >= kRounds);
      });

      it(`${title}: where nobody listens, it fails`, async () => {
        await assert.rejects(use({ ...options, address: kNobody }), /refused|ECONNREFUSED/i);
      });
    }
  });
}
