// SNMP through net-snmp on both sides: version 2c, version 3 with passwords, and traps, which the device
// sends unsolicited to a port of the engineer's.
import { EventEmitter, once } from 'node:events';
import { createRequire } from 'node:module';

import { isOpen } from './support/daemons.mjs';
import { mustBe, timed } from './support/requests.mjs';
import { shared, startEach } from './support/sharing.mjs';

const snmp = createRequire(new URL('../package.json', import.meta.url))('net-snmp');

export const title = 'SNMP v2c';

const kPort = 161;
const kTrapPort = 162;
const kTries = 3;
const kCommunity = 'site';
const kLab = '1.3.6.1.4.1.8072.9999.9999';  // for experiments (NET-SNMP-MIB)
/** A datagram may arrive late, after a newer one, so values written in quick succession have separate places. */
const kPlaces = 100;
const placesOf = (kind) => Array.from({ length: kPlaces }, (_, place) => `${kind}${place}`);
const kScalars = ['trapped', ...placesOf('plain'), ...placesOf('secured')];
const oid = (name) => `${kLab}.${kScalars.indexOf(name) + 1}`;
const instance = (name) => `${oid(name)}.0`;
const kTrap = `${kLab}.0.1`;
const kUser = {
  name: 'engineer', level: snmp.SecurityLevel.authPriv,
  authProtocol: snmp.AuthProtocols.sha256, authKey: 'authenticates-the-lab',
  privProtocol: snmp.PrivProtocols.aes, privKey: 'encrypts-the-lab',
};

// ---- the device

/** Sends a trap with the new value of `trapped` to the trap port of the host that set it. */
function sendTrap(from, { pdu, rinfo }) {
  const set = pdu.varbinds.find((one) => one.oid === instance('trapped') && one.requestValue !== undefined);
  if (!set) return;
  const session = snmp.createSession(rinfo.address, kCommunity,
    { version: snmp.Version2c, trapPort: kTrapPort, sourceAddress: from });
  session.on('error', () => {});  // delivery is not confirmed, as for any datagram
  session.trap(kTrap, [{ oid: instance('trapped'), type: snmp.ObjectType.Integer, value: set.value }],
    () => session.close());
}

function fill(agent) {
  const authorizer = agent.getAuthorizer();
  authorizer.addCommunity(kCommunity);
  authorizer.addUser(kUser);
  const access = authorizer.getAccessControlModel();
  access.setCommunityAccess(kCommunity, snmp.AccessLevel.ReadWrite);
  access.setUserAccess(kUser.name, snmp.AccessLevel.ReadWrite);
  for (const name of kScalars) {
    agent.getMib().registerProvider({
      name, type: snmp.MibProviderType.Scalar, oid: oid(name), scalarType: snmp.ObjectType.Integer,
      maxAccess: snmp.MaxAccess['read-write'],
    });
    agent.getMib().setScalarValue(name, 0);
  }
}

const close = (listener) => new Promise((resolve) => { listener.close(resolve); });

/** The library crashes if the port is in use. */
async function mustBeFree(port, address) {
  if (await isOpen('udp', port, address)) throw new Error(`SNMP: UDP port ${port} is in use`);
}

async function startAgent(address) {
  await mustBeFree(kPort, address);
  const agent = snmp.createAgent(
    { port: kPort, address, accessControlModelType: snmp.AccessControlModelType.Simple },
    (error, data) => { if (!error) sendTrap(address, data); });
  await Promise.all(Object.values(agent.listener.sockets).map((socket) => once(socket, 'listening')));
  fill(agent);
  return agent;
}

/** An agent at each address. */
export async function serve({ addresses }) {
  return startEach(addresses, startAgent, close);
}

// ---- the engineer's tool

const options = (timeoutMs) =>
  ({ port: kPort, retries: kTries - 1, timeout: Math.ceil(timeoutMs / kTries), version: snmp.Version2c });

const openPlain = (address, timeoutMs) => snmp.createSession(address, kCommunity, options(timeoutMs));
const openSecured = (address, timeoutMs) =>
  snmp.createV3Session(address, kUser, { ...options(timeoutMs), version: snmp.Version3 });

/** Calls `method` of `session` with one variable; resolves with the agent's value. */
const call = (session, method, variable) => new Promise((resolve, reject) => {
  session[method]([variable], (error, varbinds) => {
    if (error) reject(new Error(`SNMP ${method}: ${error.message}`));
    else if (snmp.isVarbindError(varbinds[0])) reject(new Error(snmp.varbindError(varbinds[0])));
    else resolve(varbinds[0].value);
  });
});

const set = (session, name, value) =>
  call(session, 'set', { oid: instance(name), type: snmp.ObjectType.Integer, value });

/** Calls `body` with a session and closes it afterwards. */
async function withSession(session, body) {
  let broken = null;
  session.on('error', (error) => { broken = error; });
  try {
    return await body(session);
  } catch (error) {
    throw broken ?? error;
  } finally {
    session.close();
  }
}

let written = 0;

/** Sets a value and gets it back, alternately. */
const setAndGet = (open, kind) => ({ address, rounds, timeoutMs }) =>
  withSession(open(address, timeoutMs), async (session) => {
    let name;
    const requestMs = await timed(rounds, async (index) => {
      const value = 1000 + Math.floor(index / 2);
      if (index % 2 === 0) name = `${kind}${written++ % kPlaces}`;
      if (index % 2 === 0) mustBe('SNMP set', await set(session, name, value), value);
      else mustBe('SNMP get', await call(session, 'get', instance(name)), value);
    });
    return { requestMs, notes: {} };
  });

export const use = setAndGet(openPlain, 'plain');

async function openReceiver() {
  await mustBeFree(kTrapPort);
  const traps = new EventEmitter();
  const receiver = snmp.createReceiver({ port: kTrapPort }, (error, trap) => {
    if (!error) traps.emit(trap.rinfo.address, trap.pdu.varbinds.find((one) => one.oid === instance('trapped')));
  });
  receiver.getAuthorizer().addCommunity(kCommunity);
  await Promise.all(Object.values(receiver.listener.sockets).map((socket) => once(socket, 'listening')));
  return { traps, receiver };
}

const takeReceiver = shared(openReceiver, ({ receiver }) => close(receiver));

/**
 * Measures the time from each set to its trap. A lost trap is not repeated by the device, so the set is repeated and
 * counted.
 */
async function useTrap({ address, rounds, timeoutMs }) {
  const { it: { traps }, release } = await takeReceiver();
  const notes = { lostTraps: 0 };
  const setAndHear = (session) => async (index) => {
    for (let left = kTries; left > 0; left -= 1) {
      const late = AbortSignal.timeout(Math.ceil(timeoutMs / kTries));
      const trap = once(traps, address, { signal: late }).catch(() => null);
      await set(session, 'trapped', 5000 + index);
      const heard = (await trap)?.[0];
      if (heard) return mustBe('SNMP trap', heard.value, 5000 + index);
      notes.lostTraps += 1;
    }
    throw new Error(`SNMP: ${kTries} traps in a row did not arrive`);
  };
  try {
    return await withSession(openPlain(address, timeoutMs), async (session) =>
      ({ requestMs: await timed(rounds, setAndHear(session)), notes }));
  } finally {
    await release();
  }
}

export const variants = [
  { title: 'SNMP v3, with passwords', use: setAndGet(openSecured, 'secured') },
  { title: 'SNMP trap, sent by the device', use: useTrap },
];
