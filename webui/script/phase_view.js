// Shows the connection's state: as attributes of the body, which the style sheet uses, and on single elements.
import { byId, setAttribute, setText } from './dom.js';
import { kJobButtons, kTones, nextChangeMs, seeMessage, startOfConnection, viewOf } from './phase.js';

let connection = startOfConnection();
let phaseTimer = 0;

/** Appearance only: every click is posted, and the window drops what it cannot take now. */
function showJob({ job, waiting }) {
  document.body.toggleAttribute('data-job', job !== null);
  for (const id of kJobButtons) {
    const isWaiting = waiting.includes(id);
    setAttribute(byId(id), 'aria-busy', id === job ? 'true' : null);
    setAttribute(byId(id), 'data-waiting', isWaiting ? '' : null);
    setAttribute(byId(id), 'aria-disabled', isWaiting ? 'true' : null);
  }
}

function showTone(shown) {
  for (const bar of document.querySelectorAll('.statusbar')) {
    for (const tone of kTones) bar.classList.toggle(tone, tone === shown);
  }
}

let shownReason = '';

/** A failure's last line explains it and names the cure; the lines before may be long. */
function showReason(tone) {
  const line = byId('c-statusline');
  const reason = tone + line.textContent;
  if (reason === shownReason) return;
  shownReason = reason;
  line.scrollTop = tone === 'er' ? line.scrollHeight : 0;
}

function showPhase() {
  const nowMs = performance.now();
  const view = viewOf(connection, nowMs);
  document.body.dataset.phase = view.phase;
  document.body.dataset.offer = view.offer;
  document.body.toggleAttribute('data-resting', view.resting);
  setText('s-tag', view.tag);
  showJob(view);
  showTone(view.tone);
  showReason(view.tone);

  clearTimeout(phaseTimer);
  const waitMs = nextChangeMs(connection, nowMs);
  if (waitMs !== null) phaseTimer = setTimeout(showPhase, waitMs);
}

/** Takes a state, log or logs message as the window sent it. */
export function notePhase(message) {
  const next = seeMessage(connection, message, performance.now(), new Date().toTimeString().slice(0, 8));
  if (next === connection) return;
  connection = next;
  showPhase();
}

showPhase();  // before the first message
