// The bridge as a separate process, so that it can run in the network namespace of the wineserver, whose
// loopback the Windows program uses.
import { serve } from '../../harness/remote_call.mjs';
import { startBridge } from './bridge.mjs';

let bridge = null;

/** The page with that id, which must still be open. */
function pageOf(id) {
  const page = bridge.pages().find((one) => one.id === id);
  if (!page) throw new Error(`Page ${id} is closed.`);
  return page;
}

const kPageMethods = ['evaluate', 'waitFor', 'text', 'click', 'type', 'select', 'messages',
  'screenshot', 'failProcess'];

const methods = {
  async listen(options) {
    if (bridge) throw new Error('The bridge listens already.');
    bridge = await startBridge({ ...options, log: (line) => console.error(line) });
    return { port: bridge.port };
  },
  pages: () => bridge.pages().map(({ id, pid }) => ({ id, pid })),
  async waitForPage(timeoutMs) {
    const { id, pid } = await bridge.waitForPage(timeoutMs);
    return { id, pid };
  },
  page(id, method, args) {
    if (!kPageMethods.includes(method)) throw new Error(`A page has no method ${method}.`);
    return pageOf(id)[method](...args);
  },
  async closeAll() {
    await bridge?.close();
    bridge = null;
  },
};

serve((method, args) => {
  if (!Object.hasOwn(methods, method)) throw new Error(`There is no method ${method}.`);
  return methods[method](...args);
}, methods.closeAll);
