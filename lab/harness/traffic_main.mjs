// Traffic as a separate process, so that it can run inside a network namespace; see traffic.mjs.
import { setTimeout as sleep } from 'node:timers/promises';

import { serve } from './remote_call.mjs';
import { TcpTraffic } from './traffic_tcp.mjs';
import { UdpTraffic } from './traffic_udp.mjs';

const kPollMs = 20;
let startMs;
let waitMs;
const streams = {};

const kMethods = {
  async start({ udp, tcp, ...common }) {
    startMs = performance.now();
    ({ waitMs } = common);
    if (udp) streams.udp = new UdpTraffic({ ...common, ...udp, startMs });
    if (tcp) streams.tcp = new TcpTraffic({ ...common, ...tcp, startMs });
    await streams.udp?.start();
    streams.tcp?.start();
  },

  report({ lateMs = waitMs, since } = {}) {
    return {
      nowMs: performance.now() - startMs,
      udp: streams.udp?.report({ lateMs, since }), tcp: streams.tcp?.report(),
    };
  },

  /** Stops sending, waits for late answers and reports the rest as lost. */
  async finish() {
    const all = Object.values(streams);
    for (const stream of all) stream.pause();
    const end = performance.now() + waitMs;
    while (performance.now() < end && !all.every((stream) => stream.isComplete())) await sleep(kPollMs);
    return kMethods.report({ lateMs: 0 });
  },
};

serve((method, args) => kMethods[method](...args), () => {
  for (const stream of Object.values(streams)) stream.close();
});
