// How the relay answers a hello: as it should, or as it should not.
import { acknowledgement, DatagramType, kNoToken } from './udp_datagrams.mjs';

/** Each takes the token that a proper answer would carry and gives the datagram, or null for none. */
export const kHelloAnswers = {
  proper: (token) => acknowledgement(DatagramType.hello, token),
  none: () => null,
  short: (token) => acknowledgement(DatagramType.hello, token).subarray(0, -1),
  long: (token) => Buffer.concat([acknowledgement(DatagramType.hello, token), Buffer.from([0])]),
  wrongType: (token) => {
    const bytes = acknowledgement(DatagramType.hello, token);
    bytes[4] = 5;
    return bytes;
  },
  wrongMagic: (token) => {
    const bytes = acknowledgement(DatagramType.hello, token);
    bytes[3] = 0x32;
    return bytes;
  },
  zeroToken: () => acknowledgement(DatagramType.hello, kNoToken),
  otherHelloType: (token) => acknowledgement(1, token),
};
