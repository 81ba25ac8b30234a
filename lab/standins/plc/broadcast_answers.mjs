// A device's UDP port that hears broadcasts of its network and answers each asker by unicast.
import dgram from 'node:dgram';
import { once } from 'node:events';

async function open(address, port, onMessage) {
  const socket = dgram.createSocket({ type: 'udp4', reuseAddr: true });
  socket.on('message', onMessage);
  socket.bind(port, address);
  await once(socket, 'listening');
  return socket;
}

/**
 * Hears what is sent to `device.address` and to `device.broadcast` on `port`. `answer(bytes, question)`
 * gives the answer's bytes, or null for none; `question` is {from, port, to}. Every answer leaves from
 * `device.address` and `port`. Two sockets, because the controller's namespace has several addresses:
 * one bound to all of them would answer with the first, whichever network the question was for.
 */
export async function answerBroadcasts(device, port, answer) {
  let speaker = null;
  const hear = (to) => (bytes, sender) => {
    const reply = answer(bytes, { from: sender.address, port: sender.port, to });
    if (reply !== null) speaker.send(reply, sender.port, sender.address);
  };
  speaker = await open(device.address, port, hear(device.address));
  await open(device.broadcast, port, hear(device.broadcast));
}
