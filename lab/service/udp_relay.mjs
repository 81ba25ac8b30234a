// The UDP side of the service's port: it keeps what it is sent and answers nothing.
import dgram from 'node:dgram';
import { once } from 'node:events';

import { nowMs } from './record.mjs';

const kSocketBytes = 4 << 20;

export class UdpRelay {
  #socket = dgram.createSocket({ type: 'udp4', recvBufferSize: kSocketBytes });
  #datagrams = [];

  constructor() {
    this.#socket.on('message', (bytes, { address, port }) =>
      this.#datagrams.push({ timeMs: nowMs(), from: `${address}:${port}`, hex: bytes.toString('hex') }));
  }

  async bind(port, host) {
    this.#socket.bind(port, host);
    await once(this.#socket, 'listening');
  }

  /** Every datagram that came: [{timeMs, from, hex}]. */
  datagrams() { return this.#datagrams; }

  close() { this.#socket.close(); }
}
