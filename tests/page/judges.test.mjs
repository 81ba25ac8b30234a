// The verdicts on the page with data in it: axe in every state at every size, the validator in every state.
import assert from 'node:assert/strict';
import { readFile } from 'node:fs/promises';
import { createRequire } from 'node:module';
import { after, before, describe, test } from 'node:test';

import { BrowserPage, closeBrowser, openBrowser } from './browser_page.mjs';
import { findFaintTexts } from './page_colours.mjs';
import { kSizes, sizeName } from './page_sizes.mjs';
import { kLongValues, kStates, log } from './page_states.mjs';

const require = createRequire(new URL('../../lab/package.json', import.meta.url));
const { HtmlValidate } = require('html-validate');
const kAxe = await readFile(require.resolve('axe-core/axe.min.js'), 'utf8');
const kOpenMs = 60_000;
const kStateMs = 10_000;

/** Each state with the phase that the page must be in when it is judged. */
const kJudged = Object.entries({
  first: 'idle', resolved: 'idle', working: 'idle working', online: 'online', testing: 'online working',
  reconnecting: 'reconnecting', retrying: 'retrying', failed: 'failed', error: 'error', long: 'online',
}).map(([name, phase]) => ({ name, phase, messages: { ...kStates, long: kLongValues }[name] }));

/** Pages for all tests, without motion, which would show colours in transition. Opening a page costs most. */
const pages = {};
before(async () => {
  await openBrowser();
  for (const embedded of [true, false]) {
    const page = await BrowserPage.open({ reducedMotion: 'reduce', embedded });
    await page.view.evaluate(kAxe);
    pages[embedded ? 'embedded' : 'preview'] = page;
  }
}, { timeout: kOpenMs });
after(closeBrowser);

/** Sets the window's size and scale. */
async function resize({ view }, { width, height, scale = 1 }) {
  const session = await view.context().newCDPSession(view);
  await session.send('Emulation.setDeviceMetricsOverride', { width, height, deviceScaleFactor: scale, mobile: false });
  assert.deepEqual(await view.evaluate(() => [innerWidth, innerHeight, devicePixelRatio]), [width, height, scale]);
}

/** Shows a state as a new page would: with its own log lines only, and no retry left over, because success ends it. */
async function show(page, { messages, phase }) {
  await page.deliverAll([{ t: 'init', role: 'client' }, ...kStates.online, { t: 'logs', lines: [] }, ...messages]);
  const shown = await page.view.evaluate(() => document.body.dataset.phase + ('job' in document.body.dataset ? ' working' : ''));
  assert.equal(shown, phase);
  assert.deepEqual(page.errors, []);
}

// ---- axe

/** All rules that are on by default, and the size of click targets, which is not. */
async function axeFindings(page, rules = {}) {
  const violations = await page.view.evaluate(async (given) => {
    const options = { resultTypes: ['violations'], rules: { 'target-size': { enabled: true }, ...given } };
    return (await window.axe.run(options)).violations;
  }, rules);
  return violations.map(({ id, nodes }) => `${id}: ${nodes.map(({ target }) => target).join(', ')}`);
}

const judgeTest = (name, body) => test(name, { timeout: kStateMs }, body);

for (const size of kSizes) {
  describe(`axe finds nothing at ${sizeName(size)}`, () => {
    before(() => resize(pages.embedded, size));
    for (const state of kJudged) {
      judgeTest(state.name, async () => {
        await show(pages.embedded, state);
        assert.deepEqual(await axeFindings(pages.embedded), []);
      });
    }
    judgeTest('log tab', async () => {
      await pages.embedded.click('t-log');
      assert.equal(await pages.embedded.isVisible('full-log'), true);
      assert.deepEqual(await axeFindings(pages.embedded), []);
    });
    judgeTest('edge role', async () => {
      await pages.embedded.deliver({ t: 'init', role: 'edge' });
      assert.equal(await pages.embedded.isVisible('pane-edge'), true);
      assert.deepEqual(await axeFindings(pages.embedded), []);
    });
  });
}

describe('axe finds nothing in high contrast', () => {
  before(() => pages.embedded.view.emulateMedia({ forcedColors: 'active' }));
  after(() => pages.embedded.view.emulateMedia({ forcedColors: 'none' }));
  // Axe reads -webkit-text-fill-color, which Chromium does not force: findFaintTexts judges contrast instead.
  const judge = async () => {
    assert.deepEqual(await axeFindings(pages.embedded, { 'color-contrast': { enabled: false } }), []);
    assert.deepEqual(await pages.embedded.view.evaluate(findFaintTexts), []);
  };
  for (const state of kJudged) {
    judgeTest(state.name, async () => {
      await show(pages.embedded, state);
      await judge();
    });
  }
  judgeTest('log tab', async () => {
    await pages.embedded.click('t-log');
    await judge();
  });
});

describe('axe finds nothing in the preview', () => {
  for (const role of ['client', 'edge']) {
    judgeTest(role, async () => {
      await pages.preview.view.click(`[data-preview="${role}"]`);
      assert.equal(await pages.preview.isVisible(`pane-${role}`), true);
      assert.deepEqual(await axeFindings(pages.preview), []);
    });
  }
});

// ---- the validator

const kValidator = new HtmlValidate({
  // Not `recommended`: those rules are about source style, and the browser serialises in its own.
  extends: ['html-validate:standard', 'html-validate:document', 'html-validate:a11y'],
});

async function validatorFindings(html) {
  const { results } = await kValidator.validateString(html, 'app.html');
  return results.flatMap(({ messages }) => messages).map(({ line, ruleId, message }) => `${line} ${ruleId}: ${message}`);
}

/** The page's current markup. Style and script are in the file's own test. */
const standing = (page) => page.view.evaluate(() => {
  const copy = document.documentElement.cloneNode(true);
  for (const element of copy.querySelectorAll('style, script')) element.remove();
  return `<!DOCTYPE html>\n${copy.outerHTML}`;
});

describe('the validator finds nothing in the page as it stands', () => {
  for (const state of kJudged) {
    judgeTest(state.name, async () => {
      await show(pages.embedded, state);
      assert.deepEqual(await validatorFindings(await standing(pages.embedded)), []);
    });
  }
  judgeTest('log tab', async () => {
    await pages.embedded.click('t-log');
    assert.deepEqual(await validatorFindings(await standing(pages.embedded)), []);
  });
  judgeTest('edge role', async () => {
    await pages.embedded.deliver({ t: 'init', role: 'edge' });
    assert.deepEqual(await validatorFindings(await standing(pages.embedded)), []);
  });
});

// ---- the judges themselves

describe('the judges see what is wrong', () => {
  judgeTest('a faint line, a button without a name, small targets side by side, an id twice', async () => {
    const page = pages.embedded;
    await show(page, kJudged[0]);
    await page.deliver(log('01:02:03', '一行'));
    await page.view.evaluate(() => {
      document.querySelector('#c-log > :last-child').style.color = '#333';
      document.querySelector('#c-test').textContent = '';
      const tiny = '<button id="c-log" class="tiny">x</button>';
      document.querySelector('#c-save').insertAdjacentHTML('beforebegin', tiny + tiny);
      for (const button of document.querySelectorAll('.tiny')) {
        Object.assign(button.style, { flex: 'none', width: '9px', minWidth: 0, height: '9px', padding: 0 });
      }
    });
    const seen = (await axeFindings(page)).map((text) => text.split(':')[0]);
    assert.deepEqual(seen.toSorted(), ['button-name', 'color-contrast', 'target-size']);
    const rules = (await validatorFindings(await standing(page))).map((text) => text.split(/[ :]/)[1]);
    assert.ok(rules.includes('no-dup-id') && rules.includes('text-content'), rules.join(' '));
  });
});
