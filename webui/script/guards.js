// Keeps away what a browser does by itself: a key, button or drop that reloads or leaves the page would lose the form
// and the log, and zooming without limits would make it unusable.
import { bridge } from './dom.js';
import { kLogs } from './log.js';

const kNarrowestPx = 640;  // of CSS; zoomed in further, a panel hardly fits into the window
const kSmallestScale = 0.805;  // 80 % is a trifle more than 0.8 in the browser's own arithmetic
const kZoomKeys = { '+': 1, '=': 1, '-': -1, _: -1 };
const kTextFields = 'input[type="text"], textarea';

const isInTextField = ({ target }) => target instanceof Element && target.closest(kTextFields) !== null;

/** The letter on a key, also under a keyboard layout of another alphabet. */
function letterOf({ key, code }) {
  return /^[a-z]$/i.test(key) ? key.toLowerCase() : code.replace(/^Key/, '').toLowerCase();
}

function isReloadKey(event) {
  if (['F5', 'BrowserRefresh'].includes(event.key)) return true;
  return event.ctrlKey && !event.altKey && letterOf(event) === 'r';
}

function isHistoryKey({ key, altKey }) {
  return ['BrowserBack', 'BrowserForward'].includes(key) || (altKey && ['ArrowLeft', 'ArrowRight'].includes(key));
}

/** Whether the page still holds one step larger (`direction` > 0) or smaller. */
function mayZoom(direction) {
  const { scale } = visualViewport;
  return direction > 0 ? innerWidth / scale > kNarrowestPx : devicePixelRatio * scale > kSmallestScale;
}

function isRefusedZoomKey({ key, ctrlKey }) {
  return ctrlKey && Object.hasOwn(kZoomKeys, key) && !mayZoom(kZoomKeys[key]);
}

function guardKey(event) {
  if (isReloadKey(event) || isHistoryKey(event) || isRefusedZoomKey(event)) event.preventDefault();
}

/** Two fingers on a touchpad arrive as the wheel with Ctrl. */
function guardWheel(event) {
  if (event.ctrlKey && event.deltaY !== 0 && !mayZoom(-event.deltaY)) event.preventDefault();
}

/** The fourth and fifth button lead back and forward. */
function guardButton(event) {
  if (event.button > 2) event.preventDefault();
}

/** A file or an address would take the place of the page; a text may go where texts are typed. */
function guardDrag(event) {
  const types = [...event.dataTransfer?.types ?? []];
  const isText = types.includes('text/plain') && !types.includes('Files') && !types.includes('text/uri-list');
  if (isText && isInTextField(event)) return;
  event.preventDefault();
  if (event.dataTransfer) event.dataTransfer.dropEffect = 'none';
}

function guardMenu(event) {
  if (!isInTextField(event)) event.preventDefault();
}

/** The log list that has the focus, or where the engineer has clicked or selected. */
function logInUse() {
  const focus = document.activeElement ?? document.body;
  const place = focus === document.body ? getSelection().anchorNode : focus;
  return kLogs.find((list) => list.contains(place));
}

/** Selecting the whole page is never wanted; selecting a log is, to copy it. */
function selectLog(event) {
  if (!event.ctrlKey || event.altKey || event.shiftKey || letterOf(event) !== 'a' || isInTextField(event)) return;
  event.preventDefault();
  const list = logInUse();
  if (list) getSelection().selectAllChildren(list);
}

const kGuards = {
  keydown: guardKey, wheel: guardWheel, mousedown: guardButton, mouseup: guardButton, auxclick: guardButton,
  dragover: guardDrag, drop: guardDrag, contextmenu: guardMenu,
};

/** A plain browser keeps its own keys. Not passive, because passive listeners cannot prevent anything. */
export function guardPage() {
  addEventListener('keydown', selectLog);
  if (!bridge) return;
  for (const [type, guard] of Object.entries(kGuards)) {
    addEventListener(type, guard, { capture: true, passive: false });
  }
}
