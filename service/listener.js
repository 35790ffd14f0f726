// Hears what is notified in a PostgreSQL database. PostgreSQL keeps nothing for who is not connected, so an end of the connection is a loss;
// and a connection may be dead for hours before the operating system says so.

import { EventEmitter } from 'node:events';
import { setTimeout } from 'node:timers/promises';
import pg from 'pg';

const retryMillis = 500;
const checkMillis = 3_000;
const answerMillis = 5_000;

/** Emits "notification" as a client of pg does; "deaf", when from now on something may be missed; "hears", when nothing will be. */
export class Listener extends EventEmitter {
  #url;
  #client; // while we hear
  #ended; // a promise
  #statements = new Set();
  #isClosed = false;

  constructor(url) {
    super();
    this.#url = url;
  }

  get hears() {
    return this.#client !== undefined;
  }

  /** Rejects when it cannot hear; from then on it tries again by itself. */
  async start() {
    await this.#open();
    this.#watch();
  }

  /** Takes a LISTEN, for each connection; before start(). */
  async query(statement) {
    this.#statements.add(statement);
  }

  release() {} // we stand where a connection of a pool did

  close() {
    this.#isClosed = true;
    this.#client?.end().catch(() => undefined);
  }

  async #open() {
    const client = new pg.Client({ connectionString: this.#url, keepAlive: true, connectionTimeoutMillis: answerMillis, query_timeout: answerMillis });
    client.on('error', () => undefined); // its end says the same
    client.on('notification', (message) => client === this.#client && this.emit('notification', message));
    this.#ended = new Promise((resolve) => client.once('end', resolve));
    try {
      await client.connect();
      for (const statement of this.#statements) await client.query(statement);
    } catch (error) {
      client.end().catch(() => undefined);
      throw error;
    }
    this.#client = client;
    this.emit('hears');
  }

  async #watch() {
    while (!this.#isClosed) {
      try {
        if (!this.hears) await this.#open();
        await Promise.race([this.#ended, setTimeout(checkMillis, undefined, { ref: false })]);
        await this.#client.query('select 1');
      } catch {
        this.#lose();
        await setTimeout(retryMillis, undefined, { ref: false });
      }
    }
  }

  #lose() {
    const client = this.#client;
    this.#client = undefined;
    client?.end().catch(() => undefined);
    if (client) this.emit('deaf');
  }
}
