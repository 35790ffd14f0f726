// Listens to the notifications of a PostgreSQL database. PostgreSQL keeps nothing for a listener
// that is not connected, so a lost connection means lost notifications; and a connection may be
// dead for hours before the operating system notices.

import { EventEmitter } from 'node:events';
import { setTimeout } from 'node:timers/promises';
import pg from 'pg';

const retryMillis = 500;
const checkMillis = 3_000;
const answerMillis = 5_000;

/**
 * Emits "notification" like a client of pg; "deaf" when notifications may be missed from now on;
 * "hears" when none will be.
 */
export class Listener extends EventEmitter {
  #url;
  #client; // while connected
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

  /** Rejects if it cannot connect; afterwards it tries again by itself. */
  async start() {
    await this.#open();
    this.#watch();
  }

  /** Adds a LISTEN, for every connection. Call it before start(). */
  async query(statement) {
    this.#statements.add(statement);
  }

  release() {} // a pool's connection has this method

  close() {
    this.#isClosed = true;
    this.#client?.end().catch(() => undefined);
  }

  async #open() {
    const client = new pg.Client({ connectionString: this.#url, keepAlive: true,
      connectionTimeoutMillis: answerMillis, query_timeout: answerMillis });
    client.on('error', () => undefined); // "end" follows and is enough
    client.on('notification',
      (message) => client === this.#client && this.emit('notification', message));
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
