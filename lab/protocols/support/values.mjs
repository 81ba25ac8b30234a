// What a device holds, and whether all of it came over the line.
import { WrongAnswer } from './requests.mjs';

/** Fails unless `got` holds what `wanted` does; names the first place where they differ. */
export function mustMatch(what, got, wanted) {
  if (got.length !== wanted.length) throw new WrongAnswer(`${what}: ${wanted.length} wanted, ${got.length} came`);
  const place = wanted.findIndex((value, index) => got[index] !== value);
  if (place >= 0) throw new WrongAnswer(`${what}, number ${place}: wanted ${wanted[place]}, got ${got[place]}`);
}
