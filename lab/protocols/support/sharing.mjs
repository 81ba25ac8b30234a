// Devices that differ only in their address, and sockets that several uses share.

/**
 * Starts one for each address with `start(address)`; resolves with a function that ends them with
 * `end(one)`, in reverse order. If one fails to start, the earlier ones are ended.
 */
export async function startEach(addresses, start, end) {
  const started = [];
  const close = async () => { while (started.length > 0) await end(started.pop()); };
  try {
    for (const address of addresses) started.push(await start(address));
  } catch (error) {
    await close();
    throw error;
  }
  return close;
}

/**
 * Returns take(), which resolves with {it, release()}. The first take opens it with `open()`, the last
 * release closes it with `close(it)`.
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
