// What files hold that travel through the tunnel: the same on both sides, and nothing a line could compress.
import { createCipheriv, createHash } from 'node:crypto';

import { WrongAnswer } from './requests.mjs';

const kKey = Buffer.from('a file on site..');

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
