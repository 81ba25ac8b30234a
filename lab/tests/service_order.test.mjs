import assert from 'node:assert/strict';
import { test } from 'node:test';

import { OrderWatch } from '../standins/service/order_watch.mjs';

const kPort = 7;

/** An IPv4 packet with UDP to `port`, or from it if `returned`. */
function packet(number, { run = 1, port = kPort, bytes = 1428, returned = false, protocol = 17 } = {}) {
  const whole = Buffer.alloc(bytes);
  whole[0] = 0x45;
  whole[9] = protocol;
  whole.writeUInt16BE(returned ? port : 50000, 20);
  whole.writeUInt16BE(returned ? 50000 : port, 22);
  whole.writeUInt32BE(run, 28);
  whole.writeUInt32BE(number, 32);
  return whole;
}

test('gaps and late datagrams count within a connection, not across two', () => {
  const watch = new OrderWatch(kPort);
  const [first, second] = [{}, {}];
  for (const number of [5, 6, 9, 8]) watch.take(first, packet(number));
  for (const number of [20, 21]) watch.take(second, packet(number));
  watch.take(second, packet(7, { run: 2 }));
  assert.deepEqual(watch.sums(),
    { connections: 2, messages: 7, outOfOrder: 1, missing: 2, returnedOutOfOrder: 0 });
});

test('only large datagrams to the port count', () => {
  const watch = new OrderWatch(kPort);
  const others = [packet(1, { port: 8 }), packet(1, { bytes: 1330 }), packet(1, { protocol: 6 }), Buffer.alloc(0)];
  for (const other of others) watch.take({}, other);
  assert.equal(watch.sums().messages, 0);
});

test('answers sent after newer ones are counted', () => {
  const watch = new OrderWatch(kPort);
  for (const number of [1, 3, 2, 4]) watch.takeReturned(packet(number, { returned: true }));
  watch.takeReturned(packet(1, { returned: true, run: 2 }));
  assert.equal(watch.sums().returnedOutOfOrder, 1);
});
