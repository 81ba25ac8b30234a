// Passes each message from the window to the script that shows it.
import { renderState } from './side.js';
import { restoreForm } from './stand_in.js';
import { applyFields } from './fields.js';
import { appendLog, replaceLog } from './log.js';
import { ROLE, setRole } from './layout.js';

/** Returns nothing for an unreadable message: no message may stop the page. */
function parseMessage(data) {
  try {
    const message = typeof data === 'string' ? JSON.parse(data) : data;
    return message ?? {};
  } catch {
    return {};
  }
}

function dispatch(message) {
  switch (message.t) {
    case 'init': setRole(message.role || ROLE); break;
    case 'state': renderState(message); break;
    case 'apply': applyFields(message); break;
    case 'log': appendLog(message.ts, message.msg, message.cls); break;
    case 'form': restoreForm(message.fields ?? {}); break;
    case 'logs': replaceLog(message.lines); break;
    default: break;
  }
}

/** An error in one message is reported like any other and does not stop the next one. */
export function receive(data) {
  try {
    dispatch(parseMessage(data));
  } catch (error) {
    reportError(error);
  }
}
