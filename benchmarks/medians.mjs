// Shared by the benchmarks written for Node: medians, printed in Google Benchmark's format.

export const median = (values) => percentile(values, 50);

/** The `share`-th percentile of `values` (nearest rank). */
export function percentile(values, share) {
  if (values.length === 0) throw new Error('There is no value.');
  const sorted = values.toSorted((a, b) => a - b);
  return sorted[Math.max(0, Math.ceil((sorted.length * share) / 100) - 1)];
}

/** The figures of one run: each name has its values and a unit. */
export class Figures {
  #byName = new Map();

  /** Adds values to figure `name`, whose anchor is named `${name}_Anchor` (before an argument's "/"). */
  add(name, unit, ...values) {
    if (values.some((value) => !Number.isFinite(value))) throw new Error(`${name} is ${values}.`);
    const figure = this.#byName.get(name) ?? { unit, values: [] };
    figure.values.push(...values);
    this.#byName.set(name, figure);
  }

  /** Writes the medians to the standard output. */
  print() {
    const benchmarks = [...this.#byName].map(([name, { unit, values }]) =>
      ({ run_name: name, aggregate_name: 'median', real_time: median(values), time_unit: unit }));
    console.log(JSON.stringify({ benchmarks }));
  }
}
