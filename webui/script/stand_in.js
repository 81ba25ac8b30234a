// The browser may die under the page. The window keeps what is typed here and sends it to the next page.
import { asText, bridge, byId, isPresent } from './dom.js';
import { collectFields } from './form.js';
import { edited } from './edits.js';
import { setDiscovery, setHint } from './fields.js';

const kFormKeys = {
  'c-secret': 'secret', 'c-target': 'target', 'c-testip': 'testip', 'c-pname': 'profileName', 'c-discovery': 'discovery',
};
const kTypedMs = 150;  // typing within this time may be lost
const typed = { posted: typedText({}), timer: 0 };

function typedText(f) {
  return JSON.stringify({ action: 'typed', f });
}

function postTyped() {
  typed.timer = 0;
  const fields = collectFields();
  const text = typedText(Object.fromEntries([...edited].map((id) => [kFormKeys[id], fields[kFormKeys[id]]])));
  if (text === typed.posted) return;
  typed.posted = text;
  bridge.postMessage(text);
}

export function postTypedSoon() {
  if (bridge && !typed.timer) typed.timer = setTimeout(postTyped, kTypedMs);
}

/** Restores what was typed into the previous page, marked as typed here, so applies leave it alone. */
function restoreField(id, value) {
  if (id === 'c-target' && ![...byId(id).options].some((option) => option.value === value)) return;
  if (id === 'c-discovery') setDiscovery(value === true);
  else byId(id).value = asText(value);
  edited.add(id);
}

export function restoreForm(fields) {
  for (const [id, key] of Object.entries(kFormKeys)) {
    if (isPresent(fields[key])) restoreField(id, fields[key]);
  }
  setHint(byId('c-target'));
  postTypedSoon();
}
