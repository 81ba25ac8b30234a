// A process that represents one computer: on site it serves protocols, at the engineer's end it uses them. It
// runs in the namespace in which it is forked; connectHost() is its parent's side.
import { fileURLToPath } from 'node:url';

import { caller, serve as answer } from '../harness/remote_call.mjs';

const ends = [];
let releasing = new AbortController();
const load = (name) => import(`./${name}.mjs`);

const methods = {
  /** Serves the named protocol until the process ends. */
  async serve(name, options) {
    ends.push(await (await load(name)).serve(options));
  },
  /** Uses the protocol or the variant with that title; returns {requestMs, connectMs, notes}. */
  async use(name, title, options) {
    const protocol = await load(name);
    const one = [protocol, ...(protocol.variants ?? [])].find((each) => each.title === title);
    if (!one) throw new Error(`${name} has no variant "${title}"`);
    return one.use({ ...options, released: releasing.signal });
  },
  /** Ends the held uses. */
  async release() {
    releasing.abort();
    releasing = new AbortController();
  },
  /** Stops all servers, in reverse order. */
  async end() {
    while (ends.length > 0) await ends.pop()();
  },
};

/** `child` is a process forked from this file; returns {serve, use, release, end}. */
export function connectHost(child, name) {
  const call = caller(child, name);
  return Object.fromEntries(Object.keys(methods).map((each) => [each, (...args) => call(each, ...args)]));
}

if (process.send && process.argv[1] === fileURLToPath(import.meta.url)) {
  answer((method, args) => methods[method](...args), methods.end);
}
