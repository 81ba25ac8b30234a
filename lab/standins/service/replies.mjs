// The service's answers: its own replies, and the tests' replacements.

const json = (value) => ({ status: 200, headers: {}, body: JSON.stringify(value) });
const success = (data) => json({ success: true, code: '', message: '', data });
const refusal = (code, message) => json({ success: false, code, message, data: null });

export const kDefaultGrant = {
  connectionId: 'CONN-0001', assignedAddress: '10.88.0.2', routes: ['192.168.77.0/24'],
};

export const kDefaultDesktop = {
  rustDeskId: '123456789', accessPassword: 'lab-password', server: {},
};

/** The device for a resolve request's body; without a list, one device for any key. */
function resolve(devices, grant, body) {
  if (devices === null) {
    return success({ deviceNumber: 'DEV-2041', deviceName: '二号泵站', sharedNetworks: grant.routes });
  }
  const { deviceSecret } = JSON.parse(body);
  const device = devices.find((one) => one.deviceSecret === deviceSecret);
  if (!device) return refusal('DEVICE_NOT_FOUND', '密钥无效');
  const { deviceSecret: _, ...known } = device;
  return success(known);
}

/** The regular service. Each entry: [method, path pattern, reply]. `grantNext` creates a grant. */
function ownReply({ grant, grantNext, devices, desktop }, { method, path, body }) {
  const table = [
    ['POST', /^\/api\/connections\/request$/, () => success(grantNext())],
    ['POST', /^\/api\/connections\/[^/]+\/disconnect$/, () => success(null)],
    ['POST', /^\/api\/devices\/resolve$/, () => resolve(devices, grant, body)],
    ['POST', /^\/api\/devices\/[^/]+\/remote-desktop\/session$/, () => success(desktop)],
    ['GET', /^\/api\/updates\/client$/, () => success({ updateAvailable: false })],
  ];
  const row = table.find(([wanted, pattern]) => wanted === method && pattern.test(path));
  return row ? row[2]() : { ...refusal('NOT_FOUND', 'not found'), status: 404 };
}

export class Replies {
  #grant = null;
  #isNumbered = false;
  #granted = [];
  #devices = null;
  #desktop = kDefaultDesktop;
  #addresses = new Map();  // of every connection id ever granted
  #scripted = [];
  #releases = [];

  constructor() { this.setGrant(kDefaultGrant); }

  /**
   * Sets the grant for connection requests. `numbered`: each gets its own connection id, the given one
   * followed by this process's id and a number, so that no id repeats.
   */
  setGrant(grant, { numbered = false } = {}) {
    this.#grant = grant;
    this.#isNumbered = numbered;
    if (!numbered) this.#noteAddress(grant);
  }

  #noteAddress({ connectionId, assignedAddress }) {
    this.#addresses.set(connectionId, String(assignedAddress).split('/')[0]);
  }

  #grantNext() {
    const number = `${process.pid}-${this.#granted.length + 1}`;
    const grant = this.#isNumbered
      ? { ...this.#grant, connectionId: `${this.#grant.connectionId}-${number}` } : this.#grant;
    this.#noteAddress(grant);
    this.#granted.push(grant.connectionId);
    return grant;
  }

  /** The granted connection ids, one for each request. */
  granted() { return [...this.#granted]; }

  /**
   * The devices that resolving finds, by their keys: [{deviceSecret, deviceNumber, deviceName,
   * sharedNetworks}], each returned unchanged. Other keys are refused. null: one device for every key.
   */
  setDevices(devices) { this.#devices = devices; }

  /** Sets the answer to requests for a desktop session. */
  setDesktop(desktop) { this.#desktop = desktop; }

  /** The tunnel address granted with a connection id, without its prefix; null if never granted. */
  addressOf(connectionId) { return this.#addresses.get(connectionId) ?? null; }

  /**
   * Replaces the service's own reply for `path` (a prefix), `times` times (default: until reset).
   * Members: status, headers, body (text) or file (a path), delayMs, hold: true (the answer waits for
   * release()), trickleMs (the pause between each KiB of the body), and one of the faults
   *   cut: true          the connection is destroyed instead of an answer
   *   truncateTo: bytes  the head states the whole length, but the connection ends after this many bytes
   *   raw: text          these bytes instead of an HTTP reply (latin1), then the end
   * A reply with only a delay or a hold keeps the service's own content.
   */
  set({ path, times = Infinity, hold = false, ...reply }) {
    if (hold) reply.held = new Promise((resolve) => { this.#releases.push(resolve); });
    this.#scripted.unshift({ path, times, reply });
  }

  /** Releases all held answers. */
  release() {
    for (const go of this.#releases.splice(0)) go();
  }

  refuseNext({ code, message = '', times = 1 }) {
    this.set({ path: '/api/connections/request', times, ...refusal(code, message) });
  }

  reset() {
    this.#scripted = [];
    this.release();
  }

  /** The reply to one request; uses up one turn of a scripted reply. */
  take({ method, path, body = '' }) {
    const own = () => ownReply({
      grant: this.#grant, grantNext: () => this.#grantNext(), devices: this.#devices, desktop: this.#desktop,
    }, { method, path, body });
    const scripted = this.#scripted.find((one) => path.startsWith(one.path) && one.times > 0);
    if (!scripted) return own();
    scripted.times -= 1;
    const { reply } = scripted;
    return [reply.body, reply.file, reply.status].every((one) => one === undefined) ? { ...own(), ...reply }
      : { status: 200, headers: {}, ...reply };
  }
}
