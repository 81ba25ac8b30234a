// What the protocols' modules share: requests one after another, each timed and compared.

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
