// To the window: an action with the form as it stands.
import { bridge, byId } from './dom.js';
import { noteSent } from './edits.js';
import { postTypedSoon } from './stand_in.js';
import { discoveryOn } from './fields.js';

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

export function send(action, extra) {
  const text = JSON.stringify(Object.assign({ action, f: collectFields() }, extra));
  if (bridge) bridge.postMessage(text);
  else console.log(text);
  noteSent(action);
  postTypedSoon();
}
