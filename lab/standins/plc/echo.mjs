// An echo service (RFC 862) for datagrams and TCP streams.
import { execFileSync } from 'node:child_process';
import dgram from 'node:dgram';
import { once } from 'node:events';
import net from 'node:net';

const kSocketBytes = 4 << 20;

/** All IPv4 addresses, including those of interfaces that came up a moment ago. */
const ownAddresses = () => JSON.parse(execFileSync('ip', ['-j', '-4', 'address']))
  .flatMap(({ addr_info: addresses }) => addresses.map(({ local }) => local));

async function echoDatagrams(address, port) {
  const socket = dgram.createSocket({
    type: 'udp4', recvBufferSize: kSocketBytes, sendBufferSize: kSocketBytes,
  });
  socket.on('message', (bytes, from) => socket.send(bytes, from.port, from.address, () => {}));
  socket.bind(port, address);
  await once(socket, 'listening');
  return socket;
}

/** Answers UDP and TCP on `port` (0: any, one number for both). Returns {port, close()}. */
export async function startEcho({ port = 7, host = '0.0.0.0' } = {}) {
  const connections = new Set();
  const tcp = net.createServer((socket) => {
    connections.add(socket);
    socket.on('error', () => {});  // the other side reports broken connections
    socket.on('close', () => connections.delete(socket));
    socket.setNoDelay(true);
    socket.pipe(socket);
  });
  tcp.listen(port, host);
  await once(tcp, 'listening');
  // One socket per address, so that an answer comes from the address that was asked.
  const addresses = host === '0.0.0.0' ? ownAddresses() : [host];
  const udp = await Promise.all(addresses.map((address) => echoDatagrams(address, tcp.address().port)));
  return {
    port: tcp.address().port,
    close() {
      for (const socket of udp) socket.close();
      tcp.close();
      for (const socket of connections) socket.destroy();
    },
  };
}
