// Random choices, repeatable by their seed.

/** Generates numbers in [0, 1) (mulberry32). */
function generator(seed) {
  let state = seed >>> 0;
  return () => {
    state = (state + 0x6d2b79f5) >>> 0;
    let value = Math.imul(state ^ (state >>> 15), state | 1);
    value ^= value + Math.imul(value ^ (value >>> 7), value | 61);
    return ((value ^ (value >>> 14)) >>> 0) / 2 ** 32;
  };
}

export class Random {
  #next;
  constructor(seed) { this.#next = generator(seed); }
  /** In [0, 1). */
  share() { return this.#next(); }
  between(low, high) { return low + this.share() * (high - low); }
  integer(low, high) { return Math.floor(this.between(low, high + 1)); }
  choice(list) { return list[this.integer(0, list.length - 1)]; }
}
