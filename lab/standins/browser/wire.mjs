// The link between the stand-in DLL and the bridge: one TCP connection per controller, carrying
// frames of u32 body length, u8 kind, body. All numbers are little endian, all text is UTF-8.
// dll/link.h has the same table for the other side.

/** Frames from the DLL. */
export const FromHost = {
  create: 1,       // u32 width, u32 height (pixels)
  loadText: 2,     // u64 navigation id, the HTML
  loadUrl: 3,      // u64 navigation id, the URL
  postJson: 4,     // a JSON text for the page
  postText: 5,     // a string for the page
  bounds: 6,       // u32 width, u32 height
  visible: 7,      // u8 1 or 0
  focus: 8,        // u8 1 or 0
  mouse: 9,        // see readMouse
  key: 10,         // u8 kind (KeyKind), u8 modifiers, u32 virtual key, text
  insertText: 11,  // text, as if pasted
  copy: 12,        // u8 1 = cut; `selection` follows if there is something to copy
  frameDone: 13,   // u32 frame number: decoded, send the next
  background: 14,  // u8 alpha, red, green, blue
};

/** Frames to the DLL. */
export const ToHost = {
  ready: 101,      // u32 process id of the browser
  failed: 102,     // why the browser could not be started
  message: 103,    // u8 1 = a string was posted, u32 source length, source, u32 JSON length, JSON,
                   // then the string itself
  navigated: 104,  // u64 navigation id, u8 success, u32 web error status
  frame: 105,      // u32 frame number, a JPEG picture
  selection: 106,  // text for the clipboard, requested or not
  processFailed: 107,  // u32 kind, as the control numbers them; a browser that exits ends the link instead
};

export const MouseKind = ['mouseMoved', 'mousePressed', 'mouseReleased', 'mouseWheel'];
export const MouseButton = ['none', 'left', 'right', 'middle'];
export const KeyKind = ['rawKeyDown', 'keyUp', 'char'];

// Far above any real frame; a page has 2 MiB at most.
const kMaxBodyBytes = 64 * 1024 * 1024;
const kHeadBytes = 5;

export function encodeFrame(kind, body = Buffer.alloc(0)) {
  const bytes = typeof body === 'string' ? Buffer.from(body, 'utf8') : body;
  const head = Buffer.alloc(kHeadBytes);
  head.writeUInt32LE(bytes.length, 0);
  head.writeUInt8(kind, 4);
  return Buffer.concat([head, bytes]);
}

export function u32(value) {
  const bytes = Buffer.alloc(4);
  bytes.writeUInt32LE(value >>> 0, 0);
  return bytes;
}

/** The body of a `mouse` frame as the arguments of Input.dispatchMouseEvent. */
export function readMouse(body) {
  const kind = MouseKind[body.readUInt8(0)];
  const event = {
    type: kind, button: MouseButton[body.readUInt8(1)], buttons: body.readUInt8(2),
    modifiers: body.readUInt8(3), clickCount: body.readUInt8(4),
    x: body.readInt32LE(5), y: body.readInt32LE(9),
  };
  if (kind === 'mouseWheel') {
    event.deltaX = body.readInt32LE(13);
    event.deltaY = body.readInt32LE(17);
  }
  return event;
}

/** The body of a `message` frame. `json` is what the page posted; `source` its address. */
export function messageBody(source, json) {
  const value = JSON.parse(json);
  const isText = typeof value === 'string';
  const sourceBytes = Buffer.from(source, 'utf8');
  const jsonBytes = Buffer.from(json, 'utf8');
  return Buffer.concat([
    Buffer.from([isText ? 1 : 0]), u32(sourceBytes.length), sourceBytes, u32(jsonBytes.length),
    jsonBytes, Buffer.from(isText ? value : '', 'utf8'),
  ]);
}

/** Cuts a byte stream into frames; feed() accepts pieces of any size. */
export class FrameCutter {
  #kept = Buffer.alloc(0);

  /** Calls onFrame(kind, body) for each complete frame; throws for an absurd length. */
  feed(bytes, onFrame) {
    this.#kept = this.#kept.length === 0 ? bytes : Buffer.concat([this.#kept, bytes]);
    let at = 0;
    while (this.#kept.length - at >= kHeadBytes) {
      const length = this.#kept.readUInt32LE(at);
      if (length > kMaxBodyBytes) throw new Error(`A frame of ${length} bytes.`);
      if (this.#kept.length - at - kHeadBytes < length) break;
      const start = at + kHeadBytes;
      at = start + length;
      onFrame(this.#kept.readUInt8(start - 1), this.#kept.subarray(start, at));
    }
    this.#kept = this.#kept.subarray(at);
  }
}
