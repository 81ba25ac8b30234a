// The user guide contains every text that the program can show, with the program's own causes and remedies.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import path from 'node:path';
import { test } from 'node:test';

import { kRepo } from '../../lab/harness/paths.mjs';
import { hintRows, literalsOf, pageTexts, programTexts } from './shown_texts.mjs';

const kGuide = readFileSync(path.join(kRepo, 'docs/user-guide.zh-CN.md'), 'utf8');
const plain = (text) => text.replaceAll(/[`*]/g, '').replaceAll(/\]\([^)]*\)/g, ']');
const kPlainGuide = plain(kGuide);
/** The tables' rows: the first cell, and the others joined. */
const kRows = kGuide.split('\n').filter((line) => line.startsWith('| ')).map((line) => {
  const [first, ...others] = plain(line).split(' | ').map((cell) => cell.replace(/^\| ?| ?\|$/g, '').trim());
  return { first, others: others.join('') };
});

/** The check report itself explains each finding and its remedy. */
const isOfTheReport = ({ file }) => file.startsWith('src/checks/');

/** Texts that are invisible or self-explanatory, with the reason; whole files, or pieces of text. */
const kFilesWithout = new Map([
  ['webui/script/preview.js', 'the page\'s sample data in an ordinary browser'],
  ['src/shell/hint_catalogue.cpp', 'compared with the tables below'],
  ['src/shell/hints.cpp', 'beginnings of texts in other files'],
]);
const kTextsWithout = new Map([
  ['Local AppData', 'a name in the registry'],
  ['Microsoft YaHei UI', 'a font'],
  ['outbound and ip and !impostor and', 'a filter for the driver'],
  ...['stop WinDivert64', 'delete WinDivert64', 'stop WinDivert', 'delete WinDivert'].map((text) =>
    [`sc ${text}`, 'a command without a window']),
  ['本地客户端断开连接', 'sent only to the service'],
  ['本地隧道启动失败', 'sent only to the service'],
  ['未测试', 'kept in the settings, not shown'],
  ['WinDivertSend failed.', 'costs one packet and is not reported'],
  ['WinDivert checksum recalculation failed.', 'reported as a received fragment'],
  ['{"logo":"Velmarine.Client","sub":"工程师远程调试","on":', 'the name of the program'],
  ['已生效', 'a word that gives a line its colour'],
  ['已刷新', 'a word that gives a line its colour'],
  ['Velmarine.Client 维马林', 'the title of the window'],
  ['PLC发现模式已开启', 'a card that repeats its switch'],
  ['PLC发现模式：开', 'the switch that the guide names by its two halves'],
]);
/** The page's headings, labels and tips, which need no explanation. */
const kLabels = ['Velmarine 维马林', '维马林', '预览', '工程师远程调试', '现场连接', '调试与存档', '给这套配置起个名', '实时日志',
  '全部日志', '现场信息', '<button type="button" class="copy" aria-label="复制', '" title="复制"></button>',
  '<option value="">（无）</option>', '无）', '…（此处省略'];
/** The other product of the same page. */
const kOfTheSite = ['现场接入', '设备名称', '网卡', '手动网段', '开机启动'];

const kEdge = /^[\s，。：（”；]+|[\s，。：（“；]+$/g;
const piecesOf = (text) =>
  text.split(/[\r\n]+/).map((piece) => piece.replace(kEdge, '')).filter(({ length }) => length > 1);
const isExcused = (piece) => kTextsWithout.has(piece) || kLabels.includes(piece) || kOfTheSite.includes(piece);

test('literals are read as by the compiler', () => {
  assert.deepEqual(literalsOf('f(L"a" /* L"no" */\n  L"b", "c\\r\\n\\\\"); // "d"'), ['ab', 'c\r\n\\']);
  assert.deepEqual(literalsOf("'\"', L\"x\""), ['x']);
});

test('every text that the program or the page can show is in the guide', () => {
  const texts = [...programTexts(), ...pageTexts()].filter((text) => !kFilesWithout.has(text.file) && !isOfTheReport(text));
  assert.ok(texts.length > 250, `only ${texts.length} texts found`);
  const missing = texts.flatMap(({ file, text }) => piecesOf(text).map((piece) => ({ file, piece })))
    .filter(({ piece }) => !isExcused(piece) && !kPlainGuide.includes(piece));
  assert.deepEqual(missing.map(({ file, piece }) => `${file}: ${piece}`), []);
});

test('every excused text still exists in the program', () => {
  const texts = [...programTexts(), ...pageTexts()].flatMap(({ text }) => piecesOf(text));
  const gone = [...kTextsWithout.keys(), ...kLabels, ...kOfTheSite].filter((excused) => !texts.includes(excused));
  assert.deepEqual(gone, []);
});

/** The first cell of a hint's row. */
function keysOf({ at, pattern, code }) {
  const keys = piecesOf(pattern);
  if (at === 'HttpCode') keys.push('WinHttp');
  if (at === 'Unsaved') keys.push('警告：设置未能保存');
  if (code !== 0) keys.push(String(code));
  return keys;
}

const hasRow = (hint) => kRows.some(({ first, others }) =>
  keysOf(hint).every((key) => first.includes(key)) && (hint.text === '' ? others !== '' : others.startsWith(hint.text)));

test('the guide has the log\'s cause and remedy for every hint', () => {
  const rows = hintRows();
  const written = readFileSync(path.join(kRepo, 'src/shell/hint_catalogue.cpp'), 'utf8').match(/HintAt::/g).length;
  assert.equal(rows.length, written, 'every row was read');
  assert.deepEqual(rows.filter((hint) => !hasRow(hint)).map(({ cause, pattern, code, text }) =>
    `${cause} ${pattern} ${code}: ${text}`), []);
});

test('every code of the driver has its row', () => {
  const source = readFileSync(path.join(kRepo, 'src/tunnel/driver/windivert.cpp'), 'utf8');
  const codes = [...source.matchAll(/\bkServiceDisabled = (\d+)|\bkMarkedForDeletion = (\d+)|^ {4}\{(\d+),/gm)]
    .map((found) => found.slice(1).find(Boolean));
  assert.ok(codes.length >= 11, codes.join());
  for (const code of codes) assert.ok(kRows.some(({ first }) => first.startsWith(`错误 ${code}：`)), code);
});

test('every retried refusal has its row', () => {
  const source = readFileSync(path.join(kRepo, 'src/service/api_messages.cpp'), 'utf8');
  const codes = [...source.matchAll(/L"([A-Z_]{8,})"/g)].map(([, code]) => code);
  assert.equal(codes.length, 5);
  for (const code of codes) assert.ok(kRows.some(({ first, others }) => first === code && others !== ''), code);
});
