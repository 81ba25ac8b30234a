// A BACnet/IP device that answers Who-Is (ANSI/ASHRAE 135, section 16.10) with I-Am by unicast.
import { once } from 'node:events';
import { createRequire } from 'node:module';

const require = createRequire(new URL('../package.json', import.meta.url));
const { default: BacnetClient, Segmentation } = require('@bacnet-js/client');

const kVendor = 999;

const isAsked = (number, { lowLimit = number, highLimit = number } = {}) =>
  number >= lowLimit && number <= highLimit;

/**
 * Starts the device. It hears on one socket and speaks on another; see broadcast_answers.mjs for why.
 * `device`: {address, broadcast, number}; the number is its device instance.
 */
export async function startBacnetDevice(device) {
  const speaker = new BacnetClient({ interface: device.address });
  await once(speaker, 'listening');
  const answer = ({ header, payload }) => {
    if (!isAsked(device.number, payload)) return;
    speaker.iAmResponse({ address: header.sender.address }, device.number,
      Segmentation.NO_SEGMENTATION, kVendor);
  };
  speaker.on('whoIs', answer);
  const listener = new BacnetClient({ interface: device.broadcast });
  listener.on('whoIs', answer);
  await once(listener, 'listening');
}
