// Carries events between the nodes that share a PostgreSQL database, with Socket.IO's own adapter.
// Two things the adapter does not do:
// - order: it fetches large events from a table, and smaller ones overtake them. We put the large
// ones into our own table and handle all of them in turn.
// - loss: it drops what it cannot send or receive. We number what a node sends, and listen on a
// connection that we watch. If a number is missing, or the connection was opened again, `onLoss` is
// called before any later event is handled.

import { once } from 'node:events';
import { createAdapter } from '@socket.io/postgres-adapter';
import pg from 'pg';
import { Listener } from './listener.js';

const largest = 7_000; // bytes; a notification of PostgreSQL carries 8000
const beatMillis = 3_000;
const youngMillis = 15_000; // an older node knows all others
const parcelMillis = 60_000;
// when the database restarts, each client should lose one connection, not one for each attempt
const deafMillis = 15_000;
const echoMillis = 10_000;
const never = 2 ** 31 - 1;

export class Bus {
  #io;
  #db;
  #namespace;
  #pool; // for sending
  #listener;
  #hears = false;
  #node;
  #handlers;
  #onLoss;
  #sending = Promise.resolve();
  #query = Promise.resolve(); // the adapter's newest one
  #waiting = [];
  #number = 0;
  #numbers = new Map(); // node → its last number
  #hearing = Promise.resolve();
  #since; // when we began to listen
  #deafness; // a timer
  #timer;

  /**
   * `handlers` has a function for each kind of event. `onLoss` is called when events from other
   * nodes are missing.
   */
  constructor({ io, namespace, db, url, node, handlers, onLoss }) {
    this.#io = io;
    this.#db = db;
    this.#namespace = namespace;
    this.#node = node;
    this.#handlers = handlers;
    this.#onLoss = onLoss;
    this.#pool = new pg.Pool({ connectionString: url, max: 3, keepAlive: true,
      connectionTimeoutMillis: 5_000, query_timeout: 10_000 });
    // an idle connection has ended; the next query opens another
    this.#pool.on('error', () => undefined);
    this.#listener = new Listener(url);
  }

  /**
   * Whether this node receives what the others send. While it does not, nobody can log in, and
   * connected clients get nothing until `onLoss`.
   */
  get hears() {
    return this.#hears;
  }

  async start() {
    await this.#db.raw(`create unlogged table if not exists parcels
      (id bigserial primary key, at double precision not null, text text not null)`);
    const pool = {
      query: (...query) => (this.#query = this.#pool.query(...query)),
      connect: async () => this.#listener,
    };
    this.#io.adapter(createAdapter(pool,
      { errorHandler: () => undefined, cleanupInterval: never }));
    const space = this.#io.of(this.#namespace);
    space.on('bus', (node, number, text) => {
      this.#hearing = this.#hearing.then(() => this.#hear(node, number, text))
        .catch(() => this.#onLoss());
    });
    space.on('ask', async (kind, answer) => {
      await this.#handlers[kind]?.();
      answer(true);
    });
    this.#listener.on('deaf', () => {
      this.#hears = false;
      this.#deafness = setTimeout(this.#onLoss, deafMillis).unref();
    });
    // In its turn: what arrived before the loss comes first.
    this.#listener.on('hears', () => (this.#hearing = this.#hearing.then(() => this.#begin())));
    await this.#listener.start();
    await this.#echo();
    await this.#hearing;
    this.#timer = setInterval(() => {
      // If a heartbeat overtook a message, the others would think that they have missed it.
      this.#sending = this.#sending.then(() => this.#send([])).catch(() => undefined);
      this.#db('parcels').where('at', '<', Date.now() - parcelMillis).del().catch(() => undefined);
    }, beatMillis).unref();
  }

  /** Makes the other nodes do `kind`, and waits until they have done so. */
  ask(kind) {
    return new Promise((resolve) => {
      this.#io.of(this.#namespace).serverSideEmit('ask', kind, () => resolve());
    });
  }

  /**
   * Makes the other nodes do `kind` with `content`, a JSON value. Resolves when it has been sent.
   */
  publish(kind, content) {
    return new Promise((resolve, reject) => {
      this.#waiting.push({ text: JSON.stringify([kind, content]), resolve, reject });
      this.#sending = this.#sending.then(() => this.#flush());
    });
  }

  async close() {
    clearInterval(this.#timer);
    await this.#sending;
    this.#listener.close();
    await this.#pool.end();
  }

  /** A pooler that assigns a connection per transaction accepts our LISTEN but delivers nothing. */
  async #echo() {
    const signal = AbortSignal.timeout(echoMillis);
    const heard = once(this.#listener, 'notification', { signal }).catch((cause) => {
      const advice = 'A pooler in between must assign a connection to each session.';
      throw new Error(`Notifications of PostgreSQL do not arrive. ${advice}`, { cause });
    });
    await Promise.all([heard, this.#send([])]);
  }

  /** Sends what is queued, as much as fits into one notification. */
  async #flush() {
    const batch = [];
    for (let size = 0; this.#waiting.length > 0; ) {
      size += Buffer.byteLength(JSON.stringify(this.#waiting[0].text));
      if (batch.length > 0 && size > largest) break;
      batch.push(this.#waiting.shift());
    }
    if (batch.length === 0) return;
    try {
      await this.#send(batch.map(({ text }) => text));
      batch.forEach(({ resolve }) => resolve());
    } catch (error) {
      batch.forEach(({ reject }) => reject(error));
    }
  }

  async #send(texts) {
    // a heartbeat says how far we are
    const number = texts.length > 0 ? (this.#number += 1) : this.#number;
    let text = JSON.stringify(texts);
    if (Buffer.byteLength(JSON.stringify(text)) > largest) {
      const [{ id }] = await this.#db('parcels').insert({ at: Date.now(), text }).returning('id');
      text = String(id);
    }
    this.#io.of(this.#namespace).serverSideEmit('bus', this.#node, number, text);
    await this.#query; // the adapter does not report whether it worked
  }

  #begin() {
    clearTimeout(this.#deafness);
    if (this.#since) this.#onLoss();
    this.#numbers.clear();
    this.#since = Date.now();
    this.#hears = this.#listener.hears;
  }

  async #hear(node, number, text) {
    const last = this.#numbers.get(node);
    const isBeat = text === '[]';
    const first = Date.now() - this.#since < youngMillis ? number : 1;
    const expected = last === undefined ? first : last + (isBeat ? 0 : 1);
    if (number < expected) return; // seen before
    this.#numbers.set(node, number);
    if (number > expected) this.#onLoss();
    if (isBeat) return;
    if (!text.startsWith('['))
      text = (await this.#db('parcels').where({ id: text }).first('text')).text;
    for (const entry of JSON.parse(text)) {
      const [kind, content] = JSON.parse(entry);
      await this.#handlers[kind]?.(content);
    }
  }
}
