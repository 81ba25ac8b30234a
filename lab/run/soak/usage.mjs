// The program's use of memory, threads and handles over time.
import { readdir, readFile } from 'node:fs/promises';
import { setTimeout as sleep } from 'node:timers/promises';

const kSampleMs = 5000;

/** The program's process id, found by name in the engineer's namespace. */
async function programPid(lab) {
  for (const pid of await lab.network.processesIn('engineer')) {
    const name = await readFile(`/proc/${pid}/comm`, 'utf8').catch(() => '');
    if (name.startsWith('Velmarine.Clien')) return pid;
  }
  throw new Error('The program does not run.');
}

async function sampleOf(pid) {
  const status = await readFile(`/proc/${pid}/status`, 'utf8');
  const number = (name) => Number(new RegExp(`^${name}:\\s+(\\d+)`, 'm').exec(status)[1]);
  return {
    megabytes: number('RssAnon') / 1024, threads: number('Threads'),
    handles: (await readdir(`/proc/${pid}/fd`)).length,
  };
}

const median = (values) => [...values].sort((a, b) => a - b)[Math.floor(values.length / 2)];

export class Usage {
  #samples = [];
  #ending = false;
  #done;

  async start(lab) {
    const pid = await programPid(lab);
    this.#done = this.#run(pid);
  }

  async #run(pid) {
    while (!this.#ending) {
      const sample = await sampleOf(pid).catch(() => null);
      if (sample === null) return;  // the program has ended
      this.#samples.push(sample);
      for (let waited = 0; waited < kSampleMs && !this.#ending; waited += 100) await sleep(100);
    }
  }

  /** Ends the sampling; returns {megabytes, threads, handles}, each {first, last, highest}; first and last are medians of a third. */
  async stop() {
    this.#ending = true;
    await this.#done;
    const third = Math.max(1, Math.floor(this.#samples.length / 3));
    return Object.fromEntries(['megabytes', 'threads', 'handles'].map((name) => {
      const values = this.#samples.map((sample) => sample[name]);
      return [name, {
        first: median(values.slice(0, third)), last: median(values.slice(-third)), highest: Math.max(...values),
      }];
    }));
  }
}
