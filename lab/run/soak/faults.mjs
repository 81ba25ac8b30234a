// The faults of a soak. Each is {name, run(lab, random)}: it breaks something, waits, repairs it and, if it
// had a choice, returns a description.
import { setTimeout as sleep } from 'node:timers/promises';

const seconds = (time) => sleep(time * 1000);

async function forAWhile(random, low, high, undo) {
  const time = random.between(low, high);
  await seconds(time);
  await undo();
  return `${time.toFixed(1)} s`;
}

const clear = (lab) => () => lab.faults.clear();

/** Answers that a relay must not send; all but the first two end the connection. */
const kRelayFaults = ['fragmentsWithPings', 'textFrame', 'closeInTheMiddle', 'tooLargeMessage', 'garbage',
  'cutInTheMiddle', 'maskedFrame'];

export const kSoakFaults = [
  { name: 'reset', run: async (lab) => { await lab.service.cutRelay(); } },
  {
    name: 'service killed', run: async (lab, random) => {
      await lab.killService();
      return forAWhile(random, 0, 4, () => lab.restartService());
    },
  },
  {
    name: 'service held', run: async (lab, random) => {
      lab.pauseService();
      return forAWhile(random, 2, 12, () => lab.continueService());
    },
  },
  {
    name: 'relay silent', run: async (lab, random) => {
      await lab.service.setSilent(true);
      return forAWhile(random, 4, 12, () => lab.service.setSilent(false));
    },
  },
  {
    name: 'upgrades refused', run: async (lab, random) => {
      await lab.service.refuseUpgrade({ status: 503 });
      await lab.service.cutRelay();
      return forAWhile(random, 1, 5, () => lab.service.acceptUpgrades());
    },
  },
  {
    name: 'relay misbehaves', run: async (lab, random) => {
      const name = random.choice(kRelayFaults);
      await lab.service.writeFault({ name, packet: '45'.repeat(40) });
      return name;
    },
  },
  {
    name: 'datagrams vanish', run: async (lab, random) => {
      const way = random.choice(['both', 'toRelay', 'toClient']);
      await lab.faults.blockUdp(way);
      return `${way} ${await forAWhile(random, 2, 20, clear(lab))}`;
    },
  },
  {
    name: 'connection half open', run: async (lab, random) => {
      await lab.faults.dropTcp({ onlyPresent: true });
      return forAWhile(random, 9, 12, clear(lab));
    },
  },
  {
    name: 'all segments vanish', run: async (lab, random) => {
      await lab.faults.dropTcp();
      return forAWhile(random, 1, 12, clear(lab));
    },
  },
  {
    name: 'bad line', run: async (lab, random) => {
      const line = {
        delayMs: random.integer(0, 200), lossPercent: random.integer(0, 5),
        reorderPercent: random.integer(0, 10), seed: random.integer(1, 1e6),
      };
      await lab.faults.worsenLine(line);
      const time = await forAWhile(random, 4, 15, clear(lab));
      return `${line.delayMs} ms, ${line.lossPercent} % lost, ${line.reorderPercent} % late, ${time}`;
    },
  },
  {
    name: 'new UDP token', run: async (lab) => { await lab.service.renewToken(); },
  },
];
