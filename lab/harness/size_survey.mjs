// Sends every size through the tunnel to the controller's echo service and back. Reports the tool's result
// for each, and the path of its packets from the relay's record.
import path from 'node:path';

import { kRoutes } from '../protocols/survey.mjs';
import { kRepo } from './paths.mjs';
import { runOrFail } from './processes.mjs';
import { kUdpHeaderBytes } from '../run/size_table.mjs';

const kTool = path.join(kRepo, 'lab/standins/engineer/echo_sizes.py');
const kTcp = 6;
const kUdp = 17;
const kTries = 5;
const kAtOnce = 16;
/** The largest IP packet; as the limit of the engineer's stack, it prevents fragmentation. */
export const kMaxPacketBytes = 65_535;
/** A packet between the stack and the driver's stand-in is one datagram on loopback. */
export const kLabPacketBytes = 65_507;

/** Sends sizes with lab/standins/engineer/echo_sizes.py; returns its list. */
async function echo(lab, kind, route, count, sizes) {
  const { stdout } = await runOrFail(
    ['/usr/bin/python3', kTool, kind, kRoutes[route], String(count), ...sizes.map(String)],
    { namespace: lab.network.engineer });
  return JSON.parse(stdout);
}

/**
 * The relevant parts of a recorded packet's headers (RFC 791, section 3.1; RFC 9293, section 3.1). `port` is the
 * engineer's; later fragments have none.
 */
function headersOf({ direction, via, hex }) {
  const packet = Buffer.from(hex, 'hex');
  const fragment = packet.readUInt16BE(6);
  const transport = (packet[0] & 15) * 4;
  const isFirst = (fragment & 0x1fff) === 0;
  const isTcp = packet[9] === kTcp;
  return {
    direction, via, protocol: packet[9], packetBytes: packet.length, isFirst, isFragment: (fragment & 0x3fff) !== 0,
    port: isFirst ? packet.readUInt16BE(transport + (direction === 'fromClient' ? 0 : 2)) : null,
    dataBytes: isTcp ? packet.length - transport - (packet[transport + 12] >> 4) * 4 : 0,
  };
}

/** Runs `action` and returns [its result, the headers of the packets that the relay carried meanwhile]. */
async function recorded(lab, action) {
  await lab.service.keepPackets(true);
  const result = await action();
  await lab.service.keepPackets(false);
  const packets = (await lab.service.packets()).map(headersOf);
  await lab.service.forgetPackets();
  return [result, packets];
}

const distinct = (items) => [...new Set(items)];

/** Where unanswered datagrams ended; the controller answers only whole ones. */
function endOf({ size, returned }, own) {
  if (returned > 0) return null;
  if (own.some(({ direction }) => direction === 'toClient')) return 'answer';
  if (own.length > 0) return 'site';
  return size + kUdpHeaderBytes > kLabPacketBytes ? 'lab' : 'capture';
}

/**
 * Sends datagrams of each size. Returns {results, packets}: {size, sent, returned, wrong, ways, end} of each, and
 * the relay's record. `end` is null if they returned, or 'lab' (the stand-ins cannot carry them), 'capture' (they
 * never reached the relay), 'site' (the controller did not answer) or 'answer'.
 */
export async function sendDatagrams(lab, route, sizes) {
  const [list, all] = await recorded(lab, () => echo(lab, 'udp', route, kTries, sizes));
  const packets = all.filter(({ protocol }) => protocol === kUdp);
  const results = list.map(({ port, ...one }) => {
    const own = packets.filter((packet) => packet.port === port);
    return { ...one, ways: distinct(own.map(({ via }) => via)), end: endOf(one, own) };
  });
  return { results, packets };
}

/** Sends a stream in segments of each size: [{mss, sendMss, works, error}]. */
export async function sendStreams(lab, route, sizes) {
  return echo(lab, 'tcp', route, kAtOnce, sizes);
}

/** One direction's segments with data: the largest packet, its path, and the paths of the smaller ones. */
function segmentsOf(packets, direction) {
  const segments = packets.filter((one) => one.direction === direction && one.dataBytes > 0);
  const packetBytes = Math.max(...segments.map((one) => one.packetBytes));
  const waysOf = (wanted) => distinct(segments.filter(wanted).map(({ via }) => via));
  return {
    packetBytes, dataBytes: Math.max(...segments.map((one) => one.dataBytes)),
    ways: waysOf((one) => one.packetBytes === packetBytes),
    waysOfSmaller: waysOf((one) => one.packetBytes < packetBytes),
  };
}

/** Like sendStreams(), with {toDevice, back} of each from the relay's record. */
export async function sampleStreams(lab, route, sizes) {
  const [results, all] = await recorded(lab, () => sendStreams(lab, route, sizes));
  const packets = all.filter(({ protocol }) => protocol === kTcp);
  return results.map((one) => {
    const own = packets.filter(({ port }) => port === one.port);
    return { ...one, toDevice: segmentsOf(own, 'fromClient'), back: segmentsOf(own, 'toClient') };
  });
}

/**
 * Makes the engineer's stack fragment IP packets above `bytes`. On Windows, WinDivert sees datagrams before they
 * are fragmented.
 */
export async function limitStack(lab, bytes) {
  await runOrFail(['ip', '-n', lab.network.engineer, 'link', 'set', 'wd0', 'mtu', String(bytes)]);
}

/** The counters of the engineer's IP stack, by the names of Linux. */
export async function ipCounters(lab) {
  const { stdout } = await runOrFail(['cat', '/proc/net/snmp'], { namespace: lab.network.engineer });
  const [names, values] = stdout.split('\n').filter((line) => line.startsWith('Ip:'))
    .map((line) => line.split(' ').slice(1));
  return Object.fromEntries(names.map((name, index) => [name, Number(values[index])]));
}
