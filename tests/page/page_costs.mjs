// Run inside the page: the cost of a message in milliseconds, as the median of several.

/** A status and a log line of a million characters, made of `part`: taken in and laid out. */
export function measureHugeLine(part) {
  const took = Array.from({ length: 9 }, (_, i) => {
    const msg = part.repeat(Math.ceil(1_000_000 / part.length)) + i;
    const texts = [{ t: 'state', side: {}, statusline: msg }, { t: 'log', ts: '02:14:31', msg, cls: 'er' }].map(JSON.stringify);
    const from = performance.now();
    texts.forEach((text) => window.deliver(text));
    document.getElementById('c-log').getBoundingClientRect();
    return performance.now() - from;
  });
  return took.toSorted((a, b) => a - b)[4];
}

/** An apply that equals the form's contents. */
export function measureSameApply(message) {
  const text = JSON.stringify(message);
  const took = Array.from({ length: 51 }, () => {
    const from = performance.now();
    window.deliver(text);
    return performance.now() - from;
  });
  return took.toSorted((a, b) => a - b)[25];
}

/** The largest apply that we expect: a thousand sites, two hundred networks. */
export const kLargeApply = { t: 'apply', role: 'client', fields: {
  secret: 'KEY', testip: '10.20.0.9', profileName: '站 0', target: '自动', discovery: false, profileSel: '站 0',
  targets: ['自动', ...Array.from({ length: 200 }, (_, i) => `10.${i}.0.0/16`)],
  profiles: Array.from({ length: 1000 }, (_, i) => `站 ${i}`) } };
