// Reads the output of ping and iperf3.

/**
 * Evaluates ping's output (-D, one request every `intervalMs`) for the requests sent in the `seconds` after the first `warmSeconds`:
 * {times, lost, answered}, times in ms. An unanswered request is lost if a later one was answered; otherwise it is still pending and counts
 * as the time until the end, `endSeconds` after the start.
 */
export function readPings(text, { intervalMs, warmSeconds, seconds, endSeconds }) {
  const answers = new Map([...text.matchAll(/icmp_seq=(\d+) .*?time=([\d.]+) ms/g)]
    .map(([, number, ms]) => [Number(number), Number(ms)]));
  const newest = Math.max(0, ...answers.keys());
  const first = Math.floor((warmSeconds * 1000) / intervalMs) + 1;  // numbers begin with 1
  const last = Math.floor(((warmSeconds + seconds) * 1000) / intervalMs);
  const times = [];
  let lost = 0;
  for (let number = first; number <= last; number += 1) {
    if (answers.has(number)) times.push(answers.get(number));
    else if (number < newest) lost += 1;
    else times.push(endSeconds * 1000 - (number - 1) * intervalMs);
  }
  return { times, lost, answered: answers.size };
}

/** The rates of iperf3's intervals in Mbit/s, without the sums at the end. */
export function readRates(text) {
  const factors = { '': 1e-6, K: 1e-3, M: 1, G: 1e3 };
  return [...text.matchAll(/^\[ *\d+\] .* sec .* ([\d.]+) ([KMG]?)bits\/sec(.*)$/gm)]
    .filter(([, , , rest]) => !/sender|receiver/.test(rest))
    .map(([, number, unit]) => Number(number) * factors[unit]);
}
