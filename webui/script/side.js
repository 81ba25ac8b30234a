// Shows the state: texts, cards, status line.
import { renderCards } from './cards.js';
import { asText, byId, isPresent, setText } from './dom.js';
import { notePhase } from './phase_view.js';
import { markScrollers, ROLE, setRole } from './layout.js';

const kFoldedFrom = 2;  // from this number on, networks are counted instead of listed

/** The networks in a text, one per line or separated. */
const networksIn = (detail) => detail.match(/\d+\.\d+\.\d+\.\d+\/\d+(?: -> \S+ [\d./]+)?/g) ?? [];

/** Folds a long list visually; the text itself stays whole. */
function foldDetail() {
  const detail = byId('s-detail');
  const { length } = networksIn(detail.textContent);
  detail.parentElement.classList.toggle('folded', length >= kFoldedFrom);
  setText('s-routes', length >= kFoldedFrom ? `共 ${length} 个网段` : '');
}

export function renderState(message) {
  if (message.role && message.role !== ROLE) setRole(message.role);
  const side = message.side || {};
  for (const name of ['logo', 'sub', 'state', 'detail']) setText('s-' + name, side[name]);
  foldDetail();
  byId('s-status').className = 'status ' + (side.on === true ? 'on' : side.err === true ? 'err' : '');
  byId('s-foot').textContent = asText(side.foot || '');
  if (isPresent(side.cards)) renderCards(side.cards);
  setText('c-statusline', message.statusline);
  notePhase(message);
  markScrollers();
}
