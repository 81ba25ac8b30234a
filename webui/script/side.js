// Shows the state: texts, cards, status line.
import { asClass, asList, asText, byId, escapeHtml, isPresent, setText } from './dom.js';
import { notePhase } from './phase_view.js';
import { markScrollers, ROLE, setRole } from './layout.js';

function renderCards(cards) {
  const markup = asList(cards).map((card) => card ?? {}).map(({ k, v, cls }) =>
    `<li><span class="k">${escapeHtml(k)}</span>` +
    `<span class="v ${asClass(cls)}">${escapeHtml(v)}</span></li>`).join('');
  if (markup === renderCards.shown) return;
  renderCards.shown = markup;
  byId('s-cards').innerHTML = markup;
}

export function renderState(message) {
  if (message.role && message.role !== ROLE) setRole(message.role);
  const side = message.side || {};
  for (const name of ['logo', 'sub', 'state', 'detail']) setText('s-' + name, side[name]);
  byId('s-status').className = 'status ' + (side.on === true ? 'on' : side.err === true ? 'err' : '');
  byId('s-foot').textContent = asText(side.foot || '');
  if (isPresent(side.cards)) renderCards(side.cards);
  setText('c-statusline', message.statusline);
  setText('e-statusline', message.statusline);
  notePhase(message);
  markScrollers();
}
