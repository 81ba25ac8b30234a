// Sends Modbus requests to a controller, each after the answer before, and counts the answers.
// Usage: node modbus_rate.mjs ADDRESS PORT WARM_SECONDS SECONDS
// Prints {"answered", "requestMs"} for the SECONDS after the first WARM_SECONDS. Without any answer, requestMs is the time
// spent waiting.
import { createRequire } from 'node:module';

const ModbusMaster = createRequire(new URL('../../lab/package.json', import.meta.url))('modbus-serial');

const kUnit = 1;
const kRegisters = 10;
const kTimeoutMs = 30_000;

const [address, port, warmSeconds, seconds] = process.argv.slice(2);
const beginMs = performance.now() + Number(warmSeconds) * 1000;
const master = new ModbusMaster();
let answered = 0;

function finish() {
  console.log(JSON.stringify({ answered, requestMs: (Number(seconds) * 1000) / Math.max(answered, 1) }));
  process.exit(0);  // a pending request would keep the process alive
}

setTimeout(finish, (Number(warmSeconds) + Number(seconds)) * 1000);
await master.connectTCP(address, { port: Number(port), timeout: kTimeoutMs });
master.setID(kUnit);
master.setTimeout(kTimeoutMs);
for (;;) {
  await master.readHoldingRegisters(0, kRegisters);
  if (performance.now() >= beginMs) answered += 1;
}
