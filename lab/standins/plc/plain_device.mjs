// A device of no known protocol: it answers any datagram with what it saw of it, as JSON.
import { answerBroadcasts } from './broadcast_answers.mjs';

export const kPlainPort = 30303;

/** Starts the device: {address, broadcast, number}. */
export async function startPlainDevice(device) {
  await answerBroadcasts(device, kPlainPort, (bytes, { from, port, to }) => Buffer.from(JSON.stringify({
    device: device.address, heard: bytes.toString(), asker: `${from}:${port}`, askedAt: to,
  })));
}
