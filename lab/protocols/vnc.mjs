// VNC through TigerVNC and vncsnapshot: an operator panel's screen with a picture, fetched and compared.
import { randomUUID } from 'node:crypto';
import { mkdir, rm, writeFile } from 'node:fs/promises';
import path from 'node:path';

import { run } from '../harness/processes.mjs';
import { ask, startDaemon } from './support/daemons.mjs';
import { content, timed, WrongAnswer } from './support/requests.mjs';

export const title = 'VNC';

const kPort = 5900;
const kDisplay = ':79';
const kWidth = 640;
const kHeight = 480;
const kBlock = 16;
const kAlikeDecibels = 30;

/** The panel's picture, in the format of netpbm: a gradient with blocks; another `number`, other blocks. */
function picture(number) {
  const blocks = content(Math.ceil(kWidth / kBlock) * Math.ceil(kHeight / kBlock), number);
  const pixels = Buffer.alloc(kWidth * kHeight * 3);
  for (let y = 0; y < kHeight; y += 1) {
    for (let x = 0; x < kWidth; x += 1) {
      const block = blocks[Math.floor(y / kBlock) * Math.ceil(kWidth / kBlock) + Math.floor(x / kBlock)];
      pixels.set([(x * 255) / kWidth, (y * 255) / kHeight, block], (y * kWidth + x) * 3);
    }
  }
  return Buffer.concat([Buffer.from(`P6 ${kWidth} ${kHeight} 255\n`), pixels]);
}

const kPicture = 1;

/** Fails if `file` differs from the picture in `wanted` by more than JPEG's loss. */
async function mustShow(what, file, wanted) {
  const { stderr } = await run(['compare', '-metric', 'PSNR', file, wanted, 'null:'], { timeoutMs: 20_000 });
  const decibels = stderr.trim() === 'inf' ? Infinity : Number.parseFloat(stderr);
  if (!(decibels >= kAlikeDecibels)) throw new WrongAnswer(`${what}: another picture (PSNR ${stderr.trim()})`);
}

async function drawPicture(own, number) {
  const [file, seen] = [path.join(own, 'panel.ppm'), path.join(own, 'seen.ppm')];
  await writeFile(file, picture(number));
  // Its exit code is meaningless here; the comparison of the screen decides.
  await run(['display', '-display', kDisplay, '-window', 'root', file], { timeoutMs: 20_000 });
  await ask(['import', '-display', kDisplay, '-window', 'root', seen], { timeoutMs: 20_000 });
  await mustShow('The screen on site', seen, file);
}

/** One screen for all addresses, showing the picture with that number. */
export async function serve({ folder, shown = kPicture }) {
  const own = path.join(folder, 'vnc');
  await mkdir(own, { recursive: true });
  const end = await startDaemon('Xtigervnc', ['Xtigervnc', kDisplay, '-rfbport', String(kPort),
    '-SecurityTypes', 'None', '-geometry', `${kWidth}x${kHeight}`, '-depth', '24', '-nolisten', 'tcp',
    '-AlwaysShared'], { kind: 'tcp', port: kPort, env: { HOME: own } });
  try {
    await drawPicture(own, shown);
  } catch (error) {
    await end();
    throw error;
  }
  return end;
}

/** Fetches the whole screen each time, over a new connection. */
export async function use({ address, folder, rounds, timeoutMs }) {
  const own = path.join(folder, `vnc-engineer-${randomUUID()}`);
  const [wanted, got] = [path.join(own, 'wanted.ppm'), path.join(own, 'got.jpg')];
  await mkdir(own);
  try {
    await writeFile(wanted, picture(kPicture));
    const requestMs = [];
    for (let index = 0; index < rounds; index += 1) {
      // Hextile, because this server's Tight encoding has empty rectangles, which make this client exit.
      requestMs.push(...await timed(1, () => ask(['vncsnapshot', '-quiet', '-encodings', 'hextile',
        '-rect', `${kWidth}x${kHeight}+0+0`, `${address}:0`, got], { timeoutMs, env: { HOME: own } })));
      await mustShow('VNC', got, wanted);
    }
    return { requestMs, notes: { request: `a connection of its own and ${kWidth} x ${kHeight} pixels` } };
  } finally {
    await rm(own, { recursive: true, force: true });
  }
}
