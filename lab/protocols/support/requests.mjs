// Shared by the protocols' modules: timed requests, file contents, and comparisons of answers with the expected ones.
import { createCipheriv, createHash } from 'node:crypto';

const kKey = Buffer.from('a file on site..');

/** The error's name, because its class is lost between processes. */
export const kWrongAnswer = 'WrongAnswer';

/** Calls `request(index)` `rounds` times, one after another; returns each duration in milliseconds. */
export async function timed(rounds, request) {
  const requestMs = [];
  for (let index = 0; index < rounds; index += 1) {
    const started = performance.now();
    await request(index);
    requestMs.push(performance.now() - started);
  }
  return requestMs;
}

/** A wrong answer; every other error means that no answer came. */
export class WrongAnswer extends Error {
  name = kWrongAnswer;
}

/** Fails unless `got` is `wanted`; the error's text has both. */
export function mustBe(what, got, wanted) {
  if (got !== wanted) throw new WrongAnswer(`${what}: wanted ${wanted}, got ${got}`);
}

/** The promise's outcome, or an error that names `what` after `timeoutMs`. */
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
 * Repeats `request` if its error matches `isLoss`, the sign of a lost datagram, up to `tries` times in total; counts
 * the repeats in `notes.repeated`.
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

/** Fails unless the lists are equal; the error names the first difference. */
export function mustMatch(what, got, wanted) {
  if (got.length !== wanted.length) throw new WrongAnswer(`${what}: ${wanted.length} wanted, ${got.length} came`);
  const place = wanted.findIndex((value, index) => got[index] !== value);
  if (place >= 0) throw new WrongAnswer(`${what}, number ${place}: wanted ${wanted[place]}, got ${got[place]}`);
}

/** `bytes` pseudo-random bytes, always the same for the same `number`; incompressible. */
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
