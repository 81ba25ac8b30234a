// Suppresses the browser's own gestures: a key, button or drop that reloads or leaves the page would lose the form
// and the log, and unlimited zoom would make the page unusable.
import { bridge } from './dom.js';
import { kLogs } from './log.js';

const kNarrowestPx = 640;  // CSS pixels; below that a panel hardly fits into the window
const kSmallestScale = 0.805;  // in the browser's arithmetic, 80 % is slightly more than 0.8
const kZoomKeys = { '+': 1, '=': 1, '-': -1, _: -1 };
const kTextFields = 'input[type="text"], textarea';

const isInTextField = ({ target }) => target instanceof Element && target.closest(kTextFields) !== null;

/** The letter on a key, also with a keyboard layout of another alphabet. */
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

/** Whether the page still fits one zoom step larger (`direction` > 0) or smaller. */
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

/** Pinching on a touchpad arrives as Ctrl and the wheel. */
function guardWheel(event) {
  if (event.ctrlKey && event.deltaY !== 0 && !mayZoom(-event.deltaY)) event.preventDefault();
}

/** The fourth and fifth mouse button navigate back and forward. */
function guardButton(event) {
  if (event.button > 2) event.preventDefault();
}

/** A dropped file or address would replace the page; text may be dropped into text fields. */
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

/** The log list with the focus, or the one that the engineer clicked or selected in. */
function logInUse() {
  const focus = document.activeElement ?? document.body;
  const place = focus === document.body ? getSelection().anchorNode : focus;
  return kLogs.find((list) => list.contains(place));
}

/** Never selects the whole page; selects a whole log, to be copied. */
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

/** In a plain browser its own keys work. Not passive, because passive listeners cannot prevent the default. */
export function guardPage() {
  addEventListener('keydown', selectLog);
  if (!bridge) return;
  for (const [type, guard] of Object.entries(kGuards)) {
    addEventListener(type, guard, { capture: true, passive: false });
  }
}
