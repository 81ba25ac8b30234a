// Runs inside the page: measures the contrast of every visible text.

/** Texts inside `box` below the contrast that WCAG AA requires: [{text, ratio, needed, colour, ground}]. */
export function findFaintTexts(box = 'body') {
  const parse = (colour) => {
    const [r, g, b, a = 1] = colour.match(/[\d.]+/g).map(Number);
    return { r, g, b, a };
  };
  const over = (top, below) => ({
    r: top.r * top.a + below.r * (1 - top.a), g: top.g * top.a + below.g * (1 - top.a),
    b: top.b * top.a + below.b * (1 - top.a), a: 1 });
  const luminance = ({ r, g, b }) => {
    const [x, y, z] = [r, g, b].map((v) => v / 255).map((v) => (v <= 0.03928 ? v / 12.92 : ((v + 0.055) / 1.055) ** 2.4));
    return 0.2126 * x + 0.7152 * y + 0.0722 * z;
  };
  const ratio = (one, other) => {
    const [low, high] = [luminance(one), luminance(other)].sort((a, b) => a - b);
    return (high + 0.05) / (low + 0.05);
  };

  /** Every colour that may be behind an element: a gradient has one for each of its stops. */
  function grounds(element) {
    const layers = [];
    for (let box = element; box; box = box.parentElement) {
      const { backgroundColor, backgroundImage, opacity } = getComputedStyle(box);
      if (opacity !== '1') throw new Error(`${box.tagName} has an opacity.`);
      // The arrow of a list is drawn beside its text, not behind it.
      const stops = box.matches('select') ? [] : backgroundImage.match(/rgba?\([^)]*\)/g) ?? [];
      if (stops.length > 0) layers.push(stops.map(parse));
      if (parse(backgroundColor).a > 0) layers.push([parse(backgroundColor)]);
      if (layers.at(-1)?.every(({ a }) => a === 1)) break;
    }
    return layers.reverse().reduce((below, tops) => tops.flatMap((top) => below.map((ground) => over(top, ground))),
      [{ r: 0, g: 0, b: 0, a: 1 }]);
  }

  const faint = [];
  function check(element, text, pseudo) {
    const style = getComputedStyle(element, pseudo);
    const size = parseFloat(style.fontSize);
    const needed = size >= 24 || (size >= 18.66 && Number(style.fontWeight) >= 700) ? 3 : 4.5;
    for (const ground of grounds(element)) {
      const found = ratio(parse(style.color), ground);
      if (found < needed) faint.push({ text, ratio: found, needed, colour: style.color, ground: JSON.stringify(ground) });
    }
  }

  const outer = document.querySelector(box);
  for (const element of [outer, ...outer.querySelectorAll('*')]) {
    if (!element.checkVisibility()) continue;
    const own = [...element.childNodes].filter(({ nodeType }) => nodeType === Node.TEXT_NODE).map(({ data }) => data.trim()).join('');
    if (own !== '' && !element.matches('script')) check(element, own.slice(0, 40), null);
    if (element.matches('input[type="text"]')) {
      check(element, `${element.id} value`, null);
      check(element, `${element.id} placeholder`, '::placeholder');
    }
    if (element.matches('select')) check(element, `${element.id} choice`, null);
  }
  return faint;
}
