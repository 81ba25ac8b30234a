// An echo service as RFC 862 has it: every datagram goes back to its sender, every TCP stream too.
import dgram from 'node:dgram';
import { once } from 'node:events';
import net from 'node:net';

const kSocketBytes = 4 << 20;

/** Answers UDP and TCP on `port` (0: any, one number for both). Returns {port, close()}. */
export async function startEcho({ port = 7, host = '0.0.0.0' } = {}) {
  const connections = new Set();
  const tcp = net.createServer((socket) => {
    connections.add(socket);
    socket.on('error', () => {});  // a connection that breaks is the other side's to report
    socket.on('close', () => connections.delete(socket));
    socket.setNoDelay(true);
    socket.pipe(socket);
  });
  tcp.listen(port, host);
  await once(tcp, 'listening');
  const udp = dgram.createSocket({
    type: 'udp4', recvBufferSize: kSocketBytes, sendBufferSize: kSocketBytes,
  });
  udp.on('message', (bytes, from) => udp.send(bytes, from.port, from.address, () => {}));
  udp.bind(tcp.address().port, host);
  await once(udp, 'listening');
  return {
    port: tcp.address().port,
    close() {
      udp.close();
      tcp.close();
      for (const socket of connections) socket.destroy();
    },
  };
}
