// The PLC vendors' protocols on loopback, both sides; an altered or lost answer is detected.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { once } from 'node:events';
import net from 'node:net';
import { after, before, describe, it } from 'node:test';

import * as modbusTcp from '../protocols/modbus_tcp.mjs';
import * as siemensS7 from '../protocols/siemens_s7.mjs';
import { kWrongAnswer } from '../protocols/support/requests.mjs';

const kAddresses = ['127.0.0.1', '127.0.0.2'];
const kLine = '127.0.0.3';
const kNobody = '127.0.0.4';
const kRounds = 20;
const kTimeoutMs = 1000;
/** Longer than an acknowledgement, shorter than an answer with values. */
const kAnswerWithValues = 100;

const listeners = (port) => execFileSync('ss', ['-Hltn', `sport = :${port}`]).toString();

/** The line's treatment of answers with values. */
const kActs = {
  forwards: (bytes, near) => near.write(bytes),
  lies: (bytes, near) => {
    bytes[bytes.length - 1] ^= 1;
    near.write(bytes);
  },
  swallows: () => {},
  cuts: (bytes, near) => near.resetAndDestroy(),
};

/** A line to the device that forwards everything, but applies `act` (of kActs) to answers with values. */
async function startLine(port) {
  const line = { act: 'forwards' };
  const sockets = new Set();
  const server = net.createServer({ allowHalfOpen: true }, (near) => {
    const far = net.connect(port, kAddresses[0]);
    for (const socket of [near, far]) {
      sockets.add(socket);
      socket.on('error', () => {});
      socket.on('close', () => { near.destroy(); far.destroy(); });
    }
    near.on('data', (bytes) => far.write(bytes));
    far.on('data', (bytes) => {
      kActs[bytes.length > kAnswerWithValues ? line.act : 'forwards'](bytes, near);
    });
    near.on('end', () => { if (line.act === 'forwards') near.end(); });  // otherwise the line stays silent
  });
  server.listen(port, kLine);
  await once(server, 'listening');
  line.close = async () => {
    for (const socket of sockets) socket.destroy();
    server.close();
    await once(server, 'close');
  };
  return line;
}

const kProtocols = [
  {
    name: 'Siemens S7', protocol: siemensS7, port: 102,
    failures: {
      lies: /^S7, DB2, number \d+: wanted (\d+), got (?!\1$)\d+$/,
      swallows: /^S7 DBRead: .*timed out$/, cuts: /^S7 DBRead: .*(reset by peer|timed out)$/,
    },
  },
  {
    name: 'Modbus TCP', protocol: modbusTcp, port: 502,
    failures: {
      lies: /^Modbus, \w+ registers, number 99: wanted (\d+), got (?!\1$)\d+$/,
      swallows: /^Timed out$/, cuts: /^Timed out$/,
    },
  },
];

for (const { name, protocol, port, failures } of kProtocols) {
  describe(name, () => {
    const ways = [protocol, ...(protocol.variants ?? [])];
    const options = { rounds: kRounds, timeoutMs: kTimeoutMs };
    let stop;
    let line;
    before(async () => {
      stop = await protocol.serve({ addresses: kAddresses });
      line = await startLine(port);
    });
    after(async () => {
      await line.close();
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

      for (const [act, message] of Object.entries(failures)) {
        it(`${title}: a line that ${act} makes only that use fail, in time`, async () => {
          line.act = act;
          const started = performance.now();
          await assert.rejects(use({ ...options, address: kLine }), (error) => {
            assert.match(error.message, message);
            return (error.name === kWrongAnswer) === (act === 'lies');
          });
          assert.ok(performance.now() - started < 2 * kTimeoutMs);
          line.act = 'forwards';
          const { requestMs } = await use({ ...options, address: kLine });
          assert.ok(requestMs.length >= kRounds);
        });
      }

      it(`${title}: without a server, it fails`, async () => {
        await assert.rejects(use({ ...options, address: kNobody }), /refused|ECONNREFUSED/i);
      });
    }
  });
}
