// Writes the binary seeds: node fuzz/make_seeds.mjs. The packets have no checksums, because no
// target checks them.
import { mkdirSync, writeFileSync } from 'node:fs';
import { dirname, join } from 'node:path';
import { fileURLToPath } from 'node:url';

const seeds = join(dirname(fileURLToPath(import.meta.url)), 'seeds');

function write(target, name, ...parts) {
  mkdirSync(join(seeds, target), { recursive: true });
  writeFileSync(join(seeds, target, name), Buffer.concat(parts.map((part) => Buffer.from(part))));
}

const u16 = (value) => [value >> 8, value & 255];
const octets = (address) => address.split('.').map(Number);

function ipv4(protocol, source, destination, transport) {
  const head = [0x45, 0, ...u16(20 + transport.length), 0, 1, 0x40, 0, 64, protocol, 0, 0];
  return [...head, ...octets(source), ...octets(destination), ...transport];
}
const ping = (source, destination, type = 8) =>
  ipv4(1, source, destination, [type, 0, 0, 0, 0x12, 0x34, 0, 1, 1, 2, 3, 4]);
const udp = (source, destination, from, to) =>
  ipv4(17, source, destination, [...u16(from), ...u16(to), 0, 13, 0, 0, 104, 101, 108, 108, 111]);
// A SYN that announces 1460 bytes.
const syn = (source, destination, from, to) =>
  ipv4(6, source, destination,
    [...u16(from), ...u16(to), 0, 0, 0, 1, 0, 0, 0, 0, 0x60, 2, 0xfa, 0xf0, 0, 0, 0, 0, 2, 4, 5, 180]);

const here = '192.168.1.50';
const tunnel = '10.99.0.7';

// packet: whether discovery is on; then the packets, each after a byte for its direction (odd: from
// the relay) and length.
const outbound = (packet) => [packet.length * 2, ...packet];
const inbound = (packet) => [packet.length * 2 + 1, ...packet];
write('packet', 'ping.bin', [0], outbound(ping(here, '172.31.0.20')), inbound(ping('192.168.1.20', tunnel, 0)));
write('packet', 'tcp.bin', [0], outbound(syn(here, '172.31.0.20', 50000, 502)),
  inbound(syn('192.168.1.20', tunnel, 502, 50000)));
write('packet', 'udp.bin', [0], outbound(udp(here, '10.0.0.9', 40000, 161)), inbound(udp('10.0.0.9', tunnel, 161, 40000)));
write('packet', 'discovery.bin', [1], outbound(udp(here, '255.255.255.255', 30000, 34964)),
  inbound(udp('192.168.1.77', tunnel, 34964, 30000)));
write('packet', 'fragment.bin', [0], outbound(udp(here, '172.31.0.20', 1, 2).fill(0x20, 6, 7)));

// websocket_frame: the chunk size minus one, then the stream.
const frame = (first, payload) => payload.length < 126
  ? [first, payload.length, ...payload] : [first, 126, ...u16(payload.length), ...payload];
write('websocket_frame', 'messages.bin', [6], frame(0x82, [1, 2, 3]), frame(0x82, new Array(200).fill(7)), frame(0x88, []));
write('websocket_frame', 'fragments.bin', [0], frame(0x02, [1]), frame(0x89, [9]), frame(0x00, [2]), frame(0x80, [3]));
write('websocket_frame', 'masked.bin', [255], [0x82, 0x83, 1, 2, 3, 4, 5, 6, 7], frame(0x81, [65]), frame(0x8a, []));
write('websocket_frame', 'long_form.bin', [9], [0x82, 127, 0, 0, 0, 0, 0, 0, 0, 2, 5, 6], [0x82, 126, 0, 1, 7]);
write('websocket_frame', 'too_long.bin', [9], [0x82, 127, 0, 0, 0, 0, 0, 0x40, 0, 1]);

// udp_datagram: the expected token, then the datagram.
const token = [0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88];
write('udp_datagram', 'acknowledgement.bin', token, 'TNR1', [3, 2], token);
write('udp_datagram', 'packet.bin', token, 'TNR1', [4], token, ping('192.168.1.20', tunnel, 0));
write('udp_datagram', 'zero_token.bin', new Array(8).fill(0), 'TNR1', [3, 2], new Array(8).fill(0));
write('udp_datagram', 'other_type.bin', token, 'TNR1', [2, 0, 1, 65, 0, 0]);

// relay_session: choices; then for each connection whether it succeeds, how the UDP relay starts,
// and the steps as Script::Step() numbers them.
const counted = (bytes) => [bytes.length, ...bytes];
const steps = {
  raw: (bytes) => [0, ...counted(bytes)],
  accept: [1],
  message: (bytes) => [2, ...counted(bytes)],
  answer: [3],
  frame: (first, bytes) => [4, first, ...counted(bytes)],
  longFrame: (first, length) => [5, first, length / 250],
  end: (error) => [6, error],
  capture: (packet) => [7, ...counted(packet)],
  longer: (how) => [8, how],
  datagram: (bytes) => [9, ...counted(bytes)],
  acknowledge: [10, 0],
  udpAnswer: [11],
  wait: (seconds) => [12, seconds * 4],
  network: (how) => [13, how],
  close: [14],
};
const connects = 0;
const [udpNone, udpAnswers, udpSilent] = [0, 1, 2];
const asks = [steps.capture(ping(here, '172.31.0.20')), steps.answer, steps.capture(syn(here, '10.0.0.9', 50000, 502)), steps.answer];
write('relay_session', 'web_socket.bin', [0, connects], steps.accept, [udpNone], ...asks, steps.end(0));
write('relay_session', 'by_udp.bin', [0, connects], steps.accept, [udpAnswers],
  steps.capture(udp(here, '172.31.0.20', 40000, 161)), steps.udpAnswer, steps.longer(90), steps.answer, steps.wait(15), steps.wait(31));
write('relay_session', 'udp_lost_and_back.bin', [0, connects], steps.accept, [udpAnswers], steps.network(1),
  steps.wait(20), steps.wait(30), steps.capture(ping(here, '10.0.0.9')), steps.network(0), steps.acknowledge, steps.wait(15));
write('relay_session', 'silent_udp.bin', [0, connects], steps.accept, [udpSilent], steps.acknowledge,
  steps.datagram([84, 78, 82, 49, 4]), steps.network(3), steps.wait(15));
write('relay_session', 'discovery.bin', [1, connects], steps.accept, [udpNone],
  steps.capture(udp(here, '255.255.255.255', 30000, 34964)), steps.answer);
write('relay_session', 'reconnects.bin', [0, connects], steps.accept, [udpNone], steps.end(1), [0xff], [connects],
  steps.accept, [udpAnswers], ...asks, steps.end(0), [connects], steps.raw([...Buffer.from('HTTP/1.1 503 no\r\n\r\n')]));
write('relay_session', 'frames.bin', [0, connects], steps.accept, [udpNone], steps.frame(0x89, [1, 2]), steps.frame(0x02, [1]),
  steps.frame(0x80, [2]), steps.longFrame(0x82, 60000), steps.frame(0x81, [65]), steps.raw([0x82]), steps.raw([1, 9]), steps.frame(0x88, []));
write('relay_session', 'slow_sends.bin', [0, connects], steps.accept, [udpNone], steps.network(0x60), ...asks,
  steps.longer(255), steps.network(0x1c), ...asks, steps.close);
write('relay_session', 'driver_refuses.bin', [1, connects], steps.accept, [udpAnswers], steps.capture(udp(here, '10.0.0.9', 1, 2)),
  steps.network(15), steps.answer, steps.udpAnswer, steps.end(0), [connects], steps.accept, [udpNone], steps.network(0), steps.answer);

// flow_tables: steps as Tables::Step() numbers them, each with its key (protocol, source, port, destination, port).
const key = (protocol, host, port) => [protocol, 10, 7, port, 192, host, 2];
write('flow_tables', 'rows.bin', [1, ...key(1, 20, 5), 255, 1, 0], [2, ...key(2, 30, 9), 255, 3, 1], [6, ...key(1, 20, 5)]);
write('flow_tables', 'many_rows.bin', ...[1, 2, 3, 4, 5, 6, 7, 8].map((n) => [n % 2 + 1, ...key(n % 3, n * 31, n * 7), 255, n, n % 2]));
write('flow_tables', 'broadcasts.bin', [3, 24, 192, 0, 1, 2], [3, 16, 192, 0, 1, 2], [3, 24, 10, 0, 3, 4], [4, 192, 9, 1, 2], [4, 192, 9, 2, 1], [5, 0]);
