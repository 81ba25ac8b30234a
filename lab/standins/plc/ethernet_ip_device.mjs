// An EtherNet/IP device that answers ListIdentity. The layout is that of the CIP Networks Library,
// volume 2, sections 2-3 and 2-4.2; everything is little-endian but the socket address.
import { answerBroadcasts } from './broadcast_answers.mjs';

const kPort = 44818;
const kListIdentity = 0x0063;
const kIdentityItem = 0x000c;
const kHeaderBytes = 24;
const kVendor = 999;
const kProgrammableController = 0x000e;
const kProductCode = 77;
const kOperational = 3;

const u16 = (value) => { const bytes = Buffer.alloc(2); bytes.writeUInt16LE(value); return bytes; };
const u32 = (value) => { const bytes = Buffer.alloc(4); bytes.writeUInt32LE(value); return bytes; };

/** The device's own address, as its identity names it: family, port, address, zeros; big-endian. */
function socketAddress(address) {
  const bytes = Buffer.alloc(16);
  bytes.writeUInt16BE(2, 0);
  bytes.writeUInt16BE(kPort, 2);
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
  await answerBroadcasts(device, kPort, (request) => reply(request, device));
}
