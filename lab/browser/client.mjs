// The parent's side of main.mjs: the same methods as the bridge in the same process.

/**
 * Takes a process that was forked from main.mjs. The result:
 *   listen({port, host, chromium})   starts the bridge; gives {port}
 *   pages()                          handles of the open pages
 *   waitForPage(timeoutMs)           the newest page, once there is one
 *   closeAll()                       closes every page, its browser and the port
 * A page handle has id, pid (the browser's) and evaluate, waitFor, text, click, type, select, messages
 * and screenshot, as in page.mjs.
 */
export async function connectBridge(child) {
  const call = caller(child);
  const handle = ({ id, pid }) => pageHandle(call, id, pid);
  return {
    listen: (options = {}) => call('listen', options),
    pages: async () => (await call('pages')).map(handle),
    waitForPage: async (timeoutMs) => handle(await call('waitForPage', timeoutMs)),
    closeAll: () => call('closeAll'),
  };
}

function caller(child) {
  const waiting = new Map();
  let lastId = 0;
  let gone = false;
  child.on('message', ({ id, result, error }) => {
    const { resolve, reject } = waiting.get(id);
    waiting.delete(id);
    if (error === undefined) resolve(result);
    else reject(new Error(error));
  });
  child.once('exit', () => {
    gone = true;
    for (const { reject } of waiting.values()) reject(new Error('The browser bridge has ended.'));
    waiting.clear();
  });
  return (method, ...args) => new Promise((resolve, reject) => {
    if (gone || !child.connected) {
      reject(new Error('The browser bridge has ended.'));
      return;
    }
    lastId += 1;
    waiting.set(lastId, { resolve, reject });
    child.send({ id: lastId, method, args });
  });
}

function pageHandle(call, id, pid) {
  const methods = ['evaluate', 'waitFor', 'text', 'click', 'type', 'select', 'messages', 'screenshot'];
  const handle = { id, pid };
  for (const method of methods) {
    handle[method] = (...args) => call('page', id, method, args);
  }
  return handle;
}
