// Devices that receive the broadcasts of their network and answer each sender by unicast: EtherNet/IP (ListIdentity, as in
// the CIP Networks Library, volume 2, sections 2-3 and 2-4.2; little-endian except the socket address) and a plain one.
import dgram from 'node:dgram';
import { once } from 'node:events';

export const kPlainPort = 30303;
const kEthernetIpPort = 44818;
const kListIdentity = 0x0063;
const kIdentityItem = 0x000c;
const kHeaderBytes = 24;
const kVendor = 999;
const kProgrammableController = 0x000e;
const kProductCode = 77;
const kOperational = 3;

async function open(address, port, onMessage) {
  const socket = dgram.createSocket({ type: 'udp4', reuseAddr: true });
  socket.on('message', onMessage);
  socket.bind(port, address);
  await once(socket, 'listening');
  return socket;
}

/**
 * Receives datagrams for `device.address` and `device.broadcast` on `port`. `answer(bytes, question)` returns the answer's
 * bytes, or null for none; `question` is {from, port, to}. Every answer is sent from `device.address` and `port`. Two sockets,
 * because the controller's namespace has several addresses: a socket bound to all of them would answer from the first.
 */
async function answerBroadcasts(device, port, answer) {
  let speaker = null;
  const receive = (to) => (bytes, sender) => {
    const reply = answer(bytes, { from: sender.address, port: sender.port, to });
    if (reply !== null) speaker.send(reply, sender.port, sender.address);
  };
  speaker = await open(device.address, port, receive(device.address));
  await open(device.broadcast, port, receive(device.broadcast));
}

const u16 = (value) => { const bytes = Buffer.alloc(2); bytes.writeUInt16LE(value); return bytes; };
const u32 = (value) => { const bytes = Buffer.alloc(4); bytes.writeUInt32LE(value); return bytes; };

/** The device's own address inside its identity: family, port, address, zeros; big-endian. */
function socketAddress(address) {
  const bytes = Buffer.alloc(16);
  bytes.writeUInt16BE(2, 0);
  bytes.writeUInt16BE(kEthernetIpPort, 2);
  bytes.set(address.split('.').map(Number), 4);
  return bytes;
}

function identity({ address, number }) {
  const name = Buffer.from(`Lab controller ${number}`);
  const item = Buffer.concat([
    u16(1), socketAddress(address), u16(kVendor), u16(kProgrammableController), u16(kProductCode),
    Buffer.from([1, 2]), u16(0), u32(number), Buffer.from([name.length]), name,
    Buffer.from([kOperational]),
  ]);
  return Buffer.concat([u16(1), u16(kIdentityItem), u16(item.length), item]);
}

function reply(request, device) {
  if (request.length < kHeaderBytes || request.readUInt16LE(0) !== kListIdentity) return null;
  const data = identity(device);
  const senderContext = request.subarray(12, 20);
  return Buffer.concat([u16(kListIdentity), u16(data.length), u32(0), u32(0), senderContext, u32(0), data]);
}

/** Starts the device: {address, broadcast, number}; the number is its serial number. */
export async function startEthernetIpDevice(device) {
  await answerBroadcasts(device, kEthernetIpPort, (request) => reply(request, device));
}

/** A device without a known protocol: it answers any datagram with a description of it, as JSON. */
export async function startPlainDevice(device) {
  await answerBroadcasts(device, kPlainPort, (bytes, { from, port, to }) => Buffer.from(JSON.stringify({
    device: device.address, heard: bytes.toString(), asker: `${from}:${port}`, askedAt: to,
  })));
}
