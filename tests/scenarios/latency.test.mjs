// 测试: one echo request to a device, usually through the tunnel, and its result.
import assert from 'node:assert/strict';

import { kPlc, kPlcOverlapping, kTunnelAddress } from '../../lab/harness/network.mjs';
import { connect, logsAfter, occurrences, scenario } from './scenario.mjs';

const kMappedPlc = '172.31.0.10';
const kSilentOnSite = '192.168.77.99';  // an unused address
const kRefusedOnSite = '192.168.77.66';
const kRefusedNearby = '198.51.100.7';
const kIcmp = 1;
const kEchoRequest = 8;
const kEchoReply = 0;
const kUnreachable = 3;
const kPayload = Buffer.from('Velmarine\0');

/** Tests `address` and checks the line in the log and on the page, and the stored result. */
async function tests(lab, program, address, line, kept) {
  await program.type('#c-testip', address);
  const log = await logsAfter(program, line, () => program.click('#c-test'));
  assert.ok(log.includes('正在测试通讯延迟...'), log);
  const shown = await program.waitForText('#c-statusline', line);
  const { latencyText, testIp } = await lab.prefix.readSettings();
  assert.equal(testIp, address.trim());
  if (kept instanceof RegExp) assert.match(latencyText, kept);
  else assert.equal(latencyText, kept);
  return { shown, latencyText };
}

async function answers(lab, program, address) {
  const trimmed = address.trim();
  const { shown, latencyText } = await tests(lab, program, address,
    new RegExp(`通讯延迟 \\d+ ms：${trimmed.replaceAll('.', '\\.')}`), /^\d+ ms$/);
  assert.equal(shown, `通讯延迟 ${latencyText}：${trimmed}`);
}

/** The ICMP messages at the relay since the last call: {direction, from, to, type, payload}. */
async function icmpAtRelay(lab) {
  const packets = await lab.service.packets();
  await lab.service.forgetPackets();
  return packets.map(({ direction, hex }) => ({ direction, packet: Buffer.from(hex, 'hex') }))
    .filter(({ packet }) => packet[9] === kIcmp)
    .map(({ direction, packet }) => {
      const message = packet.subarray((packet[0] & 15) * 4, packet.readUInt16BE(2));
      const at = (offset) => packet.subarray(offset, offset + 4).join('.');
      return { direction, from: at(12), to: at(16), type: message[0], payload: message.subarray(8) };
    });
}

const echoOf = (address) => [
  { direction: 'fromClient', from: kTunnelAddress, to: address, type: kEchoRequest, payload: kPayload },
  { direction: 'toClient', from: address, to: kTunnelAddress, type: kEchoReply, payload: kPayload },
];

async function whatIsNoAddressIsNotAsked(lab, program) {
  await tests(lab, program, '', '通讯延迟：未填写测试 IP。', '未填写测试 IP');
  await tests(lab, program, '   ', '通讯延迟：未填写测试 IP。', '未填写测试 IP');
  for (const address of ['256.1.1.1', 'plc.example', '::1', '192.168.77']) {
    await tests(lab, program, address, '通讯延迟测试失败：测试 IP 无效。', 'IP 无效');
  }
}

scenario('测试 measures a device by an echo through the tunnel and distinguishes silence from a refusal', {},
  async (lab, program) => {
    await lab.network.refuseNetwork('site', `${kRefusedOnSite}/32`);
    await lab.network.refuseNetwork('cloud', `${kRefusedNearby}/32`);
    await lab.network.routeEngineerByCable(`${kRefusedNearby}/32`);
    await lab.service.keepPackets(true);
    await tests(lab, program, kPlc, `通讯延迟测试超时：${kPlc}`, '超时');
    assert.deepEqual(await icmpAtRelay(lab), [], 'there is no tunnel yet');

    await connect(program);
    await answers(lab, program, kPlc);
    assert.deepEqual(await icmpAtRelay(lab), echoOf(kPlc));
    await answers(lab, program, kMappedPlc);
    assert.deepEqual(await icmpAtRelay(lab), echoOf(kPlcOverlapping));
    await answers(lab, program, `  ${kPlc} `);
    await tests(lab, program, kRefusedNearby, `通讯延迟测试失败：${kRefusedNearby}`, '失败');
    await whatIsNoAddressIsNotAsked(lab, program);

    // The packet path drops ICMP errors: the answer of the site's router reaches the computer and ends there.
    await lab.service.forgetPackets();
    await tests(lab, program, kRefusedOnSite, `通讯延迟测试超时：${kRefusedOnSite}`, '超时');
    assert.deepEqual((await icmpAtRelay(lab)).map(({ direction, type }) => ({ direction, type })),
      [{ direction: 'fromClient', type: kEchoRequest }, { direction: 'toClient', type: kUnreachable }]);
    await tests(lab, program, kSilentOnSite, `通讯延迟测试超时：${kSilentOnSite}`, '超时');
    const log = await program.log();
    for (const hint of ['1 秒内没有回答：', '这个地址没有走隧道。', '只能填 IPv4 地址，']) {
      assert.equal(occurrences(log, `提示：${hint}`), 1, log);
    }
  });
