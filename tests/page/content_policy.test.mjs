// The page's content policy admits the page itself and nothing that gets into it.
import assert from 'node:assert/strict';
import { createHash } from 'node:crypto';
import { test } from 'node:test';

import { pageTest, useBrowser } from './browser_page.mjs';
import { kPage } from './joined_page.mjs';

useBrowser();

const sha256 = (tag) => {
  const [whole, text] = kPage.match(new RegExp(`<${tag}>(.*)</${tag}>`, 's'));
  assert.equal(kPage.split(`<${tag}`).length, 2, `one ${tag}: ${whole.slice(0, 20)}`);
  return `'sha256-${createHash('sha256').update(text).digest('base64')}'`;
};

test('the policy names the page\'s own script and style by hash, and nothing else', () => {
  const policy = kPage.match(/<meta http-equiv="Content-Security-Policy" content="([^"]*)">/)[1];
  assert.deepEqual(policy.split(/;\s+/), ["default-src 'none'", `script-src ${sha256('script')}`,
    `style-src ${sha256('style')}`, "base-uri 'none'", "form-action 'none'"]);
});

pageTest('markup that gets into the page runs no script', async (page) => {
  const { words, wasRun } = await page.view.evaluate(async () => {
    const seen = [];
    document.addEventListener('securitypolicyviolation', (event) => seen.push(event.effectiveDirective));
    window.wasRun = false;
    const place = document.body.appendChild(document.createElement('div'));
    place.innerHTML = '<button id="x" onclick="window.wasRun = true">x</button>'
      + '<img src="http://other.test/x.png" onerror="window.wasRun = true">'
      + '<p style="background: url(http://other.test/y.png)">y</p><iframe src="http://other.test/"></iframe>';
    document.getElementById('x').click();
    const script = document.createElement('script');
    script.textContent = 'window.wasRun = true';
    document.body.append(script);
    const style = document.createElement('style');
    style.textContent = 'body { display: none }';
    document.head.append(style);
    setTimeout('window.wasRun = true');  // text as code
    await fetch('http://other.test/z').catch(() => {});
    await new Promise((done) => setTimeout(done, 200));
    place.remove();
    const isHidden = getComputedStyle(document.body).display === 'none';
    return { words: [...new Set(seen)], wasRun: window.wasRun || isHidden };
  });
  assert.equal(wasRun, false);
  for (const word of ['script-src-attr', 'script-src-elem', 'style-src-elem', 'style-src-attr', 'img-src', 'connect-src']) {
    assert.ok(words.includes(word), `${word} among ${words}`);
  }
});
