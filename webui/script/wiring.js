// Connects each control with its action.
import { byId } from './dom.js';
import { send } from './form.js';
import { watchEdits } from './edits.js';
import { discoveryOn, setDiscovery, setHint } from './fields.js';
import { watchChooser } from './chooser.js';
import { watchCards } from './cards.js';
import { watchKeys } from './keys.js';
import { kLogs, noteScroll, toggleLong } from './log.js';
import { kTabs, moveTab, showTab } from './layout.js';

export function wire() {
  const actions = {
    'c-connect': 'connect', 'c-stop': 'stop', 'c-test': 'test', 'c-desktop': 'desktop',
    'c-fetch': 'secondary', 'c-save': 'saveProfile',
  };
  for (const [id, action] of Object.entries(actions)) byId(id).onclick = () => send(action);
  watchChooser();
  watchCards();
  byId('c-discovery').onclick = () => {
    setDiscovery(!discoveryOn);
    send('discovery');
  };
  watchKeys();
  watchEdits();
  for (const select of document.querySelectorAll('select')) select.addEventListener('change', () => setHint(select));
  for (const list of kLogs) list.onscroll = noteScroll;
  kLogs[0].addEventListener('click', toggleLong);
  for (const tab of kTabs) {
    tab.onclick = () => showTab(tab.id === 't-log');
    tab.onkeydown = moveTab;
  }
}
