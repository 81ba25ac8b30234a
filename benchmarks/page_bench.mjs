// Measures the page in a real Chromium: a burst of log lines, a huge line, an apply that changes nothing. Prints JSON as
// Google Benchmark does.
//
// The burst's lines arrive from another thread, one message each, as WebView2 delivers them. The anchor is the minimum such a page
// can do in the same Chromium, measured in turns with ours: two lists that append each line as bare text and keep 500,
// without scrolling, classes or times.
import { BrowserPage, closeBrowser, openBrowser } from '../tests/page/browser_page.mjs';
import { kLargeApply, measureHugeLine, measureSameApply } from '../tests/page/page_costs.mjs';
import { median } from './medians.mjs';

const kLines = 10_000;
const kRounds = 7;
const kLimitMs = 120_000;

/** Runs in the page: fills the anchor's lists. */
function installBareLists() {
  document.body.innerHTML = '<div class="log"></div><div class="log" hidden></div>';
  window.deliver = (text) => {
    const { msg } = JSON.parse(text);
    for (const list of document.body.children) {
      const line = document.createElement('div');
      line.textContent = msg;
      list.append(line);
      if (list.childElementCount > 500) list.firstElementChild.remove();
    }
  };
}

/** Runs in the page. Returns {lineUs, frameMs} of one burst, up to the frame that shows its last line. */
function measureBurst(count) {
  const source = `onmessage = ({ data: count }) => {
    for (let i = 0; i < count; i += 1) {
      postMessage(JSON.stringify({ t: 'log', ts: '02:14:07', msg: '第' + i + '行：小数据包经 UDP 传输。', cls: i % 3 ? '' : 'ok' }));
    }
  };`;
  const worker = new Worker(URL.createObjectURL(new Blob([source])));
  return new Promise((resolve) => {
    let taken = 0;
    let begin = 0;
    let lastFrame = 0;
    let frameMs = 0;
    const onFrame = (now) => {
      if (lastFrame) frameMs = Math.max(frameMs, now - lastFrame);
      lastFrame = now;
      if (taken < count) return requestAnimationFrame(onFrame);
      worker.terminate();
      return resolve({ lineUs: ((performance.now() - begin) * 1000) / count, frameMs });
    };
    worker.onmessage = ({ data }) => {
      begin ||= performance.now();
      taken += 1;
      window.deliver(data);
    };
    requestAnimationFrame((now) => { lastFrame = now; requestAnimationFrame(onFrame); worker.postMessage(count); });
  });
}

async function burst(isAnchor) {
  const page = await BrowserPage.open();
  if (isAnchor) await page.view.evaluate(installBareLists);
  const figures = await page.view.evaluate(measureBurst, kLines);
  if (!isAnchor) await assertKept(page);
  await page.close();
  return figures;
}

/** Fails if the page lost lines: its speed would be meaningless. */
async function assertKept(page) {
  for (const id of ['c-log', 'full-log']) {
    const lines = await page.log(id);
    if (lines.length !== 500 || !lines[0][1].startsWith('第9500行') || !lines[499][1].startsWith('第9999行')) {
      throw new Error(`${id} holds ${lines.length} lines, from ${lines[0]} to ${lines.at(-1)}`);
    }
  }
}

async function messages() {
  const page = await BrowserPage.open();
  await page.deliver(kLargeApply);
  const figures = { HugeLine: await page.view.evaluate(measureHugeLine, '连接授权成功：'),
    SameApply: await page.view.evaluate(measureSameApply, kLargeApply) };
  await page.close();
  return figures;
}


const kSizes = { LogLine: kLines, LongestFrame: kLines, HugeLine: 1_000_000, SameApply: 1000 };
const rounds = { LogLine: [], LogLine_Anchor: [], LongestFrame: [], LongestFrame_Anchor: [], HugeLine: [], SameApply: [] };
const timer = setTimeout(() => { throw new Error(`No end in ${kLimitMs / 1000} s.`); }, kLimitMs);
await openBrowser();
try {
  for (let i = 0; i < kRounds; i += 1) {
    for (const suffix of ['', '_Anchor']) {
      const { lineUs, frameMs } = await burst(suffix !== '');
      rounds[`LogLine${suffix}`].push(lineUs);
      rounds[`LongestFrame${suffix}`].push(frameMs);
    }
    for (const [name, ms] of Object.entries(await messages())) rounds[name].push(ms);
  }
} finally {
  await closeBrowser();
  clearTimeout(timer);
}
console.log(JSON.stringify({ benchmarks: Object.entries(rounds).map(([name, values]) => ({
  run_name: `Page${name}/${kSizes[name.replace('_Anchor', '')]}`,
  aggregate_name: 'median', real_time: median(values), time_unit: name.startsWith('LogLine') ? 'us' : 'ms' })) }));
