// From the window: each message to the script that shows it.
import { renderState } from './side.js';
import { restoreForm } from './stand_in.js';
import { applyFields } from './fields.js';
import { appendLog, replaceLog } from './log.js';
import { ROLE, setRole } from './layout.js';

/** What cannot be read is nothing: a message must not be able to stop the page. */
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

/** An error in one message is reported, as any in the page, and does not keep the next one away. */
export function receive(data) {
  try {
    dispatch(parseMessage(data));
  } catch (error) {
    reportError(error);
  }
}
