// Reads the tools' output. Pure.

/** {upMegabits, downMegabits, bytes} of `iperf3 -J`; 0 for a direction that did not run. Counted at the receiver. */
export function readIperf(text) {
  const report = JSON.parse(text);
  if (report.error) throw new Error(`iperf3: ${report.error}`);
  const { sum_received: received, sum_received_bidir_reverse: back } = report.end;
  const isReverse = report.start.test_start.reverse === 1;
  const [up, down] = isReverse ? [undefined, received] : [received, back];
  return {
    upMegabits: (up?.bits_per_second ?? 0) / 1e6,
    downMegabits: (down?.bits_per_second ?? 0) / 1e6,
    bytes: (up?.bytes ?? 0) + (down?.bytes ?? 0),
  };
}

/** The round-trip times in ms that ping prints, one per reply. */
export const readPing = (text) => [...text.matchAll(/ time=([\d.]+) ms/g)].map(([, ms]) => Number(ms));

/** The output of the packets program, with the packets that arrived per second. */
export function readPackets(text) {
  const { received, lost, seconds } = JSON.parse(text);
  return { received, perSecond: received / seconds, lostShare: lost / Math.max(1, received + lost) };
}

/** Nanoseconds on a processor, the first number of a thread's schedstat. */
export const readSchedstat = (text) => Number(text.split(' ')[0]);
