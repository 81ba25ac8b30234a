// What the service answers: its own replies, and those that a test puts in their place.

const json = (value) => ({ status: 200, headers: {}, body: JSON.stringify(value) });
const success = (data) => json({ success: true, code: '', message: '', data });

export const kDefaultGrant = {
  connectionId: 'CONN-0001', assignedAddress: '10.88.0.2', routes: ['192.168.77.0/24'],
};

/** The service as it should be. Each entry: [method, path pattern, reply]. */
function ownReply(grant, { method, path }) {
  const table = [
    ['POST', /^\/api\/connections\/request$/, () => success(grant)],
    ['POST', /^\/api\/connections\/[^/]+\/disconnect$/, () => success(null)],
    ['POST', /^\/api\/devices\/resolve$/, () => success({
      deviceNumber: 'DEV-2041', deviceName: '二号泵站', sharedNetworks: grant.routes,
    })],
    ['POST', /^\/api\/devices\/[^/]+\/remote-desktop\/session$/, () => success({
      rustDeskId: '123456789', accessPassword: 'lab-password', server: {},
    })],
    ['GET', /^\/api\/updates\/client$/, () => success({ updateAvailable: false })],
  ];
  const row = table.find(([wanted, pattern]) => wanted === method && pattern.test(path));
  return row ? row[2]()
    : { ...json({ success: false, code: 'NOT_FOUND', message: 'not found', data: null }), status: 404 };
}

export class Replies {
  #grant = null;
  #addresses = new Map();  // of every connection id that was ever granted
  #scripted = [];

  constructor() { this.setGrant(kDefaultGrant); }

  setGrant(grant) {
    this.#grant = grant;
    this.#addresses.set(grant.connectionId, String(grant.assignedAddress).split('/')[0]);
  }

  /** The tunnel address granted with a connection id, without its prefix; null: never granted. */
  addressOf(connectionId) { return this.#addresses.get(connectionId) ?? null; }

  /**
   * Puts a reply in the place of the service's own, for `path` (a prefix), `times` times (default:
   * until reset). Members: status, headers, body (text), delayMs, and one of the faults
   *   cut: true          the connection is destroyed instead of an answer
   *   truncateTo: bytes  the head announces the whole body, the connection ends after so many bytes
   *   raw: text          these bytes instead of an HTTP reply (latin1), then the end
   * A reply with only a delay delays the service's own.
   */
  set({ path, times = Infinity, ...reply }) {
    this.#scripted.unshift({ path, times, reply });
  }

  refuseNext({ code, message = '', times = 1 }) {
    const body = JSON.stringify({ success: false, code, message, data: null });
    this.set({ path: '/api/connections/request', times, status: 200, body });
  }

  reset() { this.#scripted = []; }

  /** The reply to one request; counts down the scripted one it uses. */
  take({ method, path }) {
    const own = ownReply(this.#grant, { method, path });
    const scripted = this.#scripted.find((one) => path.startsWith(one.path) && one.times > 0);
    if (!scripted) return own;
    scripted.times -= 1;
    const { reply } = scripted;
    return reply.body === undefined && reply.status === undefined ? { ...own, ...reply }
      : { status: 200, headers: {}, ...reply };
  }
}
