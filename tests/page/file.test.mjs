// The page's file: one piece, valid, small, and without external requests.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { createRequire } from 'node:module';
import { test } from 'node:test';

import { kPage, kPageBytes } from './joined_page.mjs';

const require = createRequire(new URL('../../lab/package.json', import.meta.url));
const { HtmlValidate } = require('html-validate');

const bytes = kPageBytes;
const html = kPage;

test('the validator finds nothing', async () => {
  const report = await new HtmlValidate({ extends: ['html-validate:recommended', 'html-validate:document', 'html-validate:a11y'] })
    .validateString(html, 'app.html');
  const found = report.results.flatMap(({ messages }) => messages)
    .map(({ line, ruleId, message }) => `${line} ${ruleId}: ${message}`);
  assert.deepEqual(found, []);
});

test('is UTF-8 without a mark, and says so', () => {
  assert.equal(Buffer.compare(Buffer.from(html, 'utf8'), bytes), 0);
  assert.notEqual(bytes[0], 0xef);
  assert.match(html, /^<!DOCTYPE html>\n<html lang="zh-CN">\n<head>\n<meta charset="utf-8">/);
});

// NavigateToString takes 2 MB, counted in UTF-16.
test('is far below what the window can take', () => assert.ok(html.length * 2 < 200_000, `${html.length * 2} bytes`));

test('names no other file and no address', () => {
  assert.doesNotMatch(html, /\b(src|href|action)\s*=|@import|url\(|https?:|\bfetch\(|XMLHttpRequest|WebSocket|import\(/i);
});

test('no two of its scripts give one name twice', () => {
  const script = html.slice(html.indexOf('<script>') + '<script>'.length, html.indexOf('</script>'));
  execFileSync(process.execPath, ['--check', '--input-type=module', '-'], { input: script });
});

test('its script is made of small functions', () => {
  const script = html.slice(html.indexOf('<script>'));
  const starts = [...script.matchAll(/^(?:async )?function (\w+)[\s\S]*?^}/gm)];
  assert.ok(starts.length > 30);
  for (const [text, name] of starts) assert.ok(text.split('\n').length < 30, name);
});

test('no line is longer than the window of an editor', () => {
  html.split('\n').forEach((line, i) => assert.ok(line.length <= 128, `line ${i + 1}: ${line.length}`));
});
