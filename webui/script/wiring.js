// Which control does what.
import { byId } from './dom.js';
import { send } from './form.js';
import { watchEdits } from './edits.js';
import { discoveryOn, setDiscovery, setHint } from './fields.js';
import { kLogs, noteScroll } from './log.js';
import { kTabs, moveTab, showTab } from './layout.js';

export function wire() {
  const actions = {
    'c-connect': 'connect', 'c-stop': 'stop', 'c-test': 'test', 'c-desktop': 'desktop',
    'c-fetch': 'secondary', 'c-save': 'saveProfile',
  };
  for (const [id, action] of Object.entries(actions)) byId(id).onclick = () => send(action);
  byId('c-profiles').onchange = () => send('loadProfile');
  byId('c-discovery').onclick = () => {
    setDiscovery(!discoveryOn);
    send('discovery');
  };
  watchEdits();
  for (const select of document.querySelectorAll('select')) select.addEventListener('change', () => setHint(select));
  for (const list of kLogs) list.onscroll = noteScroll;
  for (const tab of kTabs) {
    tab.onclick = () => showTab(tab.id === 't-log');
    tab.onkeydown = moveTab;
  }
}
