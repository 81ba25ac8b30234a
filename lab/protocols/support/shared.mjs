// A socket of the engineer's tool that several uses at a time have in common, because its port is fixed.

/**
 * Returns take(): resolves with {it, release()}. The first take opens it with `open()`, the last release
 * closes it with `close(it)`.
 */
export function shared(open, close) {
  let users = 0;
  let opened = null;
  return async function take() {
    users += 1;
    opened ??= open();
    const mine = opened;
    const release = async () => {
      users -= 1;
      if (users > 0) return;
      opened = null;
      await mine.then(close, () => {});
    };
    try {
      return { it: await mine, release };
    } catch (error) {
      await release();
      throw error;
    }
  };
}
