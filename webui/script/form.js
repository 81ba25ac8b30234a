// Posts an action with the form's contents to the window.
import { bridge, byId } from './dom.js';
import { noteSent } from './edits.js';
import { postTypedSoon } from './stand_in.js';
import { discoveryOn } from './fields.js';
import { flushChoice } from './chooser.js';

export const valueOf = (id) => (byId(id) ? byId(id).value : '');
const isChecked = (id) => (byId(id) ? byId(id).checked : false);
const selectedOf = (id) =>
  (byId(id) ? Array.from(byId(id).selectedOptions, (option) => option.value) : []);

export function collectFields() {
  return {
    secret: valueOf('c-secret'), target: valueOf('c-target'), testip: valueOf('c-testip'),
    profileName: valueOf('c-pname'), profileSel: valueOf('c-profiles'), discovery: discoveryOn,
    devname: valueOf('e-devname'), nicSel: valueOf('e-nic'), sharedSel: selectedOf('e-shared'),
    manual: valueOf('e-manual'), autostart: isChecked('e-autostart'),
  };
}

function post(action, extra) {
  const text = JSON.stringify(Object.assign({ action, f: collectFields() }, extra));
  if (bridge) bridge.postMessage(text);
  else console.log(text);
  noteSent(action);
  postTypedSoon();
}

// After a profile was requested, the form still shows the old site: an action posted now would carry the old key
// under the new name. So actions wait for the profile's fields, or until these are overdue.
const kLoadMs = 1000;
const load = { profile: '', behind: null, timer: 0 };

function postHeld() {
  clearTimeout(load.timer);
  const behind = load.behind ?? [];
  load.behind = null;
  for (const [action, extra] of behind) send(action, extra);
}

/** Called when the fields of `profile` are in the form. */
export function noteLoaded(profile) {
  if (load.behind && profile === load.profile) postHeld();
}

export function send(action, extra) {
  if (action !== 'loadProfile') flushChoice();
  if (load.behind) {
    load.behind.push([action, extra]);
    return;
  }
  post(action, extra);
  if (action !== 'loadProfile' || !bridge) return;
  Object.assign(load, { profile: valueOf('c-profiles'), behind: [], timer: setTimeout(postHeld, kLoadMs) });
}
