// Shared by all scenarios: a lab is created before each and closed after it, even if it fails.
import assert from 'node:assert/strict';
import { readdir, rm } from 'node:fs/promises';
import path from 'node:path';
import { test } from 'node:test';

import { kDeviceSecret, Lab } from '../../lab/harness/lab.mjs';
import { kBuild } from '../../lab/harness/paths.mjs';
import { waitUntil } from '../../lab/harness/program.mjs';

export { kDeviceSecret };
const kScenarioMs = 180_000;

/**
 * Runs `body(lab, program)` as one test in its own lab. `options` are for Lab.create() and startProgram();
 * `start: false` leaves the start to the body. Fails if anything is left over.
 */
export function scenario(name, options, body) {
  test(name, { timeout: options.timeoutMs ?? kScenarioMs }, async (t) => {
    const folder = name.replaceAll(/[^\p{L}\p{N}]+/gu, '-').slice(0, 80);
    const artifacts = path.join(kBuild, 'test/scenarios', folder);
    await rm(artifacts, { recursive: true, force: true });  // because the driver's log is appended to
    const lab = await Lab.create({ artifacts, site: false, ...options });
    let failure;
    try {
      const program = options.start === false ? undefined : await lab.startProgram(options);
      await body(lab, program, t);
      assert.deepEqual(await lab.service.protocolErrors(), [], 'frames that a strict relay refuses');
    } catch (error) {
      failure = error;
      await lab.display.screenshot(path.join(lab.artifacts, 'failure.png')).catch(() => {});
    }
    const left = await lab.close();
    if (failure) throw failure;
    assert.deepEqual(left, [], 'something outlived the lab');
  });
}

/** Pastes the key and clicks 连接, without waiting for the outcome. */
export async function clickConnect(program) {
  await program.type('#c-secret', kDeviceSecret);
  await program.click('#c-connect');
}

/** Connects and waits until the page shows the tunnel online. */
export async function connect(program) {
  await clickConnect(program);
  await program.waitForText('#s-state', '在线');
}

/**
 * Runs `action`, waits until the log has grown by the line or pattern `wanted`, and returns all new
 * lines.
 */
export async function logsAfter(program, wanted, action) {
  const before = (await program.log()).length;
  await action();
  let grown = '';
  await waitUntil(`the log line ${wanted}`, async () => {
    grown = (await program.log()).slice(before);
    return wanted instanceof RegExp ? wanted.test(grown) : grown.includes(`${wanted}\r\n`);
  }).catch((error) => { throw new Error(`${error.message}\n${grown}`); });
  return grown;
}

/** Pastes the key and makes the program save by turning on the discovery switch. */
export async function saveSettings(program) {
  await program.type('#c-secret', kDeviceSecret);
  await logsAfter(program, '局域网发现模式已开启：支持 PLC 广播扫描。', () => program.click('#c-discovery'));
}

/** The names of the damaged settings files that were kept. */
export async function damagedCopies(lab) {
  const names = await readdir(lab.prefix.roaming);
  return names.filter((name) => name.startsWith('Client.settings.damaged-'));
}

/** The number of occurrences of `text` in `whole`. */
export const occurrences = (whole, text) => whole.split(text).length - 1;
