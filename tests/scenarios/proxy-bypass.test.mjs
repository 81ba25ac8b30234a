// While connected, the site's networks are on the user's proxy bypass list.
import assert from 'node:assert/strict';

import { kTunnelAddress } from '../../lab/harness/network.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';
import { connect, scenario } from './scenario.mjs';

const kTold = 'wParam 0: Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings';
const kRemoved = '已移除系统代理旁路：';
const kBusyMs = 20_000;  // of a program that no longer answers

const read = (lab) => lab.prefix.proxyOverride({ namespace: lab.network.engineer });
const write = (lab, text, options) =>
  lab.prefix.setProxyOverride(text, { namespace: lab.network.engineer, ...options });

const grant = (lab, ...routes) =>
  lab.service.setGrant({ connectionId: 'CONN-0001', assignedAddress: kTunnelAddress, routes });

/** Clicks 断开, waits for its outcome and returns its text. */
async function disconnect(program) {
  await program.click('#c-stop');
  return program.waitForText('#c-statusline', /远程调试会话已断开。/);
}

/** Another program is notified of exactly one more change. */
async function isTold(heard, count) {
  await waitUntil(`message ${count}`, () => heard().length >= count);
  assert.deepEqual(heard(), Array(count).fill(kTold));
}

scenario('connecting adds the networks to the proxy bypass list and disconnecting removes them', {},
  async (lab, program) => {
    const heard = await lab.desktop.startSettingWatch();
    await write(lab, ' localhost ; <local>;10.1.*;');
    await grant(lab, '10.1.0.0/16', '192.168.5.0/24', '192.168.5.128/25', '96.0.0.0/7', '203.0.113.9/32');
    await connect(program);
    assert.equal(await read(lab), 'localhost;<local>;10.1.*;192.168.5.*;203.0.113.9');
    await isTold(heard, 1);

    // Entries that others add meanwhile stay; an entry that existed before is removed with the rest.
    await write(lab, `${await read(lab)};*.intern.example`);
    const text = await disconnect(program);
    assert.ok(text.endsWith(`\r\n${kRemoved}10.1.*;192.168.5.*;203.0.113.9`), text);
    assert.equal(await read(lab), 'localhost;<local>;*.intern.example');
    await isTold(heard, 2);

    // Nothing to add, so no program is notified.
    await write(lab, 'localhost;10.1.*', { type: 'REG_EXPAND_SZ' });
    await grant(lab, '10.1.0.0/16');
    await connect(program);
    assert.equal(await read(lab), 'localhost;10.1.*');
    await write(lab, 'localhost');
    assert.equal((await disconnect(program)).includes(kRemoved), false);
    assert.equal(await read(lab), 'localhost');
    await isTold(heard, 2);

    // A list with only the connection's entries, and no list before.
    await write(lab, null);
    await connect(program);
    assert.equal(await read(lab), '10.1.*');
    await disconnect(program);
    assert.equal(await read(lab), '');
    await isTold(heard, 4);
  });

scenario('closing the window leaves the entries, which the next start removes', {},
  async (lab, program) => {
    const heard = await lab.desktop.startSettingWatch({ busyMs: kBusyMs });
    await write(lab, 'localhost');
    await connect(program);
    assert.deepEqual(heard(), [kTold], 'a program that does not answer does not hold the connection up');
    assert.equal(await program.closeWindow(), 0);
    assert.equal(await read(lab), 'localhost;192.168.77.*;10.10.0.*');

    const next = await lab.startProgram();
    assert.equal(await read(lab), 'localhost');
    assert.equal((await next.log()).split('已清理上次运行遗留的系统代理旁路：192.168.77.*;10.10.0.*\r\n').length, 2);
    const text = await disconnect(next);
    assert.equal(text.includes(kRemoved), false, text);
    assert.equal(await read(lab), 'localhost');
  });
