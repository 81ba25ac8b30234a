// Devices on site that are the same but for their address.

/**
 * Starts one for each address with `start(address)`; resolves with a function that ends them with
 * `end(one)`, in the reverse order. When one does not start, those before it are ended.
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
