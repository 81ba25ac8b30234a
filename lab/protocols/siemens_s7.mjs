// Siemens S7 communication (ISO on TCP, port 102), snap7 on both sides: reads and writes the
// controller's data blocks like an operator panel or a programming device.
import { once } from 'node:events';
import { createRequire } from 'node:module';
import { fileURLToPath } from 'node:url';

import { Processes } from '../harness/processes.mjs';
import { mustMatch, timed } from './support/requests.mjs';
import {
  kPatternBlock, kPatternBytes, kSlots, kValueBytes, kWrittenBlock, pattern,
} from './support/s7_blocks.mjs';

const { S7Client } = createRequire(new URL('../package.json', import.meta.url))('node-snap7');

const kController = fileURLToPath(new URL('./support/s7_controller.mjs', import.meta.url));
const kRack = 0;
const kSlot = 1;

export const title = 'Siemens S7';

async function start(processes, address) {
  const child = processes.fork(`S7 controller ${address}`, kController, { args: [address] });
  const ended = once(child, 'exit').then(([code]) => ({ error: `ended with ${code}` }));
  const [{ error }] = await Promise.race([once(child, 'message'), ended.then((answer) => [answer])]);
  if (error !== null) throw new Error(`S7 controller on ${address}: ${error}`);
}

/** One controller per address, each with its own data blocks. Returns a function that stops them. */
export async function serve({ addresses }) {
  const processes = new Processes();
  try {
    for (const address of addresses) await start(processes, address);
  } catch (error) {
    await processes.stopAll();
    throw error;
  }
  return () => processes.stopAll();
}

/** Calls a method of the client by name; error numbers become the library's texts. */
const call = (client, method, ...args) => new Promise((resolve, reject) => {
  client[method](...args, (error, result) => (error
    ? reject(new Error(`S7 ${method}: ${client.ErrorText(error).trim()}`)) : resolve(result)));
});

function makeClient(timeoutMs) {
  const client = new S7Client();
  for (const limit of ['PingTimeout', 'SendTimeout', 'RecvTimeout']) client.SetParam(client[limit], timeoutMs);
  return client;
}

let uses = 0;

/** In turn: writes a value, reads it back, and reads a block that takes several answers. */
function request(client, offset, index) {
  const value = Buffer.alloc(kValueBytes, `round ${index - (index % 3)} `);
  const acts = [
    async () => call(client, 'DBWrite', kWrittenBlock, offset, kValueBytes, value),
    async () => mustMatch('S7, DB1', await call(client, 'DBRead', kWrittenBlock, offset, kValueBytes), value),
    async () => mustMatch('S7, DB2', await call(client, 'DBRead', kPatternBlock, 0, kPatternBytes), pattern()),
  ];
  return acts[index % acts.length]();
}

/** Each use has its own place in the block, so that several may run at once. */
export async function use({ address, rounds, timeoutMs }) {
  const client = makeClient(timeoutMs);
  const offset = (uses++ % kSlots) * kValueBytes;
  const started = performance.now();
  await call(client, 'ConnectTo', address, kRack, kSlot);
  const connectMs = performance.now() - started;
  try {
    const requestMs = await timed(rounds, (index) => request(client, offset, index));
    return { requestMs, connectMs, notes: { messageBytes: client.PDULength() } };
  } finally {
    client.Disconnect();
  }
}
