// The cards: facts about the site; one click copies a value.
import { asClass, asList, byId, escapeHtml } from './dom.js';

const kDoneMs = 1500;

function cardMarkup({ k, v, cls }) {
  const copy = cls === 'off' ? '' :
    `<button type="button" class="copy" aria-label="复制 ${escapeHtml(k)}" title="复制"></button>`;
  return `<li><span class="k">${escapeHtml(k)}</span><span class="v ${asClass(cls)}">${escapeHtml(v)}</span>${copy}</li>`;
}

export function renderCards(cards) {
  const markup = asList(cards).map((card) => cardMarkup(card ?? {})).join('');
  if (markup === renderCards.shown) return;
  renderCards.shown = markup;
  byId('s-cards').innerHTML = markup;
}

/** Uses the copy event: a page without an origin has no access to the clipboard API. */
function copyText(text) {
  const give = (event) => {
    event.clipboardData.setData('text/plain', text);
    event.preventDefault();
  };
  document.addEventListener('copy', give, { once: true });
  const done = document.execCommand('copy');
  document.removeEventListener('copy', give);
  return done;
}

/** Does not copy while the engineer selects part of a value by hand. */
function onCardClick({ target }) {
  const card = target.closest('.v:not(.off), .copy')?.closest('li');
  if (!card || !getSelection().isCollapsed) return;
  const button = card.querySelector('.copy');
  if (!copyText(card.querySelector('.v').textContent)) return;
  button.dataset.done = '';
  button.title = '已复制';
  setTimeout(() => { delete button.dataset.done; button.title = '复制'; }, kDoneMs);
}

export function watchCards() {
  byId('s-cards').addEventListener('click', onCardClick);
}
