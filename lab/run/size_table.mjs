// The table of sizes in docs/protocols.md, from the scenario's results.
// Usage: node lab/run/size_table.mjs   writes the table from build/test/sizes.json into the document.
import { readFileSync } from 'node:fs';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

import { readTable as readTableBetween, replaceTable } from './document_table.mjs';
import { kBuild, kRepo } from '../harness/paths.mjs';
import { kMaxUdpPacketBytes } from '../standins/service/udp_datagrams.mjs';

export const kReport = path.join(kBuild, 'test/sizes.json');
export const kDocument = path.join(kRepo, 'docs/protocols.md');
/** IPv4's and UDP's headers. */
export const kUdpHeaderBytes = 28;
/** IPv4's and TCP's headers without options. */
export const kTcpHeaderBytes = 40;
/** The program lowers the segment size announced to the device to this value. */
export const kMssCeiling = 1310;
export const kMinMss = 536;
export const kMaxMss = 1460;

const kHeader = ['what is sent', 'IP packet, bytes', 'direct', 'NAT', 'direct, WebSocket only', 'NAT, WebSocket only',
  'where it ends'];
const kMarks = { begin: '<!-- made by lab/run/size_table.mjs -->', end: '<!-- up to here, sizes -->' };
const kColumns = ['udp', 'webSocket'].flatMap((relay) => ['direct', 'NAT'].map((route) => ({ relay, route })));
const kWays = { udp: 'by UDP', webSocket: 'by WebSocket' };
const kEnds = {
  lab: 'not shown: more than the lab carries',
  capture: 'the capture ends with the first fragment, until the next connection',
  site: 'on site',
  answer: 'the answer: its fragments are dropped',
};
/** The sizes at which the treatment of segments changes. */
const kFirstOfGroup = [kMinMss, kMaxUdpPacketBytes - kTcpHeaderBytes + 1, kMssCeiling + 1];

const range = (numbers) => distinct([Math.min(...numbers), Math.max(...numbers)]).join(' to ');
const distinct = (items) => [...new Set(items)];
const waysText = (ways) => distinct(ways).map((way) => kWays[way]).join(' and ');

function datagramCell(result) {
  if (!result || result.end === 'lab') return '-';
  return result.returned > 0 ? waysText(result.ways) : 'no';
}

/** The rows of datagrams of one kind: passed to the driver 'whole' by the stack, or 'cut'. */
function datagramRows(results, kind, note) {
  const own = results.filter((one) => one.kind === kind);
  return distinct(own.map(({ size }) => size)).map((size) => {
    const tries = own.filter((one) => one.size === size);
    const cells = kColumns.map(({ relay, route }) =>
      datagramCell(tries.find((one) => one.relay === relay && one.route === route)));
    const ends = distinct(tries.map(({ end }) => end).filter(Boolean));
    return [`UDP, ${size} ${size === 1 ? 'byte' : 'bytes'}${note}`, String(size + kUdpHeaderBytes), ...cells,
      ends.map((end) => kEnds[end]).join('; ')];
  });
}

/** All of the group's sizes must work; the sampled ones show the path of the full segments. */
function streamCell(streams, samples) {
  if (streams.length === 0) return '-';
  const working = streams.filter(({ works }) => works).length;
  if (working < streams.length) return `${working} of ${streams.length}`;
  return waysText(samples.flatMap(({ toDevice, back }) => [...toDevice.ways, ...back.ways]));
}

function packetText(samples) {
  if (samples.length === 0) return '-';
  const [there, back] = ['toDevice', 'back'].map((end) => range(samples.map((one) => one[end].packetBytes)));
  return there === back ? there : `${there}, back ${back}`;
}

function streamRows(results) {
  return kFirstOfGroup.map((first, index) => {
    const last = (kFirstOfGroup[index + 1] ?? kMaxMss + 1) - 1;
    const own = results.filter(({ mss }) => mss >= first && mss <= last);
    const [streams, samples] = ['stream', 'sample'].map((kind) => own.filter((one) => one.kind === kind));
    const cells = kColumns.map(({ relay, route }) => {
      const isHere = (one) => one.relay === relay && one.route === route;
      return streamCell(streams.filter(isHere), samples.filter(isHere));
    });
    return [`TCP, segments of ${first} to ${last} bytes`, packetText(samples), ...cells, ''];
  });
}

/** The table's rows, each a list of cells, from the scenario's `results`. */
export const rowsOf = (results) => [
  ...datagramRows(results, 'whole', ''), ...datagramRows(results, 'cut', ', cut before the driver'),
  ...streamRows(results)];

/** The rows in the document. */
export const readTable = (document) => readTableBetween(document, kMarks);

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  replaceTable(kDocument, kMarks, kHeader, rowsOf(JSON.parse(readFileSync(kReport, 'utf8'))));
}
