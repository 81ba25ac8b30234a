// Applies the fields that the window sends.
import { asList, asText, byId, escapeHtml, isPresent } from './dom.js';
import { isChoosing, narrow } from './chooser.js';
import { noteLoaded, valueOf } from './form.js';
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

/** Sets a tooltip with the whole text, for a field too narrow for it. */
export function setHint(select) {
  const hint = select.multiple ? '' : select.value;
  if (select.title !== hint) select.title = hint;
}

const shownNames = new WeakMap();  // the names behind a select's options, as last set
const isSame = (names, others) => names.length === others?.length && names.every((name, i) => name === others[i]);

const optionMarkup = (name) => `<option value="${escapeHtml(name)}">${escapeHtml(name)}</option>`;

/** One option per name, or the placeholder. Options that are already there stay. Returns whether any changed. */
function setNames(select, names, none = '') {
  if (isSame(names, shownNames.get(select))) return false;
  shownNames.set(select, names);
  select.innerHTML = names.map(optionMarkup).join('') || none;
  return true;
}

/** A value that is not among the names selects the first one. */
function setOptions(id, given, selected) {
  const select = byId(id);
  if (!select) return;
  const names = asList(given).map(asText);
  setNames(select, names);
  if (!select.multiple) select.selectedIndex = Math.max(names.indexOf(selected), names.length ? 0 : -1);
  setHint(select);
}

/** Choosing loads a profile, so a profile that is not in use must not appear as chosen. */
function setProfiles(given, selected) {
  const list = byId('c-profiles');
  const names = asList(given).map(asText);
  const wanted = isChoosing() ? list.value : selected;
  const changed = setNames(list, names, '<option value="">（无）</option>');
  list.selectedIndex = names.length === 0 ? 0 : names.indexOf(wanted);
  setHint(list);
  if (changed) narrow();
}

export function setDiscovery(on) {
  discoveryOn = on;
  const button = byId('c-discovery');
  button.textContent = 'PLC发现模式：' + (on ? '开' : '关');
  button.toggleAttribute('data-on', on);
}

let isFocused = false;

/** Sets the initial focus: the key, or the connect button if the key is known. Once, and never while somebody works here. */
function focusFirst() {
  if (isFocused || document.activeElement !== document.body) return;
  byId(valueOf('c-secret') === '' ? 'c-secret' : 'c-connect').focus();
  isFocused = true;
}

function applyClient(fields) {
  setTyped('c-secret', fields.secret);
  setTyped('c-testip', fields.testip);
  setTyped('c-pname', fields.profileName);
  if (isPresent(fields.targets)) setTargets(fields.targets, fields.target);
  const discovery = fields.discovery === true;
  if (isPresent(fields.discovery) && mayApply('c-discovery', discoveryOn, discovery)) setDiscovery(discovery);
  if (isPresent(fields.profiles)) setProfiles(fields.profiles, fields.profileSel);
  noteLoaded(fields.profileSel);
  postTypedSoon();
  focusFirst();
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
