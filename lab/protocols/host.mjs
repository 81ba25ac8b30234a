// A process that stands for one computer: on site it serves protocols, at the engineer's it uses them. It
// runs in the namespace in which it is forked; connectHost() is its parent's side.
import { fileURLToPath } from 'node:url';

import { caller, serve as answer } from '../harness/remote_call.mjs';

const ends = [];
let releasing = new AbortController();
const load = (name) => import(`./${name}.mjs`);

const methods = {
  /** Serves the protocol of that name until the process ends. */
  async serve(name, options) {
    ends.push(await (await load(name)).serve(options));
  },
  /** Uses the protocol, or its variant of that title; {requestMs, connectMs, notes}. */
  async use(name, title, options) {
    const protocol = await load(name);
    const one = [protocol, ...(protocol.variants ?? [])].find((each) => each.title === title);
    if (!one) throw new Error(`${name} has no variant "${title}"`);
    return one.use({ ...options, released: releasing.signal });
  },
  /** Ends those uses that go on until they are released. */
  async release() {
    releasing.abort();
    releasing = new AbortController();
  },
  /** Ends what is served, in the reverse order. */
  async end() {
    while (ends.length > 0) await ends.pop()();
  },
};

/** Takes a process that was forked from this file; returns {serve, use, release, end}. */
export function connectHost(child, name) {
  const call = caller(child, name);
  return Object.fromEntries(Object.keys(methods).map((each) => [each, (...args) => call(each, ...args)]));
}

if (process.send && process.argv[1] === fileURLToPath(import.meta.url)) {
  answer((method, args) => methods[method](...args), methods.end);
}
