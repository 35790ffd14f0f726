// The messages of all conversations, in the order of their "ts"; equal ones in the order of
// arrival.

import { setTimeout } from 'node:timers/promises';

const batchSize = 200;
const gatherStep = 2; // milliseconds
const longestGather = 20;
const newestFirst = [
  { column: 'ts', order: 'desc' },
  { column: 'seq', order: 'desc' },
];

export class Messages {
  #db;
  #kept; // how many are kept of a conversation; for a while up to twice as many
  #waiting = []; // for the next commit
  #isWriting = false;
  #written = new Map(); // conversation → messages written since its oldest ones were removed

  constructor(db, { kept = Infinity }) {
    this.#db = db;
    this.#kept = kept;
  }

  /**
   * Resolves when the message is on disk. Messages that arrive during a commit share the next one.
   */
  add(conversation, message) {
    return new Promise((resolve, reject) => {
      this.#waiting.push({ row: { conversation, ts: message.ts, message: JSON.stringify(message) },
        resolve, reject });
      if (!this.#isWriting) this.#write();
    });
  }

  async latest(conversation, before = Infinity, limit = 1) {
    const query = this.#db('messages').where({ conversation }).orderBy(newestFirst).limit(limit);
    if (before !== Infinity) query.where('ts', '<', before);
    return (await query.pluck('message')).map((text) => JSON.parse(text));
  }

  async #write() {
    this.#isWriting = true;
    while (this.#waiting.length > 0) {
      await this.#gather();
      const batch = this.#waiting.splice(0, batchSize);
      try {
        await this.#db('messages').insert(batch.map(({ row }) => row));
        for (const { row } of batch) await this.#bound(row.conversation);
        batch.forEach(({ resolve }) => resolve());
      } catch (error) {
        batch.forEach(({ reject }) => reject(error));
      }
    }
    this.#isWriting = false;
  }

  /**
   * Waits briefly while more messages arrive: a commit takes milliseconds, however many it
   * contains.
   */
  async #gather() {
    const until = performance.now() + longestGather;
    const mayGrow = () => this.#waiting.length < batchSize && performance.now() < until;
    for (let before = 0; this.#waiting.length > before && mayGrow(); ) {
      before = this.#waiting.length;
      await setTimeout(gatherStep);
    }
  }

  async #bound(conversation) {
    if (this.#kept === Infinity) return;
    const written = (this.#written.get(conversation) ?? 0) + 1;
    this.#written.set(conversation, written % this.#kept);
    if (written < this.#kept) return;
    const newest = this.#db('messages').select('seq').where({ conversation }).orderBy(newestFirst)
      .limit(this.#kept);
    await this.#db('messages').where({ conversation }).whereNotIn('seq', newest).del();
  }
}
