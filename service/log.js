// What happened: HTTP requests and live traffic, the newest entries only. Tests read it through the control endpoint.

import { mask } from './secrets.js';

const keptEntries = 10_000;
const keptBytes = 65_536;
const connectPacket = /^(0[^?,{]*).*$/s; // in the Socket.IO lines 2 and up, what follows may hold credentials

export class Log {
  #entries = [];
  #count = 0;
  #isOn;
  #mask;

  /** Keeps nothing unless it `isOn`; `maskSecrets` keeps credentials out. */
  constructor({ isOn, maskSecrets }) {
    this.#isOn = isOn;
    this.#mask = maskSecrets;
  }

  /** Adds an entry and returns it: what is known later (a body, a status) may be added to it. */
  add(kind, fields) {
    const entry = { kind, number: (this.#count += 1), at: Date.now(), ...(this.#mask ? mask(fields) : fields) };
    if (!this.#isOn) return entry;
    if (this.#mask && kind === 'packet') entry.data = entry.data.replace(connectPacket, '$1');
    this.#entries.push(entry);
    if (this.#entries.length > keptEntries) this.#entries.shift();
    return entry;
  }

  entries(kind) {
    return kind === undefined ? this.#entries : this.#entries.filter((entry) => entry.kind === kind);
  }

  clear() {
    this.#entries = [];
  }
}

/** The beginning of a body or packet, as an entry keeps it. */
export const excerpt = (data) => data.toString('utf8', 0, keptBytes).slice(0, keptBytes);

/** Notes a request, and how it was answered once it was. */
export function noteRequest(log, request, response) {
  const { method, url, headers } = request;
  const kind = url.startsWith('/socket.io/') ? 'poll' : 'request';
  request.logEntry = log.add(kind, { method, url, headers });
  response.on('finish', () => {
    const answered = { type: response.getHeader('content-type'), length: Number(response.getHeader('content-length')) };
    Object.assign(request.logEntry, { status: response.statusCode, ...answered });
  });
}
