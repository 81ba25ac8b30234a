// Apply messages may come at any time and without it: one was under way, a job works on a copy of its own, the window
// drops an action while it is busy. They leave these fields alone until they agree.
import { byId } from './dom.js';
import { valueOf } from './form.js';
import { postTypedSoon } from './stand_in.js';

const kTyped = ['c-secret', 'c-testip', 'c-pname'];
export const edited = new Set();  // ids

function noteEdit(id) {
  edited.add(id);
  postTypedSoon();
}

export function watchEdits() {
  for (const id of kTyped) byId(id).addEventListener('input', () => noteEdit(id));
  byId('c-target').addEventListener('change', () => noteEdit('c-target'));
  byId('c-discovery').addEventListener('click', () => noteEdit('c-discovery'));
}

/** The window now knows the target, shows the profile that it loads, and names a site that has no name. */
export function noteSent(what) {
  edited.delete('c-target');
  if (what === 'loadProfile') kTyped.forEach((id) => edited.delete(id));
  if (valueOf('c-pname').trim() === '') edited.delete('c-pname');
}

/** Whether an apply may set the field; one that agrees changes nothing, not even the blanks around a text. */
export function mayApply(id, shown, applied) {
  if (shown === applied) edited.delete(id);
  return shown !== applied && !edited.has(id);
}
