// A log of HTTP requests and live traffic, newest entries only. Tests read it through the control
// endpoint.

import { mask } from './secrets.js';

const keptEntries = 10_000;
const keptBytes = 65_536;
const connectPacket = /^(0[^?,{]*).*$/s; // in Socket.IO 2 and later, credentials may follow

export class Log {
  #entries = [];
  #count = 0;
  #isOn;
  #mask;

  /** Logs only if it `isOn`; `maskSecrets` removes credentials. */
  constructor({ isOn, maskSecrets }) {
    this.#isOn = isOn;
    this.#mask = maskSecrets;
  }

  /** Adds an entry and returns it, so that a body or a status can be added later. */
  add(kind, fields) {
    const entry = { kind, number: (this.#count += 1), at: Date.now(),
      ...(this.#mask ? mask(fields) : fields) };
    if (!this.#isOn) return entry;
    if (this.#mask && kind === 'packet') entry.data = entry.data.replace(connectPacket, '$1');
    this.#entries.push(entry);
    if (this.#entries.length > keptEntries) this.#entries.shift();
    return entry;
  }

  entries(kind) {
    return kind === undefined ? this.#entries
      : this.#entries.filter((entry) => entry.kind === kind);
  }

  clear() {
    this.#entries = [];
  }
}

/** The start of a body or packet, as stored in an entry. */
export const excerpt = (data) => data.toString('utf8', 0, keptBytes).slice(0, keptBytes);

/** Logs a request, and its answer once it has been sent. */
export function noteRequest(log, request, response) {
  const { method, url, headers } = request;
  const kind = url.startsWith('/socket.io/') ? 'poll' : 'request';
  request.logEntry = log.add(kind, { method, url, headers });
  response.on('finish', () => {
    const answered = { type: response.getHeader('content-type'),
      length: Number(response.getHeader('content-length')) };
    Object.assign(request.logEntry, { status: response.statusCode, ...answered });
  });
}
