// The parent's side of main.mjs: the bridge's methods, across processes.
import { caller } from '../../harness/remote_call.mjs';

/**
 * `child` is a process forked from main.mjs. The result:
 *   listen({port, host, chromium})   starts the bridge; returns {port}
 *   pages()                          handles of the open pages
 *   waitForPage(timeoutMs)           the newest page, once there is one
 *   closeAll()                       closes every page, its browser and the port
 * A page handle has id, pid (the browser's) and evaluate, waitFor, text, click, type, select, messages,
 * screenshot and failProcess, as in page.mjs.
 */
export async function connectBridge(child) {
  const call = caller(child, 'browser bridge');
  const handle = ({ id, pid }) => pageHandle(call, id, pid);
  return {
    listen: (options = {}) => call('listen', options),
    pages: async () => (await call('pages')).map(handle),
    waitForPage: async (timeoutMs) => handle(await call('waitForPage', timeoutMs)),
    closeAll: () => call('closeAll'),
  };
}

function pageHandle(call, id, pid) {
  const methods = ['evaluate', 'waitFor', 'text', 'click', 'type', 'select', 'messages', 'screenshot',
    'failProcess'];
  const handle = { id, pid };
  for (const method of methods) {
    handle[method] = (...args) => call('page', id, method, args);
  }
  return handle;
}
