// Shared by the protocols' modules: timed requests, file contents, and comparisons of answers with the expected ones.
import { createCipheriv, createHash } from 'node:crypto';

const kKey = Buffer.from('a file on site..');

/** The name of the error in each process: its class does not travel between them. */
export const kWrongAnswer = 'WrongAnswer';

/** Does `request(index)` `rounds` times, one after another; returns how long each took, in milliseconds. */
export async function timed(rounds, request) {
  const requestMs = [];
  for (let index = 0; index < rounds; index += 1) {
    const started = performance.now();
    await request(index);
    requestMs.push(performance.now() - started);
  }
  return requestMs;
}

/** An answer came, and it is not the right one; every other error says that none came. */
export class WrongAnswer extends Error {
  name = kWrongAnswer;
}

/** Fails unless `got` is `wanted`; both go into the error's text. */
export function mustBe(what, got, wanted) {
  if (got !== wanted) throw new WrongAnswer(`${what}: wanted ${wanted}, got ${got}`);
}

/** The promise's outcome, or after `timeoutMs` an error that names `what` was waited for. */
export async function within(timeoutMs, what, promise) {
  let timer;
  const late = new Promise((resolve, reject) => {
    timer = setTimeout(() => reject(new Error(`${what}: nothing within ${timeoutMs} ms`)), timeoutMs);
  });
  try {
    return await Promise.race([promise, late]);
  } finally {
    clearTimeout(timer);
  }
}

/**
 * Does `request` again when it fails with an error that `isLoss` takes for a lost datagram, `tries` times in
 * all; counts in `notes.repeated`.
 */
export async function insist({ tries, notes, isLoss }, request) {
  for (let left = tries; ; left -= 1) {
    try {
      return await request();
    } catch (error) {
      if (left === 1 || !isLoss.test(error.message)) throw error;
      notes.repeated += 1;
    }
  }
}

/** Fails unless `got` holds what `wanted` does; names the first place where they differ. */
export function mustMatch(what, got, wanted) {
  if (got.length !== wanted.length) throw new WrongAnswer(`${what}: ${wanted.length} wanted, ${got.length} came`);
  const place = wanted.findIndex((value, index) => got[index] !== value);
  if (place >= 0) throw new WrongAnswer(`${what}, number ${place}: wanted ${wanted[place]}, got ${got[place]}`);
}

/** `bytes` bytes that look random and are the same each time; another `number`, other bytes. */
export function content(bytes, number = 0) {
  const counter = Buffer.alloc(16);
  counter.writeUInt32BE(number);
  return createCipheriv('aes-128-ctr', kKey, counter).update(Buffer.alloc(bytes));
}

export const sha256 = (bytes) => createHash('sha256').update(bytes).digest('hex');

/** Fails unless `got` and `wanted` are the same bytes. */
export function mustHold(what, got, wanted) {
  if (Buffer.compare(got, wanted) === 0) return;
  throw new WrongAnswer(`${what}: the bytes differ (${got.length} came, ${wanted.length} wanted)`);
}
