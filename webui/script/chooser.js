// The choice of a site. Arrow keys move over the sites; only one that stays chosen is loaded. A field above a long list
// filters it.
import { byId, setText } from './dom.js';
import { send } from './form.js';

const kRestMs = 400;
const kManySites = 12;  // more than a list shows at a glance
const kOpeningKeys = [' ', 'F4'];
const choice = { byKey: false, timer: 0 };

const chooser = () => byId('c-profiles');
export const isChoosing = () => choice.timer !== 0;

function loadChosen() {
  clearTimeout(choice.timer);
  choice.timer = 0;
  send('loadProfile');
}

/** Loads a pending choice at once: the next action is meant for it. */
export function flushChoice() {
  if (isChoosing()) loadChosen();
}

function onChange() {
  clearTimeout(choice.timer);
  if (choice.byKey) choice.timer = setTimeout(loadChosen, kRestMs);
  else loadChosen();
}

/** Enter loads the site, as in a form. In an open list it only selects, and no event arrives here. */
function onKey(event) {
  choice.byKey = !event.altKey && !kOpeningKeys.includes(event.key);
  if (event.key !== 'Enter' || event.repeat) return;
  event.preventDefault();
  send('connect');
}

// ---- many sites

const matches = (option) => option.text.toLocaleLowerCase().includes(byId('c-filter').value.trim().toLocaleLowerCase());

/** Shows the sites whose names contain the filter text; all of them stay in the list. */
export function narrow() {
  const options = [...chooser().options];
  const filter = byId('c-filter');
  filter.hidden = options.length <= kManySites;
  if (filter.hidden) filter.value = '';
  let shown = 0;
  for (const option of options) {
    option.hidden = !matches(option);
    if (!option.hidden) shown += 1;
  }
  setText('c-found', filter.hidden ? '' : `${shown} / ${options.length}`);
}

function takeFirst() {
  const first = [...chooser().options].find((option) => !option.hidden);
  if (!first) return;
  chooser().value = first.value;
  choice.byKey = false;
  onChange();
  byId('c-connect').focus();
}

function onFilterKey(event) {
  if (event.isComposing) return;
  const acts = {
    Enter: takeFirst,
    ArrowDown: () => chooser().focus(),
    Escape: () => { byId('c-filter').value = ''; narrow(); },
  };
  if (!Object.hasOwn(acts, event.key)) return;
  event.preventDefault();
  acts[event.key]();
}

export function watchChooser() {
  const list = chooser();
  list.addEventListener('pointerdown', () => { choice.byKey = false; });
  list.addEventListener('keydown', onKey);
  list.addEventListener('blur', flushChoice);
  list.onchange = onChange;
  byId('c-filter').addEventListener('input', narrow);
  byId('c-filter').addEventListener('keydown', onFilterKey);
}
