// Tabs, roles, and adjustments to the window's size.
import { byId, setAttribute } from './dom.js';
import { keepLogsAtEnd, kLogs } from './log.js';

const kRoles = ['client', 'edge'];
export let ROLE = document.body.dataset.role || 'client';
export const kTabs = ['t-work', 't-log'].map(byId);

export function showTab(isLog) {
  for (const tab of kTabs) {
    const isActive = (tab.id === 't-log') === isLog;
    tab.classList.toggle('active', isActive);
    tab.setAttribute('aria-selected', String(isActive));
    tab.tabIndex = isActive ? 0 : -1;
  }
  for (const role of kRoles) {
    const pane = byId('pane-' + role);
    if (pane) pane.hidden = isLog || ROLE !== role;
  }
  byId('pane-logfull').hidden = !isLog;
  keepLogsAtEnd();
  markScrollers();
}

/** Arrows, Home and End move between tabs, as in any tab list. */
export function moveTab(event) {
  const last = kTabs.length - 1;
  const at = kTabs.indexOf(event.target);
  const next = { ArrowRight: at === last ? 0 : at + 1, ArrowLeft: at === 0 ? last : at - 1, Home: 0, End: last };
  const to = next[event.key];
  if (to === undefined) return;
  event.preventDefault();
  showTab(kTabs[to].id === 't-log');
  kTabs[to].focus();
}

export function setRole(role) {
  if (!kRoles.includes(role)) return;
  ROLE = role;
  document.body.dataset.role = role;
  byId('t-work').textContent = role === 'edge' ? '接入' : '连接';
  byId('t-work').setAttribute('aria-controls', 'pane-' + role);
  showTab(false);
}

/** An overflowing area can be focused and scrolled by keyboard; one that does not overflow is no tab stop. */
export function markScrollers() {
  for (const box of document.querySelectorAll('aside, .statusline')) {
    setAttribute(box, 'tabindex', box.scrollHeight > box.clientHeight + 1 && box.clientHeight > 0 ? '0' : null);
  }
}

export function watchSizes() {
  const observer = new ResizeObserver(() => {
    keepLogsAtEnd();
    markScrollers();
  });
  for (const element of [document.body, ...kLogs]) observer.observe(element);
}
