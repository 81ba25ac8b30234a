// Applies the fields that the window sends.
import { asList, asText, byId, escapeHtml, isPresent } from './dom.js';
import { valueOf } from './form.js';
import { edited, mayApply } from './edits.js';
import { postTypedSoon } from './stand_in.js';
import { ROLE } from './layout.js';

export let discoveryOn = false;

function setValue(id, value) {
  if (isPresent(value) && byId(id)) byId(id).value = asText(value);
}

function setTyped(id, value) {
  if (isPresent(value) && mayApply(id, valueOf(id).trim(), asText(value).trim())) setValue(id, value);
}

function setTargets(names, selected) {
  const chosen = valueOf('c-target');
  if (!asList(names).includes(chosen)) edited.delete('c-target');
  setOptions('c-target', names, edited.has('c-target') ? chosen : selected);
}

/** What a narrow field cannot show in full. */
export function setHint(select) {
  select.title = select.multiple ? '' : select.value;
}

/** One option per name; what is not among them leaves the first one selected. */
function setOptions(id, names, selected) {
  const select = byId(id);
  if (!select) return;
  select.innerHTML = asList(names).map((name) =>
    `<option value="${escapeHtml(name)}">${escapeHtml(name)}</option>`).join('');
  if (asList(names).includes(selected)) select.value = selected;
  setHint(select);
}

function setProfiles(names, selected) {
  if (asList(names).length === 0) {
    byId('c-profiles').innerHTML = '<option value="">（无）</option>';
    setHint(byId('c-profiles'));
    return;
  }
  setOptions('c-profiles', names, selected);
  // Choosing is what loads a profile, so one that is not in use must not stand there as chosen.
  if (!names.includes(selected)) byId('c-profiles').selectedIndex = -1;
  setHint(byId('c-profiles'));
}

export function setDiscovery(on) {
  discoveryOn = on;
  const button = byId('c-discovery');
  button.textContent = 'PLC发现模式：' + (on ? '开' : '关');
  button.toggleAttribute('data-on', on);
}

function applyClient(fields) {
  setTyped('c-secret', fields.secret);
  setTyped('c-testip', fields.testip);
  setTyped('c-pname', fields.profileName);
  if (isPresent(fields.targets)) setTargets(fields.targets, fields.target);
  const discovery = fields.discovery === true;
  if (isPresent(fields.discovery) && mayApply('c-discovery', discoveryOn, discovery)) setDiscovery(discovery);
  if (isPresent(fields.profiles)) setProfiles(fields.profiles, fields.profileSel);
  postTypedSoon();
}

function applyEdge(fields) {
  setValue('e-devname', fields.devname);
  setValue('e-manual', fields.manual);
  if (isPresent(fields.nics)) setOptions('e-nic', fields.nics, fields.nicSel);
  if (isPresent(fields.shared)) setOptions('e-shared', fields.shared);
  if (isPresent(fields.autostart) && byId('e-autostart')) {
    byId('e-autostart').checked = fields.autostart === true;
  }
}

export function applyFields(message) {
  const fields = message.fields || {};
  if ((message.role || ROLE) === 'edge') applyEdge(fields);
  else applyClient(fields);
}
