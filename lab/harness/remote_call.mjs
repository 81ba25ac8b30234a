// Method calls between a process and its parent over child_process's channel:
// {id, method, args} -> {id, result} or {id, error}, which is {name, message}.

/** The parent's side: call(method, ...args) returns a promise. `name` names the process in errors. */
export function caller(child, name) {
  const waiting = new Map();
  let lastId = 0;
  let hasEnded = false;
  child.on('message', ({ id, result, error }) => {
    const { resolve, reject } = waiting.get(id);
    waiting.delete(id);
    if (error === undefined) resolve(result);
    else reject(Object.assign(new Error(error.message), { name: error.name }));
  });
  child.once('exit', () => {
    hasEnded = true;
    for (const { reject } of waiting.values()) reject(new Error(`The ${name} has ended.`));
    waiting.clear();
  });
  return (method, ...args) => new Promise((resolve, reject) => {
    if (hasEnded || !child.connected) {
      reject(new Error(`The ${name} has ended.`));
      return;
    }
    lastId += 1;
    waiting.set(lastId, { resolve, reject });
    child.send({ id: lastId, method, args });
  });
}

/**
 * The process's side: answers calls with `invoke(method, args)`. When the parent ends or requests it,
 * runs `close()` and exits.
 */
export function serve(invoke, close) {
  process.on('message', async ({ id, method, args }) => {
    try {
      process.send({ id, result: await invoke(method, args) });
    } catch (error) {
      process.send({ id, error: { name: error.name, message: error.message } });
    }
  });
  const end = async () => {
    await close();
    process.exit(0);
  };
  for (const event of ['disconnect', 'SIGTERM', 'SIGINT']) process.on(event, end);
}
