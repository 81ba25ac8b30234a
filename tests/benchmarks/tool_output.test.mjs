// The benchmarks' reading of the output of ping and iperf3.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { readPings, readRates } from '../../benchmarks/line/tool_output.mjs';

const reply = (number, ms) => `64 bytes from 192.168.77.10: icmp_seq=${number} ttl=62 time=${ms} ms`;
const kSpan = { intervalMs: 1000, warmSeconds: 2, seconds: 4, endSeconds: 7 };

test('the pings of a span are read, before and after it none', () => {
  const text = [1, 2, 3, 4, 5, 6, 7].map((number) => reply(number, number * 10.5)).join('\n');
  assert.deepEqual(readPings(text, kSpan), { times: [31.5, 42, 52.5, 63], lost: 0, answered: 7 });
});

test('one without an answer is lost when a later one has it', () => {
  assert.deepEqual(readPings([reply(3, 1), reply(5, 2), reply(6, 3)].join('\n'), kSpan),
    { times: [1, 2, 3], lost: 1, answered: 3 });
});

test('those under way at the end count with the time that they have waited', () => {
  assert.deepEqual(readPings([reply(3, 900), reply(4, 1900)].join('\n'), kSpan),
    { times: [900, 1900, 3000, 2000], lost: 0, answered: 2 });
});

test('answers out of order, and duplicates, are told by their numbers', () => {
  const text = [reply(4, 40), reply(3, 30), `${reply(3, 99)} (DUP!)`, reply(6, 60), reply(5, 50)].join('\n');
  assert.deepEqual(readPings(text, kSpan).times.length, 4);
  assert.equal(readPings(text, kSpan).lost, 0);
});

test('no output has no answer', () => {
  assert.equal(readPings('PING 192.168.77.10 (192.168.77.10) 56(84) bytes of data.\n', kSpan).answered, 0);
});

const kTransfer = `[  5] local 10.10.0.2 port 42744 connected to 192.168.77.10 port 5201
[ ID] Interval           Transfer     Bitrate         Retr  Cwnd
[  5]   0.00-1.00   sec  1.09 MBytes  2.29 Mbits/sec    0   51.3 KBytes       
[  5]   1.00-2.00   sec   120 KBytes   500 Kbits/sec                  
[  5]   2.00-3.00   sec  0.00 Bytes  0.00 bits/sec    0   1.70 MBytes       
[  5]   9.00-10.00  sec  1.10 GBytes  9.44 Gbits/sec                  
- - - - - - - - - - - - - - - - - - - - - - - - -
[ ID] Interval           Transfer     Bitrate         Retr
[  5]   0.00-40.00  sec  8.69 MBytes  1.82 Mbits/sec    0             sender
[  5]   0.00-40.14  sec  8.43 MBytes  1.76 Mbits/sec                  receiver
`;

test('rates are those of the intervals, in megabits', () => {
  assert.deepEqual(readRates(kTransfer), [2.29, 0.5, 0, 9440]);
  assert.deepEqual(readRates(''), []);
});
