// Who is connected, on all nodes that share a database. If a node dies, its heartbeat stops, and
// another node announces that its users are offline.

import { randomBytes } from 'node:crypto';

const beatMillis = 3_000;
const deadMillis = 12_000; // without a heartbeat

export class Presence {
  node = randomBytes(8).toString('hex');
  #db;
  #timer;
  #healthySince = Infinity; // only a node with an unbroken heartbeat may declare others dead
  #announceEnd;
  #onLost;

  /**
   * `announceEnd(id, friends)` runs while the user's sessions are locked, so a new login elsewhere
   * is announced after it. `onLost` is called if the others have declared this node dead.
   */
  constructor({ db, announceEnd, onLost }) {
    this.#db = db;
    this.#announceEnd = announceEnd;
    this.#onLost = onLost;
  }

  /** `alone` means that this node cannot reach any other, so there must be none. */
  async start({ alone }) {
    // the folder is ours alone, so any other node in it was killed
    if (this.#db.client.driverName !== 'pg') await this.#db('nodes').del();
    const others = await this.#db('nodes').where('seen', '>', Date.now() - deadMillis).first('id');
    if (alone && others)
      throw new Error('Another node uses this database: several need --database and --socketio 4.');
    await this.#db('nodes').insert({ id: this.node, seen: Date.now() });
    this.#healthySince = Date.now();
    this.#timer = setInterval(() => this.#beat(), beatMillis).unref();
  }

  async stop() {
    clearInterval(this.#timer);
    await this.#db('sessions').where({ node: this.node }).del();
    await this.#db('nodes').where({ id: this.node }).del();
  }

  /** How many connections this user has; 0 is offline. */
  async sessions(user) {
    const [{ count }] = await this.#db('sessions').where({ user }).count({ count: '*' });
    return Number(count);
  }

  /** Records a connection. Resolves to whether it is the user's first one. */
  enter(session, user) {
    return this.#locked(user, async (trx) => {
      await trx('sessions').insert({ id: session, user, node: this.node });
      const [{ count }] = await trx('sessions').where({ user }).count({ count: '*' });
      return Number(count) === 1;
    });
  }

  leave(session, user) {
    return this.#remove({ id: session }, user);
  }

  /** Forgets everybody without announcing it. */
  async clear() {
    await this.#db('sessions').del();
  }

  #remove(which, user) {
    return this.#locked(user, async (trx, friends) => {
      if ((await trx('sessions').where({ ...which, user }).del()) === 0) return;
      const [{ count }] = await trx('sessions').where({ user }).count({ count: '*' });
      if (Number(count) === 0) await this.#announceEnd(user, await friends());
    });
  }

  #locked(user, act) {
    return this.#db.transaction(async (trx) => {
      // SQLite runs transactions one at a time, PostgreSQL does not.
      if (trx.client.driverName === 'pg')
        await trx.raw('select pg_advisory_xact_lock(hashtext(?))', [user]);
      return act(trx, () => trx('friends').where({ user }).orderBy('seq').pluck('friend'));
    });
  }

  async #beat() {
    try {
      if ((await this.#db('nodes').where({ id: this.node }).update({ seen: Date.now() })) === 0) {
        await this.#db('nodes').insert({ id: this.node, seen: Date.now() });
        this.#onLost();
      }
      if (Date.now() - this.#healthySince > deadMillis) await this.#bury();
      this.#healthySince = Math.min(this.#healthySince, Date.now());
    } catch {
      this.#healthySince = Infinity; // the database does not answer; the next query will report it
    }
  }

  async #bury() {
    const dead = await this.#db('nodes').where('seen', '<', Date.now() - deadMillis).pluck('id');
    for (const node of dead) {
      const users = await this.#db('sessions').where({ node }).distinct().pluck('user');
      for (const user of users) await this.#remove({ node }, user);
      await this.#db('nodes').where({ id: node }).del();
    }
  }
}
