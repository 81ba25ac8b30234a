// Modbus TCP on port 502, modbus-serial on both sides: one master, and several at once on one device.
import { once } from 'node:events';
import { createRequire } from 'node:module';

import { mustMatch, timed, within } from './support/requests.mjs';
import { startEach } from './support/sharing.mjs';

const require = createRequire(new URL('../package.json', import.meta.url));
const ModbusMaster = require('modbus-serial');

const kPort = 502;
const kUnit = 1;
const kMasters = 4;
const kRegistersEach = 100;
const kSlots = Math.floor(0x8000 / kRegistersEach);
/** The constant content of the input registers. */
const inputRegister = (address) => (address * 31 + 7) % 0x10000;

export const title = 'Modbus TCP';

async function start(address) {
  const holding = new Map();
  const server = new ModbusMaster.ServerTCP({
    getHoldingRegister: (register) => holding.get(register) ?? 0,
    setRegister: (register, value) => { holding.set(register, value); },
    getInputRegister: inputRegister,
  }, { host: address, port: kPort, unitID: kUnit });
  const failed = once(server, 'serverError').then(([error]) => { throw error; });
  await Promise.race([once(server, 'initialized'), failed]);
  for (const event of ['error', 'socketError', 'serverError']) server.on(event, () => {});
  return server;
}

/** One server per address. Returns a function that stops them. */
export async function serve({ addresses }) {
  return startEach(addresses, start, (server) => new Promise((done) => { server.close(done); }));
}

/** Not awaited: the library calls back only for a connection that is still open. */
const drop = (master) => master.destroy(() => {});

async function connect(address, timeoutMs) {
  const master = new ModbusMaster();
  master.on('error', () => {});  // each request reports its own failure
  try {
    await master.connectTCP(address, { port: kPort, timeout: timeoutMs });
  } catch (error) {
    drop(master);
    throw error;
  }
  master.setID(kUnit);
  master.setTimeout(timeoutMs);
  return master;
}

let uses = 0;

/** In turn: writes registers, reads them back, and reads registers that only the device sets. */
function request(master, first, index) {
  const round = index - (index % 3);
  const values = Array.from({ length: kRegistersEach }, (_, place) => (first * 3 + round * 101 + place) % 0x10000);
  const inputs = values.map((_, place) => inputRegister(first + place));
  const acts = [
    async () => master.writeRegisters(first, values),
    async () => mustMatch('Modbus, holding registers',
      (await master.readHoldingRegisters(first, kRegistersEach)).data, values),
    async () => mustMatch('Modbus, input registers',
      (await master.readInputRegisters(first, kRegistersEach)).data, inputs),
  ];
  return acts[index % acts.length]();
}

/** Each use writes its own registers, so that several may run at once. */
export async function use({ address, rounds, timeoutMs }) {
  const first = (uses++ % kSlots) * kRegistersEach;
  const started = performance.now();
  const master = await connect(address, timeoutMs);
  const connectMs = performance.now() - started;
  try {
    const requestMs = await timed(rounds, (index) => request(master, first, index));
    await within(timeoutMs, 'Modbus, closing', new Promise((done) => { master.close(done); }));
    return { requestMs, connectMs, notes: {} };
  } finally {
    drop(master);
  }
}

/** A control system, a panel, a logger and a programming device at once, each with its own values. */
async function useTogether(options) {
  const reports = await Promise.all(Array.from({ length: kMasters }, () => use(options)));
  return {
    requestMs: reports.flatMap(({ requestMs }) => requestMs),
    connectMs: Math.max(...reports.map(({ connectMs }) => connectMs)),
    notes: { masters: kMasters },
  };
}

export const variants = [{ title: 'Modbus TCP, several masters', use: useTogether }];
