// One round of an engineer's acts, run inside the page: a round then costs one call, and each click sends the page's
// current form. The functions below are sent to the page as text, so they use nothing from outside.

/** Records the window's messages until stop(). Errors seen by until() are in `wrong`. */
function recordMessages(answerMs) {
  const received = [];
  const wrong = [];
  const receive = ({ data }) => { received.push(data); };
  const pause = (ms) => new Promise((done) => { setTimeout(done, ms); });
  const isBusy = (status) => /^正在.*\.\.\.$/.test(status);
  chrome.webview.addEventListener('message', receive);
  return {
    received, wrong, pause,
    lines: () => received.filter(({ t }) => t === 'log').map(({ msg }) => msg),
    /** The status line after the job, once it has ended. */
    result() {
      const statuses = received.filter(({ t }) => t === 'state').map(({ statusline }) => statusline);
      const begun = statuses.findIndex(isBusy);
      return begun < 0 ? undefined : statuses.slice(begun).find((status) => !isBusy(status));
    },
    async until(what, probe) {
      for (const end = performance.now() + answerMs; !probe(); await pause(2)) {
        if (performance.now() > end) return wrong.push(`not seen: ${what}`);
      }
      return 0;
    },
    stop: () => chrome.webview.removeEventListener('message', receive),
  };
}

/** The kinds of acts, each with the log line that answers it. */
function kindsOfActs() {
  const find = (selector) => document.querySelector(selector);
  return {
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
}

/** Performs `acts` at their times and waits for the answer to each. Returns the switch as sent and as last applied. */
async function performActs(acts, record, started) {
  const { received, until } = record;
  const kinds = kindsOfActs();
  const isOn = () => document.querySelector('#c-discovery').hasAttribute('data-on');
  // The switch as the page sends it counts. An older form may still be on its way to the page; one that follows the
  // answer must match.
  let sentOn = isOn();
  let answered = 0;
  const applied = () => received.slice(answered).filter(({ t }) => t === 'apply').at(-1)?.fields;
  for (const act of acts) {
    await record.pause(started + act.afterMs - performance.now());
    const isListed = [...document.querySelector('#c-profiles').options].some(({ value }) => value === act.name);
    if (act.act === 'load' && !isListed) {
      record.wrong.push(`the list has lost ${act.name}`);
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
  return { sentOn, appliedOn: () => applied()?.discovery ?? sentOn };
}

async function roundInPage({ button, acts, answerMs }) {
  const find = (selector) => document.querySelector(selector);
  const record = recordMessages(answerMs);
  const started = performance.now();
  let tookMs = 0;
  find(button).click();
  const ended = record.until(`the end of ${button}`,
    () => record.result() !== undefined && record.lines().includes(record.result()))
    .then(() => { tookMs = performance.now() - started; });
  const { sentOn, appliedOn } = await performActs(acts, record, started);
  await ended;
  record.stop();
  const card = [...document.querySelectorAll('#s-cards > *')]
    .find((one) => one.querySelector('.k').textContent === '组网 IP');
  return {
    tookMs, acts, wrong: record.wrong, status: record.result(), state: find('#s-state').textContent,
    address: card.querySelector('.v').textContent, name: find('#c-pname').value, key: find('#c-secret').value,
    isDiscovering: sentOn, appliedDiscovery: appliedOn(),
  };
}

/**
 * The expression that runs `plan` in the page. Clicks `button`, which starts a job, and performs each of `acts` at its
 * time, one after the other: {afterMs, act: 'discovery' | 'save' | 'load', name, key}. Once the job has ended and each
 * act has its log line, returns the page's state and the errors seen.
 */
export const roundExpression = (plan) =>
  `(() => { ${[recordMessages, kindsOfActs, performActs, roundInPage].join('\n')}
  return roundInPage(${JSON.stringify(plan)}); })()`;
