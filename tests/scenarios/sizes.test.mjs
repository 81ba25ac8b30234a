// Datagrams and TCP segments of every size, byte by byte to the controller and back. Results and paths are written to
// build/test/sizes.json and must match docs/protocols.md.
import assert from 'node:assert/strict';
import { readFile, writeFile } from 'node:fs/promises';
import { test } from 'node:test';

import { kRoutes } from '../../lab/protocols/survey.mjs';
import { kMaxUdpPacketBytes } from '../../lab/standins/service/udp_datagrams.mjs';
import {
  ipCounters, kLabPacketBytes, kMaxPacketBytes, limitStack, sampleStreams, sendDatagrams, sendStreams,
} from '../../lab/harness/size_survey.mjs';
import {
  kDocument, kMinMss, kMaxMss, kMssCeiling, kReport, kTcpHeaderBytes, kUdpHeaderBytes, readTable, rowsOf,
} from '../../lab/run/size_table.mjs';
import { connect, logsAfter, scenario } from './scenario.mjs';

const kMtu = 1500;
const kUdpSizes = [1, 512, 1302, 1303, 1330, 1331, 1472, 1473, 4000, kLabPacketBytes - kUdpHeaderBytes, 65_507];
const kLossesAllowed = 1;  // of the tries of one size
const kMssSizes = Array.from({ length: kMaxMss - kMinMss + 1 }, (_, index) => kMinMss + index);
const kSampledMss = [536, 537, 1000, 1290, 1291, 1310, 1311, 1331, 1459, 1460];
const kFragment = '警告：遇到被分片的数据包，截取已停止，现在访问不到现场；请点“断开”再点“连接”，并让发送它的软件改用更小的数据包。';
const results = [];

const wayOf = (packetBytes, relay) =>
  (relay === 'udp' && packetBytes <= kMaxUdpPacketBytes ? 'udp' : 'webSocket');

/** Datagrams that fit in one packet return by the path for their size; the fragments of larger answers do not. */
function checkDatagrams(outcomes, relay) {
  for (const { size, sent, returned, wrong, ways, end } of outcomes) {
    const packetBytes = size + kUdpHeaderBytes;
    assert.equal(wrong, 0, `${size} bytes came back changed or twice`);
    if (packetBytes <= kMtu) {
      assert.ok(returned >= sent - kLossesAllowed, `${returned} datagrams of ${size} bytes came back`);
      assert.deepEqual(ways, [wayOf(packetBytes, relay)], `the way of ${size} bytes`);
    } else {
      assert.equal(returned, 0);
      assert.equal(end, packetBytes <= kLabPacketBytes ? 'answer' : 'lab', `${size} bytes`);
    }
  }
}

/** Records the result of datagrams that the stack passes on 'whole' or 'cut'. Returns the relay's record of them. */
async function useDatagrams(lab, conditions, sizes) {
  const { results: outcomes, packets } = await sendDatagrams(lab, conditions.route, sizes);
  results.push(...outcomes.map((one) => ({ ...conditions, ...one })));
  return { outcomes, packets };
}

/**
 * Large datagrams leave whole. The fragments of an answer are dropped: the driver's library cannot compute the first
 * one's checksum, and the later ones have no ports, so their flow is unknown.
 */
async function sendWhole(lab, relay, route) {
  const before = await ipCounters(lab);
  const { outcomes, packets } = await useDatagrams(lab, { kind: 'whole', relay, route }, kUdpSizes);
  const after = await ipCounters(lab);
  checkDatagrams(outcomes, relay);
  assert.ok(packets.filter(({ direction }) => direction === 'fromClient').every(({ isFragment }) => !isFragment));
  const fragments = packets.filter(({ isFragment }) => isFragment);
  const answers = fragments.filter(({ isFirst }) => isFirst);
  assert.ok(answers.length > 0 && fragments.length > answers.length, 'the relay sends all fragments of the answers');
  assert.equal(after.ReasmReqds, before.ReasmReqds, 'fragments that reached the engineer\'s stack');
}

/**
 * A stack that fragments datagrams before the driver sees them, as Linux does and Windows does not. The first fragment
 * ends the capture, like any failed checksum: one log line reports it, the page still shows the tunnel online, and
 * nothing leaves until the next connection.
 */
async function sendCut(lab, program, relay) {
  const route = 'direct';
  await limitStack(lab, kMtu);
  const told = await logsAfter(program, kFragment, async () => {
    const { outcomes, packets } = await useDatagrams(lab, { kind: 'cut', relay, route }, [kMtu - kUdpHeaderBytes + 1]);
    assert.deepEqual([outcomes[0].end, packets.length], ['capture', 0]);
    assert.equal((await sendDatagrams(lab, route, [512])).results[0].end, 'capture');
  });
  assert.equal(told.trimEnd().split('\r\n').length, 1, told);
  await program.waitForText('#s-state', '在线');
  await program.click('#c-stop');
  await program.waitForText('#s-state', '未连接');
  await connect(program);
  checkDatagrams((await sendDatagrams(lab, route, [512])).results, relay);
}

/** Segments had their size, up to the program's limit, and those of one stream took two paths if their sizes differ. */
function checkSegments({ mss, toDevice, back }, relay) {
  for (const [segments, size] of [[toDevice, mss], [back, Math.min(mss, kMssCeiling)]]) {
    const packetBytes = size + kTcpHeaderBytes;
    assert.deepEqual(segments, {
      packetBytes, dataBytes: size, ways: [wayOf(packetBytes, relay)], waysOfSmaller: [wayOf(0, relay)],
    }, `segments of ${mss} bytes`);
  }
}

async function sendEveryMss(lab, relay, route) {
  const streams = await sendStreams(lab, route, kMssSizes);
  const samples = await sampleStreams(lab, route, kSampledMss);
  const noted = (kind) => (one) => ({ kind, relay, route, ...one });
  results.push(...streams.map(noted('stream')), ...samples.map(noted('sample')));
  assert.deepEqual(streams.map(({ port, ...seen }) => seen),
    kMssSizes.map((mss) => ({ mss, sendMss: mss, works: true })));
  for (const sample of samples) {
    assert.ok(sample.works, sample.error);
    checkSegments(sample, relay);
  }
}

async function useAll(lab, program, relay) {
  await connect(program);
  await limitStack(lab, kMaxPacketBytes);
  for (const route of Object.keys(kRoutes)) {
    await sendWhole(lab, relay, route);
    await sendEveryMss(lab, relay, route);
  }
}

scenario('every size, small packets by UDP', { site: true }, async (lab, program) => {
  await useAll(lab, program, 'udp');
  await sendCut(lab, program, 'udp');
});

scenario('every size, only over the WebSocket', { site: true }, async (lab, program) => {
  await lab.service.setUdp({ helloAnswer: ['none'] });
  await useAll(lab, program, 'webSocket');
});

test('the document has the results seen for each size', async () => {
  await writeFile(kReport, `${JSON.stringify(results, null, 1)}\n`);
  assert.deepEqual(rowsOf(results), readTable(await readFile(kDocument, 'utf8')));
});
