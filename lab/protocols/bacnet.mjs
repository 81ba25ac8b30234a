// BACnet/IP through @bacnet-js/client on both sides. Like real tools, the tool uses BACnet's own port, which
// all uses share. Changes of a value arrive unsolicited, at the subscribing port or at another one.
import { once } from 'node:events';
import { createRequire } from 'node:module';

import { insist, mustBe, timed, within } from './support/requests.mjs';
import { shared, startEach } from './support/sharing.mjs';

const require = createRequire(new URL('../package.json', import.meta.url));
const {
  default: BacnetClient, ApplicationTag, ConfirmedServiceChoice: Service, ErrorClass, ErrorCode, ObjectType,
  PropertyIdentifier,
} = require('@bacnet-js/client');

export const title = 'BACnet/IP';

const kTries = 3;  // Number_Of_APDU_Retries, which this library leaves to the caller
const kTryMs = 1000;
const kOtherPort = 47_809;
const kDevice = 4711;
const kLifetimeSeconds = 300;
const kPresent = { id: PropertyIdentifier.PRESENT_VALUE, index: 0xffffffff };
const analog = (instance) => ({ type: ObjectType.ANALOG_VALUE, instance });
const kFirstPlain = 1000;
const kPlains = 1_000_000;
/** A datagram may arrive late, after a newer one, so each written value has its own object. */
const plain = (number) => analog(kFirstPlain + (number % kPlains));
const kWatched = analog(2);
const kWatchedElsewhere = analog(3);  // its changes are reported to kOtherPort, whichever port subscribed
const kPriority = 8;
const real = (value) => [{ type: ApplicationTag.REAL, value }];

async function open(options) {
  const client = new BacnetClient(options);
  client.on('error', () => {});  // for refused datagrams; the waiting request times out
  await once(client, 'listening');
  return client;
}

// ---- the device

async function startDevice(address) {
  const device = await open({ interface: address, reuseAddr: false });
  const values = new Map([kWatched, kWatchedElsewhere].map(({ instance }) => [instance, 0]));
  const has = ({ instance }) => instance >= kFirstPlain && instance < kFirstPlain + kPlains || values.has(instance);
  const subscribers = new Map();
  const refuse = ({ header, invokeId }, service) =>
    device.errorResponse(header.sender, service, invokeId, ErrorClass.OBJECT, ErrorCode.UNKNOWN_OBJECT);
  device.on('readProperty', (asked) => {
    const { objectId, property } = asked.payload;
    if (!has(objectId)) return refuse(asked, Service.READ_PROPERTY);
    return device.readPropertyResponse(asked.header.sender, asked.invokeId, objectId, property,
      real(values.get(objectId.instance) ?? 0));
  });
  device.on('writeProperty', (asked) => {
    const { objectId, value: { value: [{ value }] } } = asked.payload;
    if (!has(objectId)) return refuse(asked, Service.WRITE_PROPERTY);
    values.set(objectId.instance, value);
    device.simpleAckResponse(asked.header.sender, Service.WRITE_PROPERTY, asked.invokeId);
    const subscriber = subscribers.get(objectId.instance);
    if (!subscriber) return undefined;
    return device.unconfirmedCOVNotification(subscriber.to, subscriber.process, kDevice, objectId,
      kLifetimeSeconds, [{ property: kPresent, value: real(value) }]);
  });
  device.on('subscribeCov', ({ header, invokeId, payload }) => {
    const { instance } = payload.monitoredObjectId;
    const [host] = header.sender.address.split(':');
    const elsewhere = instance === kWatchedElsewhere.instance;
    const to = { address: elsewhere ? `${host}:${kOtherPort}` : header.sender.address };
    subscribers.set(instance, { to, process: payload.subscriberProcessId });
    device.simpleAckResponse(header.sender, Service.SUBSCRIBE_COV, invokeId);
  });
  return device;
}

/** A device at each address. */
export async function serve({ addresses }) {
  return startEach(addresses, startDevice, (device) => device.close());
}

// ---- the engineer's tool

const toolOptions = { apduTimeout: kTryMs };
const takeTool = shared(() => open(toolOptions), (tool) => tool.close());
const takeOtherTool = shared(() => open({ ...toolOptions, port: kOtherPort }), (tool) => tool.close());

/** Repeats unanswered requests. */
const stubborn = (notes) => ({ tries: kTries, notes, isLoss: /ERR_TIMEOUT|nothing within|another object/ });

let asked = 0;
/** Numbers continue across uses, so that a late answer never matches a newer request. */
const numbered = (options = {}) => ({ ...options, invokeId: (asked++ % 255) + 1 });

const write = (tool, to, object, value) => tool.writeProperty(to, object, PropertyIdentifier.PRESENT_VALUE,
  real(value), numbered({ priority: kPriority }));

/** The present value; an answer that names another object is a late one. */
async function read(tool, to, object) {
  const { objectId, values } = await tool.readProperty(to, object, PropertyIdentifier.PRESENT_VALUE, numbered());
  if (objectId.instance !== object.instance) throw new Error('BACnet: an answer about another object');
  return values[0].value;
}

let written = 0;

/** Writes a value and reads it back, alternately. */
export async function use({ address, rounds }) {
  const { it: tool, release } = await takeTool();
  const to = { address };
  const notes = { repeated: 0 };
  let object;
  try {
    const requestMs = await timed(rounds, (index) => {
      const value = Math.floor(index / 2) + 0.5;
      if (index % 2 === 0) object = plain(written++);
      return insist(stubborn(notes), async () => {
        if (index % 2 === 0) await write(tool, to, object, value);
        else mustBe('BACnet present value', await read(tool, to, object), value);
      });
    });
    return { requestMs, notes };
  } finally {
    await release();
  }
}

/**
 * Resolves with the value of the next change of `object` that `hearing` receives from `address`. The values grow, so
 * a value below `atLeast` is a late report of an earlier change.
 */
function nextChange(hearing, address, object, atLeast) {
  let receive;
  const change = new Promise((resolve) => {
    receive = ({ header, payload }) => {
      if (header.sender.address !== address) return;
      if (payload.monitoredObjectId.instance !== object.instance) return;
      const { value } = payload.values[0].value[0];
      if (!(value < atLeast)) resolve(value);
    };
    hearing.on('covNotifyUnconfirmed', receive);
  });
  return { change, forget: () => hearing.off('covNotifyUnconfirmed', receive) };
}

/**
 * Subscribes, then changes the value repeatedly and measures the time from each write to its report. A lost report
 * is not repeated by the device, so the write is repeated and counted.
 */
async function watch({ address, rounds }, { asking, hearing, object }) {
  const to = { address };
  const notes = { repeated: 0 };
  await insist(stubborn(notes), () => asking.subscribeCov(to, object, 1, false, false, kLifetimeSeconds, numbered()));
  const requestMs = await timed(rounds, (index) => insist(stubborn(notes), async () => {
    const value = index + 0.75;
    const { change, forget } = nextChange(hearing, address, object, value);
    try {
      const reported = within(kTryMs, 'BACnet change of value', change);
      await Promise.all([write(asking, to, object, value), reported]);
      mustBe('BACnet change of value', await reported, value);
    } finally {
      forget();
    }
  }));
  return { requestMs, notes };
}

async function useChangeOfValue(options) {
  const { it: tool, release } = await takeTool();
  try {
    return await watch(options, { asking: tool, hearing: tool, object: kWatched });
  } finally {
    await release();
  }
}

/**
 * The device reports to a port that has sent nothing, like a recipient entered in the device. With the setting, that
 * port first asks the device for a value, so that everything between sees the report as an answer.
 */
async function useOtherPort(options) {
  const asking = await takeTool();
  try {
    const hearing = await takeOtherTool();
    try {
      if (options.setting) {
        await insist(stubborn({}), () => read(hearing.it, { address: options.address }, kWatchedElsewhere));
      }
      return await watch(options, { asking: asking.it, hearing: hearing.it, object: kWatchedElsewhere });
    } finally {
      await hearing.release();
    }
  } finally {
    await asking.release();
  }
}

export const variants = [
  { title: 'BACnet/IP change of value', use: useChangeOfValue },
  {
    title: 'BACnet/IP change of value, to a port that did not ask', use: useOtherPort,
    settingNeeded: 'the port that hears asks first (one port for both)',
  },
];
