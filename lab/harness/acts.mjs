// An engineer's actions while a job runs: switching the discovery mode, saving a profile, loading one. They run inside
// the page, so that a round costs one call and each click sends the page's current form.
import { setTimeout as sleep } from 'node:timers/promises';

const kAnswerMs = 15_000;
const kFileMs = 300;
const kFirstJobMs = 300;
const kLongestJobMs = 2_000;
const kMostActs = 3;

/**
 * Runs in the page. Clicks `button`, which starts a job, and performs each of `acts` at its time, one after the
 * other: {afterMs, act: 'discovery' | 'save' | 'load', name, key}. Once the job has ended and each act has its log
 * line, returns the page's state and the errors seen.
 */
async function roundInPage({ button, acts, answerMs }) {
  const find = (selector) => document.querySelector(selector);
  const pause = (ms) => new Promise((done) => { setTimeout(done, ms); });
  const received = [];
  const receive = ({ data }) => { received.push(data); };
  const lines = () => received.filter(({ t }) => t === 'log').map(({ msg }) => msg);
  const wrong = [];
  const until = async (what, probe) => {
    for (const end = performance.now() + answerMs; !probe(); await pause(2)) {
      if (performance.now() > end) return wrong.push(`not seen: ${what}`);
    }
    return 0;
  };
  const kinds = {
    discovery: { answer: /^局域网发现模式已(开启|关闭)：\S*支持/, run: () => find('#c-discovery').click() },
    save: { answer: /^档案已保存。$/, run: ({ name, key }) => {
      find('#c-pname').value = name;
      find('#c-secret').value = key;
      find('#c-save').click();
    } },
    load: { answer: /^已载入档案：/, run: ({ name }) => {
      find('#c-profiles').value = name;
      find('#c-profiles').dispatchEvent(new Event('change', { bubbles: true }));
    } },
  };
  const isOn = () => find('#c-discovery').hasAttribute('data-on');
  const isBusy = (status) => /^正在.*\.\.\.$/.test(status);
  const result = () => {
    const statuses = received.filter(({ t }) => t === 'state').map(({ statusline }) => statusline);
    const begun = statuses.findIndex(isBusy);
    return begun < 0 ? undefined : statuses.slice(begun).find((status) => !isBusy(status));
  };

  chrome.webview.addEventListener('message', receive);
  const started = performance.now();
  let tookMs = 0;
  // The switch as the page sends it counts. An older form may still be on its way to the page; one that follows the
  // answer must match.
  let sentOn = isOn();
  let answered = 0;
  const applied = () => received.slice(answered).filter(({ t }) => t === 'apply').at(-1)?.fields;
  find(button).click();
  const ended = until(`the end of ${button}`, () => result() !== undefined && lines().includes(result()))
    .then(() => { tookMs = performance.now() - started; });
  for (const act of acts) {
    await pause(started + act.afterMs - performance.now());
    const isListed = [...find('#c-profiles').options].some(({ value }) => value === act.name);
    if (act.act === 'load' && !isListed) {
      wrong.push(`the list has lost ${act.name}`);
      continue;
    }
    const { answer, run } = kinds[act.act];
    const earlier = received.length;
    run(act);
    act.isDone = true;
    sentOn = isOn();
    const isAnswer = ({ t, msg }, index) => index >= earlier && t === 'log' && answer.test(msg);
    await until(`the answer to ${act.act}`, () => received.some(isAnswer));
    answered = received.findIndex(isAnswer);
    if (act.act === 'save') await until('the form behind it', () => applied() !== undefined);
  }
  await ended;
  chrome.webview.removeEventListener('message', receive);
  const card = [...document.querySelectorAll('#s-cards > *')]
    .find((one) => one.querySelector('.k').textContent === '组网 IP');
  return {
    tookMs, acts, wrong, status: result(), state: find('#s-state').textContent,
    address: card.querySelector('.v').textContent, name: find('#c-pname').value, key: find('#c-secret').value,
    isDiscovering: sentOn, appliedDiscovery: applied()?.discovery ?? sentOn,
  };
}

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
    const seen = await page.evaluate(`(${roundInPage})(${JSON.stringify(plan)})`);
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
