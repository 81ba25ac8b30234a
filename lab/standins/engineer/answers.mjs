// How the engineer's search tools wait: for as many answers as are expected, then a moment more for
// those that should not come; for none, or too few, until the time is up.
import { setTimeout as sleep } from 'node:timers/promises';

const kSurplusMs = 300;
const kStepMs = 20;

/** Waits for `answers`, an array that grows, prints it as JSON and ends the program. */
export async function printAnswers(answers, { expected, waitMs }) {
  const end = performance.now() + waitMs;
  const hasAll = () => expected > 0 && answers.length >= expected;
  while (!hasAll() && performance.now() < end) await sleep(kStepMs);
  if (hasAll()) await sleep(kSurplusMs);
  console.log(JSON.stringify(answers));
  process.exit(0);
}
