// Carries events between the nodes that share a PostgreSQL database, over Socket.IO's own adapter for it. What the adapter leaves to us:
// - order: it would fetch a large event from a table while smaller ones overtake it. We put the large ones into a table of our own, and
//   take what comes in turn.
// - loss: it drops what it cannot send, or hear. We number what a node sends, and listen with a connection that we watch. Where a number is
//   missing, and when we listen anew, `onLoss` is called before anything that was sent later comes.

import { once } from 'node:events';
import { createAdapter } from '@socket.io/postgres-adapter';
import pg from 'pg';
import { Listener } from './listener.js';

const largest = 7_000; // bytes; a notification of PostgreSQL carries 8000
const beatMillis = 3_000;
const youngMillis = 15_000; // who is older has heard of every node
const parcelMillis = 60_000;
const deafMillis = 15_000; // a database that restarts should cost clients one connection, not one for each try to come back
const echoMillis = 10_000;
const never = 2 ** 31 - 1;

export class Bus {
  #io;
  #db;
  #namespace;
  #pool; // that sends
  #listener;
  #hears = false;
  #node;
  #handlers;
  #onLoss;
  #sending = Promise.resolve();
  #query = Promise.resolve(); // the adapter's newest one
  #waiting = [];
  #number = 0;
  #numbers = new Map(); // node → the last number heard
  #hearing = Promise.resolve();
  #since; // we hear
  #deafness; // a timer
  #timer;

  /** `handlers` are functions by the kind of event; `onLoss` hears that events from other nodes are missing. */
  constructor({ io, namespace, db, url, node, handlers, onLoss }) {
    this.#io = io;
    this.#db = db;
    this.#namespace = namespace;
    this.#node = node;
    this.#handlers = handlers;
    this.#onLoss = onLoss;
    this.#pool = new pg.Pool({ connectionString: url, max: 3, keepAlive: true, connectionTimeoutMillis: 5_000, query_timeout: 10_000 });
    this.#pool.on('error', () => undefined); // an idle connection has ended; the next query opens another
    this.#listener = new Listener(url);
  }

  /** Does this node hear what the others send? While it does not, nobody gets in, and who is connected gets nothing until `onLoss`. */
  get hears() {
    return this.#hears;
  }

  async start() {
    await this.#db.raw('create unlogged table if not exists parcels (id bigserial primary key, at double precision not null, text text not null)');
    const pool = {
      query: (...query) => (this.#query = this.#pool.query(...query)),
      connect: async () => this.#listener,
    };
    this.#io.adapter(createAdapter(pool, { errorHandler: () => undefined, cleanupInterval: never }));
    const space = this.#io.of(this.#namespace);
    space.on('bus', (node, number, text) => {
      this.#hearing = this.#hearing.then(() => this.#hear(node, number, text)).catch(() => this.#onLoss());
    });
    space.on('ask', async (kind, answer) => {
      await this.#handlers[kind]?.();
      answer(true);
    });
    this.#listener.on('deaf', () => {
      this.#hears = false;
      this.#deafness = setTimeout(this.#onLoss, deafMillis).unref();
    });
    // In its turn: what was heard before the loss comes first.
    this.#listener.on('hears', () => (this.#hearing = this.#hearing.then(() => this.#begin())));
    await this.#listener.start();
    await this.#echo();
    await this.#hearing;
    this.#timer = setInterval(() => {
      // A beat that overtook a message would tell the others that they have missed it.
      this.#sending = this.#sending.then(() => this.#send([])).catch(() => undefined);
      this.#db('parcels').where('at', '<', Date.now() - parcelMillis).del().catch(() => undefined);
    }, beatMillis).unref();
  }

  /** Has the other nodes do `kind`, and waits until they have. */
  ask(kind) {
    return new Promise((resolve) => {
      this.#io.of(this.#namespace).serverSideEmit('ask', kind, () => resolve());
    });
  }

  /** Has the other nodes do `kind` with `content`, a JSON value. Resolves when it is on its way. */
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

  /** A pooler that lends connections for a transaction each takes our LISTEN, and passes on nothing. */
  async #echo() {
    const heard = once(this.#listener, 'notification', { signal: AbortSignal.timeout(echoMillis) }).catch((error) => {
      throw new Error('What PostgreSQL notifies does not come through: a pooler in between must lend whole sessions.', { cause: error });
    });
    await Promise.all([heard, this.#send([])]);
  }

  /** Sends what waits, as much as fits into one notification. */
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
    const number = texts.length > 0 ? (this.#number += 1) : this.#number; // a beat says how far we are
    let text = JSON.stringify(texts);
    if (Buffer.byteLength(JSON.stringify(text)) > largest) {
      const [{ id }] = await this.#db('parcels').insert({ at: Date.now(), text }).returning('id');
      text = String(id);
    }
    this.#io.of(this.#namespace).serverSideEmit('bus', this.#node, number, text);
    await this.#query; // the adapter tells nobody whether it worked
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
    const expected = last === undefined ? (Date.now() - this.#since < youngMillis ? number : 1) : last + (isBeat ? 0 : 1);
    if (number < expected) return; // heard before
    this.#numbers.set(node, number);
    if (number > expected) this.#onLoss();
    if (isBeat) return;
    if (!text.startsWith('[')) text = (await this.#db('parcels').where({ id: text }).first('text')).text;
    for (const entry of JSON.parse(text)) {
      const [kind, content] = JSON.parse(entry);
      await this.#handlers[kind]?.(content);
    }
  }
}
