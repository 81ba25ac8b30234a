// Keys that act inside a field, and the one that cycles through the parts of the window.
import { byId } from './dom.js';
import { send } from './form.js';
import { kTabs } from './layout.js';

const kEnterActions = { 'c-secret': 'connect', 'c-testip': 'test', 'c-pname': 'saveProfile' };

/** Enter triggers the field's action, unless an input method is composing a word. */
function onEnter(event) {
  if (event.key !== 'Enter' || event.isComposing || event.repeat) return;
  event.preventDefault();
  send(kEnterActions[event.target.id]);
}

/** The first element of each part of the window, in order: tabs, connection, form, log. */
function partStarts() {
  const offered = document.body.dataset.offer === 'stop' ? 'c-stop' : 'c-connect';
  return [...kTabs.filter(({ tabIndex }) => tabIndex === 0), ...[offered, 'c-secret', 'c-log', 'full-log'].map(byId)]
    .filter((element) => element.checkVisibility());
}

function onF6(event) {
  if (event.key !== 'F6') return;
  event.preventDefault();
  const isBehind = (element) =>
    (document.activeElement.compareDocumentPosition(element) & Node.DOCUMENT_POSITION_FOLLOWING) !== 0;
  const starts = partStarts();
  const next = event.shiftKey
    ? starts.findLast((element) => element !== document.activeElement && !isBehind(element)) ?? starts.at(-1)
    : starts.find((element) => element !== document.activeElement && isBehind(element)) ?? starts[0];
  next.focus();
}

export function watchKeys() {
  for (const id of Object.keys(kEnterActions)) byId(id).addEventListener('keydown', onEnter);
  document.addEventListener('keydown', onF6);
}
