// The engineer acts at random moments while connections are opened and ended.
import assert from 'node:assert/strict';

import { endedConnections, Engineer, wrongReports } from '../../lab/harness/acts.mjs';
import { kGrant } from '../../lab/harness/lab.mjs';
import { Random } from '../../lab/harness/random.mjs';
import { scenario } from './scenario.mjs';

const kMostMs = 300_000;

const seed = Number(process.env.VELMARINE_SEED ?? Math.floor(Math.random() * 1e6));

/**
 * A scenario of `connections` clicks on 连接, a share `stops` of which is followed by 断开, with other acts
 * meanwhile: every act has a lasting effect, and each connection except the last is reported ended once.
 */
export function twoAtOnce(name, { connections, stops, prepare = () => {} }) {
  scenario(`${name} (seed ${seed})`, { timeoutMs: kMostMs }, async (lab, program, t) => {
    const random = new Random(seed);
    const engineer = new Engineer(lab, random);
    const states = { '#c-connect': new Set(), '#c-stop': new Set() };
    const click = async (button) => { states[button].add((await engineer.round(button)).state); };
    const started = performance.now();
    await lab.service.setGrant(kGrant, { numbered: true });
    await prepare(lab, random);
    for (let i = 1; i <= connections; i += 1) {
      await click('#c-connect');
      if (i < connections && random.between(0, 1) < stops) await click('#c-stop');
    }
    t.diagnostic(`${engineer.acts} acts in ${engineer.rounds} jobs, ${engineer.saved.size} profiles, ` +
      `${((performance.now() - started) / 1000).toFixed(1)} s`);

    const { connectionId } = await lab.prefix.readSettings();
    const granted = await lab.service.granted();
    const ended = await endedConnections(lab.service);
    const reports = wrongReports({ granted, ended, inForce: connectionId });
    assert.deepEqual([...engineer.wrong, ...reports], []);
    assert.equal(granted.length, connections);
    assert.equal(connectionId, granted.at(-1));
    assert.deepEqual([...states['#c-connect']], ['在线']);
    for (const state of states['#c-stop']) assert.equal(state, '未连接');
  });
}
