// A stack that fragments datagrams before the driver sees them, as Linux does and Windows does not. The driver's
// library cannot compute the first fragment's checksum, which ends the capture; the log must report it.
import assert from 'node:assert/strict';

import { kPlc } from '../../lab/harness/network.mjs';
import { ping } from '../../lab/harness/tools.mjs';
import { connect, logsAfter, occurrences, scenario } from './scenario.mjs';

const kFragment = '警告：遇到被分片的数据包，截取已停止，现在访问不到现场；请点“断开”再点“连接”，并让发送它的软件改用更小的数据包。';
const kMoreThanThePathBytes = 2000;

const pingLarge = (lab) =>
  lab.tool(['ping', '-n', '-c', '2', '-i', '0.2', '-W', '1', '-s', String(kMoreThanThePathBytes), kPlc]);

scenario('a fragment that ends the capture is reported once, and a new connection repairs it', { site: true },
  async (lab, program) => {
    for (const times of [1, 2]) {
      await connect(program);
      const { ok, error } = await ping(lab, kPlc, 3);
      assert.ok(ok, `small packets pass: ${error}`);
      const before = await lab.service.relayConnections();
      await logsAfter(program, kFragment, async () => {
        assert.notEqual((await pingLarge(lab)).code, 0, 'the fragments get no answer');
      });
      assert.ok(!(await ping(lab, kPlc, 1)).ok, 'nothing leaves any more');
      assert.equal(await program.state(), '在线');
      assert.equal(await lab.service.relayConnections(), before);
      assert.equal(occurrences(await program.log(), kFragment), times, 'once for each end of a capture');
      await program.click('#c-stop');
      await program.waitForText('#s-state', '未连接');
    }
  });
