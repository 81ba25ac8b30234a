// Translates Windows virtual keys for the browser.

const kNames = new Map([
  [0x08, 'Backspace'], [0x09, 'Tab'], [0x0d, 'Enter'], [0x10, 'Shift'], [0x11, 'Control'],
  [0x12, 'Alt'], [0x1b, 'Escape'], [0x20, ' '], [0x21, 'PageUp'], [0x22, 'PageDown'], [0x23, 'End'],
  [0x24, 'Home'], [0x25, 'ArrowLeft'], [0x26, 'ArrowUp'], [0x27, 'ArrowRight'], [0x28, 'ArrowDown'],
  [0x2d, 'Insert'], [0x2e, 'Delete'],
]);
const kControl = 2;

/** Editing commands of Ctrl and a letter on Windows. */
const kCommands = new Map([['A', 'selectAll'], ['Z', 'undo'], ['Y', 'redo']]);

export function keyName(virtualKey) {
  if (kNames.has(virtualKey)) return kNames.get(virtualKey);
  if (virtualKey >= 0x70 && virtualKey <= 0x7b) return `F${virtualKey - 0x6f}`;
  if (virtualKey >= 0x30 && virtualKey <= 0x5a) return String.fromCharCode(virtualKey).toLowerCase();
  return '';
}

/** `event`: {kind: 'rawKeyDown' | 'keyUp' | 'char', modifiers, virtualKey, text}. */
export async function dispatchKey(browser, { kind, modifiers, virtualKey, text = '' }) {
  const common = { type: kind, modifiers };
  if (kind === 'char') {
    await browser.send('Input.dispatchKeyEvent', { ...common, text, unmodifiedText: text,
      ...(text === '\r' ? { key: 'Enter', windowsVirtualKeyCode: 0x0d } : {}) });
    return;
  }
  const key = keyName(virtualKey);
  const command = kind === 'rawKeyDown' && modifiers === kControl
    ? kCommands.get(key.toUpperCase()) : undefined;
  await browser.send('Input.dispatchKeyEvent', { ...common, key, code: key.length > 1 ? key : '',
    windowsVirtualKeyCode: virtualKey, ...(command ? { commands: [command] } : {}) });
}
