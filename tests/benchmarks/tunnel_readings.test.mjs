// The tunnel benchmark's reading and summing of the output of iperf3, ping and its own generator.
import assert from 'node:assert/strict';
import { test } from 'node:test';

import { readIperf, readPackets, readPing, readSchedstat } from '../../benchmarks/tunnel/readings.mjs';

/** As `iperf3 -J` prints it, cut to what is read and a few members beside it. */
const iperf = (testStart, end) => JSON.stringify({
  start: { version: 'iperf 3.12', test_start: { protocol: 'TCP', reverse: 0, bidir: 0, ...testStart } },
  intervals: [], end: { streams: [], ...end },
});
const sum = (megabits, bytes) => ({ start: 0, end: 0.4, seconds: 0.4, bytes, bits_per_second: megabits * 1e6 });

test('a transfer up counts what the server received', () => {
  assert.deepEqual(readIperf(iperf({}, { sum_sent: sum(900, 60), sum_received: sum(800, 50) })),
    { upMegabits: 800, downMegabits: 0, bytes: 50 });
});

test('a transfer down counts what the client received', () => {
  assert.deepEqual(readIperf(iperf({ reverse: 1 }, { sum_sent: sum(900, 60), sum_received: sum(800, 50) })),
    { upMegabits: 0, downMegabits: 800, bytes: 50 });
});

test('of both directions at once each counts where it arrives', () => {
  assert.deepEqual(readIperf(iperf({ bidir: 1 }, {
    sum_sent: sum(500, 31), sum_received: sum(400, 30),
    sum_sent_bidir_reverse: sum(700, 41), sum_received_bidir_reverse: sum(600, 40) })),
  { upMegabits: 400, downMegabits: 600, bytes: 70 });
});

test('what iperf3 complains of is an error', () => {
  assert.throws(() => readIperf(JSON.stringify({ start: {}, error: 'the server is busy running a test. try again later' })), /busy/);
});

const kPing = `PING 192.168.77.10 (192.168.77.10) 56(84) bytes of data.
64 bytes from 192.168.77.10: icmp_seq=1 ttl=64 time=0.448 ms
64 bytes from 192.168.77.10: icmp_seq=3 ttl=64 time=12.5 ms
64 bytes from 192.168.77.10: icmp_seq=4 ttl=64 time=103 ms (DUP!)

--- 192.168.77.10 ping statistics ---
4 packets transmitted, 2 received, +1 duplicates, 50% packet loss, time 6ms
rtt min/avg/max/mdev = 0.448/38.649/103.000/0.109 ms
`;

test('the time of every reply is read, and nothing else', () => {
  assert.deepEqual(readPing(kPing), [0.448, 12.5, 103]);
  assert.deepEqual(readPing('PING 10.0.0.1 (10.0.0.1) 56(84) bytes of data.\n'), []);
});

test('packets are counted by the second', () => {
  assert.deepEqual(readPackets('{"received":990,"lost":10,"seconds":0.250000}\n'), { received: 990, perSecond: 3960, lostShare: 0.01 });
  assert.deepEqual(readPackets('{"received":0,"lost":0,"seconds":0.25}'), { received: 0, perSecond: 0, lostShare: 0 });
});

test("a thread's processor time is its schedstat's first number", () => {
  assert.equal(readSchedstat('123456789 2345 67\n'), 123456789);
});
