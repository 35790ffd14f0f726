// What happened: HTTP requests and live traffic, the newest entries only. Tests read it through the control endpoint.

const keptEntries = 10_000;
const keptBytes = 65_536;

export class Log {
  #entries = [];
  #count = 0;

  /** Adds an entry and returns it: what is known later (a body, a status) may be added to it. */
  add(kind, fields) {
    const entry = { kind, number: (this.#count += 1), at: Date.now(), ...fields };
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
