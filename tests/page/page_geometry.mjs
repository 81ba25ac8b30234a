// Runs inside the page: finds cut text and overlapping boxes, and returns positions.

/** Text that cannot be seen, nor scrolled to. Empty if all is well. */
export function findCut() {
  const found = [];
  const name = (element) => `${element.tagName}#${element.id || element.className}`;
  const style = (element) => getComputedStyle(element);
  const scrolls = (box) => /auto|scroll/.test(style(box).overflowY) && style(box).display !== 'contents';
  const hides = (box) => /hidden|clip/.test(style(box).overflowY) || box === document.documentElement;

  // Words only: a space may hang over the end of its line, and a result may begin with a line break.
  function wordsOf(text) {
    const range = document.createRange();
    const boxes = [...text.data.matchAll(/\S+/g)].map(({ index, 0: word }) => {
      range.setStart(text, index);
      range.setEnd(text, index + word.length);
      return range.getBoundingClientRect();
    });
    const edge = (pick, name) => pick(...boxes.map((box) => box[name]));
    return { left: edge(Math.min, 'left'), right: edge(Math.max, 'right'), bottom: edge(Math.max, 'bottom') };
  }

  // A field scrolls with its caret; a list's choice has a tooltip and its options.
  // A folded text shows its count beside it and is whole in its card or the full log.
  const isField = (element) => element.matches('input, select, option, .folded .detail');
  for (const element of document.querySelectorAll('body *:not(option, script, .dot, .dot *)')) {
    if (!element.checkVisibility()) continue;
    if (!isField(element) && element.clientWidth > 0 && element.scrollWidth > element.clientWidth + 1) {
      found.push(`${name(element)} is too narrow: ${element.scrollWidth} in ${element.clientWidth}`);
    }
    if (element.matches('button') && element.scrollHeight > element.clientHeight + 1) {
      found.push(`${name(element)} is too low`);
    }
  }

  const texts = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
  for (let text = texts.nextNode(); text; text = texts.nextNode()) {
    if (text.data.trim() === '' || text.parentElement.closest('option, script, .folded .detail, #c-log .long') || !text.parentElement.checkVisibility()) continue;
    const inner = wordsOf(text);
    for (let box = text.parentElement; box; box = box.parentElement) {
      if (scrolls(box)) {
        const { left, right } = box.getBoundingClientRect();
        if (inner.left < left - 1 || inner.right > right + 1) found.push(`${name(text.parentElement)} leaves ${name(box)}`);
        break;
      }
      if (!hides(box)) continue;
      const outer = box.getBoundingClientRect();
      if (inner.bottom > outer.bottom + 1 || inner.right > outer.right + 1 || inner.left < outer.left - 1) {
        found.push(`${name(text.parentElement)} is cut by ${name(box)}`);
      }
    }
  }
  return found;
}

/** Pairs of siblings that overlap, anywhere. */
export function findOverlaps() {
  const found = [];
  const shown = (element) => element.checkVisibility() && element.getBoundingClientRect().height > 0;
  for (const parent of document.querySelectorAll('body, body *:not(select, svg, svg *, .dot)')) {
    const children = [...parent.children].filter((child) => !child.matches('script, option') && shown(child))
      .filter((child) => getComputedStyle(child).display !== 'contents');
    children.forEach((one, i) => children.slice(i + 1).forEach((other) => {
      const a = one.getBoundingClientRect();
      const b = other.getBoundingClientRect();
      const wide = Math.min(a.right, b.right) - Math.max(a.left, b.left);
      const high = Math.min(a.bottom, b.bottom) - Math.max(a.top, b.top);
      if (wide > 1 && high > 1) found.push(`${one.tagName}#${one.id || one.className} and ${other.tagName}#${other.id || other.className}`);
    }));
  }
  return found;
}

/** The position of each control and heading: {id: "x y width height"}. */
export function positions() {
  const elements = [...document.querySelectorAll('button, input, select, h2, #s-state, #s-cards, .dot')]
    .filter((element) => element.checkVisibility() && !element.matches('.copy'));
  return Object.fromEntries(elements.map((element) => {
    const { x, y, width, height } = element.getBoundingClientRect();
    // A word's width depends on the word; only its start counts.
    return [element.id || element.className, (element.matches('button, input, select, .dot') ? [x, y, width, height] : [x, y]).map((n) => Math.round(n * 10) / 10).join(' ')];
  }));
}
