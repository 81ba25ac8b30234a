// Determines which calls of Windows functions in src the tests under Wine have checked, by comparing
// their arguments or making them fail. Reads the records of the last test runs (tests/win32/calls.h).
// Usage: node tests/win32/call_sites.mjs BUILD LEAST_PERCENT [FOLDER...]
// Without folders: all of src.
// Prints each unchecked call. Exit code 1 below that share of the folders' calls, or if a record is
// older than its program.
import { execFileSync } from 'node:child_process';
import { existsSync, readdirSync, readFileSync, statSync } from 'node:fs';
import path from 'node:path';

const kRepo = path.resolve(import.meta.dirname, '../..');
const kTools = 'x86_64-w64-mingw32-';

const functions = new Set(
  [...readFileSync(path.join(import.meta.dirname, 'functions.h'), 'utf8').matchAll(/^\s*X\((\w+), \w+, -?\d+\)/gm)]
    .map((found) => found[1]));

/** The source with comments, texts and what is compiled on other systems blanked out, line by line. */
function windowsCode(source) {
  const code = source
    .replace(/\/\/.*$/gm, '')
    .replace(/"(?:[^"\\\n]|\\.)*"/g, '""');
  const skipped = [];
  return code.split('\n').map((line) => {
    const test = line.match(/^#\s*(ifdef|ifndef|if|else|endif)\b(.*)/);
    if (!test) return skipped.includes(true) ? '' : line;
    if (test[1] === 'endif') skipped.pop();
    else if (test[1] === 'else') skipped.push(skipped.pop() === false);
    else skipped.push(test[1] === 'ifdef' && test[2].includes('_WIN32') ? false : undefined);
    return '';
  }).join('\n');
}

/** Where the statement around `at` begins; the compiler may call any of its lines the call's. */
const statementAt = (code, at) => at - code.slice(0, at).match(/[^;{}]*$/)[0].trimStart().length;

const lineOf = (code, at) => code.slice(0, at).split('\n').length;

/** Each place of a source file that calls a Windows function, or hands one on (`&::LocalFree`). */
function sitesOf(file) {
  const code = windowsCode(readFileSync(path.join(kRepo, file), 'utf8'));
  const calls = [...code.matchAll(/(?<![\w>:])::([A-Za-z_]\w*)\s*\(/g)].map((found) => ({
    file, name: found[1], first: lineOf(code, statementAt(code, found.index)),
    last: lineOf(code, code.indexOf(';', found.index)), looked: false,
  }));
  // A deleter is named twice: for its type, and as the function that runs.
  const handed = [...code.matchAll(/(?<!decltype\()&::(\w+)/g)].map((found) => ({
    file, name: found[1], first: lineOf(code, found.index), last: Infinity, looked: false,
  }));
  return [...calls, ...handed];
}

/** Where the linker has put a 64-bit program, from its headers. */
function imageBase(program) {
  const bytes = readFileSync(program);
  const kOptionalHeader = bytes.readUInt32LE(0x3c) + 24;
  return bytes.readBigUInt64LE(kOptionalHeader + 24);
}

/** What a test program's last run looked at: [{name, frames: [{file, line}]}], callee first. */
function lookedAtBy(program) {
  const record = `${program}.calls`;
  if (!existsSync(record)) return [];
  if (statSync(record).mtimeMs < statSync(program).mtimeMs) throw new Error(`${record} is older than its program`);
  const base = imageBase(program);
  const noted = new Map(readFileSync(record, 'utf8').trim().split('\n').map((line) => line.split(' '))
    .map(([name, offset]) => [`${name} ${offset}`, { name, address: base + BigInt(`0x${offset}`) - 1n }]));
  const calls = [...noted.values()];
  const input = calls.map((call) => `0x${call.address.toString(16)}\n`).join('');
  const output = execFileSync(`${kTools}addr2line`, ['-a', '-i', '-e', program], { input, encoding: 'utf8' });
  const frames = output.split(/^0x[0-9a-f]+\n/m).slice(1).map((text) => text.trim().split('\n').map((line) => {
    const [, file, number] = line.match(/^(.*):(\d+|\?)/);
    return { file: path.relative(kRepo, path.normalize(file)), line: Number(number) };
  }));
  return calls.map((call, index) => ({ name: call.name, frames: frames[index] }));
}

const isAt = (site, frame) => site.file === frame.file && site.first <= frame.line && frame.line <= site.last;

/** Marks the site of one noted call. */
function mark(sites, { name, frames }) {
  const own = sites.find((site) => site.name === name && frames.some((frame) => isAt(site, frame)));
  if (own) own.looked = true;
}

const [build, least, ...named] = process.argv.slice(2);
const sources = execFileSync('git', ['ls-files', '--cached', '--others', '--exclude-standard', 'src'], { cwd: kRepo, encoding: 'utf8' }).trim().split('\n')
  .filter((file) => /\.(cpp|h)$/.test(file) && !/_posix/.test(file));
const sites = sources.flatMap(sitesOf);
const unknown = sites.filter((site) => !functions.has(site.name));
const tests = path.join(kRepo, build, 'tests');
for (const program of readdirSync(tests).filter((name) => name.endsWith('_test.exe'))) {
  for (const call of lookedAtBy(path.join(tests, program))) mark(sites, call);
}

const folders = named.length > 0 ? named : [...new Set(sites.map((site) => site.file.split('/')[1]))];
let [lookedAt, all] = [0, 0];
for (const folder of folders) {
  const own = sites.filter((site) => site.file.startsWith(`src/${folder}`));
  for (const site of own.filter((one) => !one.looked)) console.log(`not looked at: ${site.file}:${site.first} ${site.name}`);
  const looked = own.filter((site) => site.looked).length;
  console.log(`${folder}: ${looked} of ${own.length}`);
  lookedAt += looked;
  all += own.length;
}
for (const site of unknown) console.log(`not in functions.h: ${site.file}:${site.first} ${site.name}`);
const percent = 100 * lookedAt / all;
console.log(`${lookedAt} of ${all} calls (${percent.toFixed(1)} %, at least ${least} %)`);
process.exitCode = percent >= Number(least) && unknown.length === 0 ? 0 : 1;
