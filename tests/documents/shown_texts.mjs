// The visible texts, taken from the string literals of src/ and webui/.
import { execFileSync } from 'node:child_process';
import { readFileSync } from 'node:fs';
import path from 'node:path';

import { kRepo } from '../../lab/harness/paths.mjs';

const kChinese = /\p{Script=Han}/u;
const kSentence = /^[A-Za-z][\w.-]* [\w-]+([ ,:.]|$)/;  // of two words at least
const kCppToken = /\/\/[^\n]*|\/\*[\s\S]*?\*\/|'(?:\\.|[^'\\])+'|L?"((?:\\.|[^"\\\n])*)"|#include[^\n]*|[^\s]/g;
const kScriptLiteral = /'((?:\\.|[^'\\\n])*)'|`((?:\\.|[^`\\])*)`/g;
const kText = String.raw`(?:L"(?:\\.|[^"\\])*"\s*)+`;
const kHintRow = new RegExp(String.raw`\{(L"[^"]+"),\s*HintAt::(\w+),\s*(\d+),\s*(${kText}),\s*(${kText}|k\w+)\}`, 'g');
const kEscapes = { n: '\n', r: '\r', t: '\t', 0: '\0' };

const readRepoFile = (file) => readFileSync(path.join(kRepo, file), 'utf8');

function filesBelow(folder, pattern) {
  const files = execFileSync('git', ['ls-files', '-co', '--exclude-standard', folder], { cwd: kRepo, encoding: 'utf8' });
  return files.split('\n').filter((file) => pattern.test(file));
}

const unescape = (text) => text.replace(/\\(.)/gs, (_, sign) => kEscapes[sign] ?? sign);

/** The string literals of a C++ source; adjacent ones are joined, as by the compiler. */
export function literalsOf(source) {
  const tokens = source.matchAll(kCppToken);
  const literals = [];
  let isOpen = false;
  for (const [token, inside] of tokens) {
    if (inside === undefined) {
      if (!token.startsWith('//') && !token.startsWith('/*')) isOpen = false;
      continue;
    }
    literals.push((isOpen ? literals.pop() : '') + unescape(inside));
    isOpen = true;
  }
  return literals;
}

const isShown = (text) => kChinese.test(text) || kSentence.test(text);

/** Each visible text of the program with its file. */
export function programTexts() {
  return filesBelow('src', /\.(cpp|h)$/).flatMap((file) =>
    literalsOf(readRepoFile(file)).filter(isShown).map((text) => ({ file, text })));
}

/** Each Chinese text of the page: between tags and in quotes. */
export function pageTexts() {
  const markup = [...readRepoFile('webui/app.html.in').matchAll(/>([^<]+)<|="([^"]+)"/g)]
    .map(([, between, quoted]) => ({ file: 'webui/app.html.in', text: between ?? quoted }));
  const scripts = filesBelow('webui/script', /\.js$/).flatMap((file) =>
    [...readRepoFile(file).replace(/^\s*(\/\/|\/?\*).*$/gm, '').matchAll(kScriptLiteral)].flatMap(([, plain, template]) =>
      (plain ?? template).split(/\$\{[^}]*\}/).map((text) => ({ file, text: unescape(text) }))));
  return [...markup, ...scripts].filter(({ text }) => kChinese.test(text));
}

/** The rows of the catalogue: cause, place in which its pattern is searched, code, pattern, the text or an empty one. */
export function hintRows() {
  const source = readRepoFile('src/shell/hint_catalogue.cpp');
  const named = new Map([...source.matchAll(/constexpr wchar_t (k\w+)\[\] =([^;]+?);\n/g)]
    .map(([, name, value]) => [name, literalsOf(value)[0]]));
  const rows = source.matchAll(kHintRow);
  return [...rows].map(([, cause, at, code, pattern, text]) => ({
    cause: literalsOf(cause)[0], at, pattern: literalsOf(pattern)[0], code: Number(code),
    text: named.get(text) ?? literalsOf(text)[0],
  }));
}
