// An engineer's actions while a job runs: switching the discovery mode, saving a profile, loading one.
import { setTimeout as sleep } from 'node:timers/promises';

import { roundExpression } from './page_round.mjs';

const kAnswerMs = 15_000;
const kFileMs = 300;
const kFirstJobMs = 300;
const kLongestJobMs = 2_000;
const kMostActs = 3;

/** An engineer whose acts are chosen by `random`. Acts that had no lasting effect are in `wrong`: {round, done, text}. */
export class Engineer {
  #lab;
  #random;
  #jobMs = kFirstJobMs;
  #lastForm = null;
  rounds = 0;
  acts = 0;
  /** Keys of the profiles that were logged as saved, by name. */
  saved = new Map();
  wrong = [];

  constructor(lab, random) {
    this.#lab = lab;
    this.#random = random;
  }

  /** Clicks `button`, which starts a job, and acts at random moments while it runs. */
  async round(button) {
    const { page } = this.#lab.program;
    const plan = { button, acts: this.#plan(), answerMs: kAnswerMs };
    const seen = await page.evaluate(roundExpression(plan));
    this.rounds += 1;
    this.#jobMs = Math.min(seen.tookMs, kLongestJobMs);
    seen.acts.filter(({ isDone }) => isDone).forEach((act) => this.#remember(act));
    this.#report([...seen.wrong, ...this.#wrongOnPage(seen), ...await this.#wrongInFile(seen)], seen);
    return seen;
  }

  #plan() {
    const names = [...this.saved.keys()];
    const times = Array.from({ length: this.#random.integer(0, kMostActs) },
      () => this.#random.between(0, this.#jobMs)).sort((one, other) => one - other);
    return times.map((afterMs, index) => {
      const act = this.#random.choice(names.length > 0 ? ['discovery', 'save', 'load'] : ['discovery', 'save']);
      const number = `${this.rounds}-${index}`;
      if (act === 'load') return { act, afterMs, name: this.#random.choice(names) };
      if (act === 'discovery') return { act, afterMs };
      const name = `站${this.#random.integer(0, 1e6)} ${number}`;
      names.push(name);
      return { act, afterMs, name, key: `KEY-${number}` };
    });
  }

  #remember({ act, name, key }) {
    this.acts += 1;
    if (act !== 'discovery') this.#lastForm = name;
    if (act === 'save') this.saved.set(name, key);
  }

  #wrongOnPage({ name, key, state, address, isDiscovering, appliedDiscovery }) {
    const wrong = [];
    const last = this.#lastForm;
    if (last !== null && (name !== last || key !== this.saved.get(last))) {
      wrong.push(`the form shows "${name}" with "${key}" instead of "${last}"`);
      this.#lastForm = null;  // reported once
    }
    if (appliedDiscovery !== isDiscovering) wrong.push('the page received another discovery mode');
    if (state === '在线' && address === '未连接') wrong.push('online without an address');
    return wrong;
  }

  /** The file must match the page, with a short delay. */
  async #wrongInFile(seen) {
    let wrong;
    const granted = (await this.#lab.service.granted()).at(-1);
    for (const end = performance.now() + kFileMs; ; await sleep(20)) {
      const file = await this.#lab.prefix.readSettings().catch((error) => ({ unreadable: error.message }));
      wrong = file.unreadable ? [`the file cannot be read: ${file.unreadable}`] : this.#compare(file, seen, granted);
      if (wrong.length === 0 || performance.now() > end) break;
    }
    return wrong;
  }

  /** `granted` is the service's newest connection, if any. */
  #compare({ connectionId, discoveryModeEnabled, siteProfiles }, { state, isDiscovering }, granted) {
    const wrong = [];
    if (state === '在线' && (!connectionId || connectionId !== (granted ?? connectionId))) {
      wrong.push(`online, but the file has the connection "${connectionId}" and not ${granted}`);
    }
    if (discoveryModeEnabled !== isDiscovering) wrong.push('the file has another discovery mode');
    const keys = new Map(siteProfiles.map(({ name, deviceSecret }) => [name, deviceSecret]));
    const lost = [...this.saved].filter(([name, key]) => keys.get(name) !== key);
    return [...wrong, ...lost.map(([name]) => `the file has lost "${name}"`)];
  }

  /** Adds errors to `wrong`, each text only once. */
  #report(list, { acts }) {
    const done = acts.map(({ act, afterMs }) => `${act} at ${afterMs.toFixed(0)} ms`).join(', ');
    const earlier = new Set(this.wrong.map(({ text }) => text));
    for (const text of new Set(list)) {
      if (!earlier.has(text)) this.wrong.push({ round: this.rounds, done, text });
    }
  }
}

/** Errors in the reports of ended connections: each granted one except `inForce` must be reported exactly once. */
export function wrongReports({ granted, ended, inForce }) {
  const times = (id) => ended.filter((one) => one === id).length;
  const strangers = ended.filter((id) => !granted.includes(id)).map((id) => `${id}, never granted, was ended`);
  return [...strangers, ...granted.filter((id) => times(id) !== (id === inForce ? 0 : 1))
    .map((id) => `${id} was reported ended ${times(id)} times`)];
}

/** The connection ids that were reported as ended to the service, one for each report. */
export async function endedConnections(service) {
  const requests = await service.requests({ method: 'POST', pathPrefix: '/api/connections/' });
  return requests.map(({ url }) => /^\/api\/connections\/([^/]+)\/disconnect$/.exec(url)?.[1]).filter(Boolean);
}
