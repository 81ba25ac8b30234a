// A proxy between a tool and a server that alters the server's answers, for UDP and TCP.
// Usage: node protocols_falsifier.mjs ADDRESS PORT SERVER FIND REPLACE   (hexadecimal, of equal length), or
//        node protocols_falsifier.mjs ADDRESS PORT SERVER @OFFSET XOR    (one byte of each datagram; negative: from its end)
import dgram from 'node:dgram';
import { once } from 'node:events';
import net from 'node:net';

const [address, portText, server, what, how] = process.argv.slice(2);
const port = Number(portText);

function falsified(bytes) {
  if (what.startsWith('@')) {
    bytes[(Number(what.slice(1)) + bytes.length) % bytes.length] ^= Number(how);
    return bytes;
  }
  const [find, replace] = [Buffer.from(what, 'hex'), Buffer.from(how, 'hex')];
  for (let at = bytes.indexOf(find); at >= 0; at = bytes.indexOf(find, at + find.length)) bytes.set(replace, at);
  return bytes;
}

const front = dgram.createSocket({ type: 'udp4', reuseAddr: true });
const backs = new Map();  // a socket to the server for each client socket
front.on('message', (bytes, { address: from, port: fromPort }) => {
  const key = `${from}:${fromPort}`;
  if (!backs.has(key)) {
    const back = dgram.createSocket('udp4');
    back.on('message', (answer) => front.send(falsified(answer), fromPort, from));
    backs.set(key, back);
  }
  backs.get(key).send(bytes, port, server);
});
front.bind(port, address);

const listener = net.createServer((tool) => {
  const back = net.connect(port, server);
  for (const [one, other] of [[tool, back], [back, tool]]) {
    one.on('error', () => {});
    one.on('close', () => other.destroy());
  }
  tool.pipe(back);
  back.on('data', (bytes) => tool.write(falsified(bytes)));
});
listener.listen(port, address);

await Promise.all([once(front, 'listening'), once(listener, 'listening')]);
console.log('ready');
