// A BACnet/IP device that answers Who-Is with I-Am (ANSI/ASHRAE 135, section 16.10): by unicast, or by
// broadcast in its network, as many devices do.
import { once } from 'node:events';
import { createRequire } from 'node:module';

const require = createRequire(new URL('../../package.json', import.meta.url));
const { default: BacnetClient, Segmentation } = require('@bacnet-js/client');

const kVendor = 999;

const isAsked = (number, { lowLimit = number, highLimit = number } = {}) =>
  number >= lowLimit && number <= highLimit;

/**
 * Starts the device, with one socket for receiving and one for sending; answerBroadcasts() explains why.
 * `device`: {address, broadcast, number}; the number is its device instance. It also prints its
 * broadcast answers.
 */
export async function startBacnetDevice(device, { answersEverybody = false } = {}) {
  const speaker = new BacnetClient({ interface: device.address, broadcastAddress: device.broadcast });
  await once(speaker, 'listening');
  const answer = ({ header, payload }) => {
    if (!isAsked(device.number, payload)) return;
    const receiver = answersEverybody ? undefined : { address: header.sender.address };
    speaker.iAmResponse(receiver, device.number, Segmentation.NO_SEGMENTATION, kVendor);
    if (answersEverybody) console.log(`${device.number} answered everybody`);
  };
  speaker.on('whoIs', answer);
  const listener = new BacnetClient({ interface: device.broadcast });
  listener.on('whoIs', answer);
  await once(listener, 'listening');
}
