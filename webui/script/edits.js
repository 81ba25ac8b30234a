// The fields that the engineer has edited. An apply message may lack the edit: it was sent before, a job works on its own
// copy, or the busy window dropped the action. Such messages leave these fields alone until they agree.
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

/** Called when an action is posted: the window then knows the target, shows the profile it loads, and names a nameless site. */
export function noteSent(what) {
  edited.delete('c-target');
  if (what === 'loadProfile') kTyped.forEach((id) => edited.delete(id));
  if (valueOf('c-pname').trim() === '') edited.delete('c-pname');
}

/** Whether an apply may set the field. One that agrees with it counts as the end of the edit and changes nothing. */
export function mayApply(id, shown, applied) {
  if (shown === applied) edited.delete(id);
  return shown !== applied && !edited.has(id);
}
