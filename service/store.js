// The service's data, in a database. Records are plain objects; there is nothing about HTTP or
// Socket.IO here. All methods are asynchronous. `kind` is 'users', 'groups', 'rooms' or
// 'passengers'.

import { randomBytes } from 'node:crypto';
import { mkdirSync } from 'node:fs';
import { isTaken, lockFolder, openDatabase } from './database.js';
import { must } from './errors.js';
import { Messages } from './history.js';
import { sentences } from './interface.js';
import { identityDigests, isRight, userRecord } from './passwords.js';
import { chunks, fromRow, term, toRow } from './rows.js';
import { tables } from './schema.js';
import { bounded, fitting, idPattern, limits } from './values.js';

/** The names of conversations: between two people, or in a group. */
export const conversation = {
  between: (one, other) => JSON.stringify([one, other].sort()),
  inGroup: (groupId) => `group ${groupId}`,
};

const unknown = { users: 'unknownUser', groups: 'unknownGroup', rooms: 'unknownRoom',
  passengers: 'unknownPassenger' };
const hasMembers = (kind) => kind === 'groups' || kind === 'rooms';

/**
 * Opens the store. `database` is the URL of a PostgreSQL database, `data` the folder of an SQLite
 * database; without both everything is in memory and limited in size. A new store gets the data of
 * `seed`, if there is one. `isShared`: a service may be running on it.
 */
export async function openStore({ data, database, seed, isShared = false }) {
  if (data) mkdirSync(data, { recursive: true, mode: 0o700 });
  const lock = data && !database && !isShared ? lockFolder(data) : undefined;
  const db = await openDatabase({ url: database, directory: data }).catch((error) => {
    lock?.close();
    throw error;
  });
  const store = new Store(db, { lock, history: data || database ? Infinity : limits.history });
  if (seed && !(await store.hasRecords())) await store.reset(seed);
  return store;
}

export class Store {
  #db; // knex, or a transaction of it
  #lock;
  #messages;

  constructor(db, { lock, history = Infinity } = {}) {
    this.#db = db;
    this.#lock = lock;
    this.#messages = new Messages(db, { kept: history });
  }

  /** The database, for other things than records: presence, and the bus between nodes. */
  get db() {
    return this.#db;
  }

  /** Rejects if the database does not answer. */
  async ping() {
    await this.#db.raw('select 1');
  }

  async close() {
    await this.#db.destroy();
    this.#lock?.close();
  }

  async hasRecords() {
    for (const kind of Object.keys(unknown)) if (await this.#db(kind).first('id')) return true;
    return false;
  }

  /** Deletes everything, then adds the records of `seed`. */
  async reset(seed) {
    const users = await Promise.all((seed.users ?? []).map(userRecord));
    await this.#within(async (store) => {
      for (const table of tables) await store.#db(table).del();
      for (const user of users) await store.#add('users', user);
      for (const user of seed.users ?? [])
        for (const friend of user.friends ?? []) await store.#befriend(user.id, friend);
      for (const group of seed.groups ?? []) await store.#addGroup(group);
      for (const room of seed.rooms ?? []) await store.#addRoom(room);
    });
  }

  /** The record of one user, group, room or passenger. Throws if there is none. */
  async find(kind, id) {
    const row = await this.#row(kind, id);
    must(row, unknown[kind]);
    return (await this.#records(kind, [row]))[0];
  }

  user = (id) => this.find('users', id);
  group = (id) => this.find('groups', id);
  room = (id) => this.find('rooms', id);
  passenger = (id) => this.find('passengers', id);

  async isPassenger(id) {
    return (await this.#row('passengers', id)) !== undefined;
  }

  /**
   * The records of a kind, in the order in which they were added, or as `sort` compares them.
   * `conditions` are pairs of an attribute (or "id", "ts", "name", "owner") and the text form that
   * its value must have.
   */
  async search(kind, conditions, { sort, skip = 0, limit }) {
    const query = this.#db(kind).orderBy('seq');
    for (const [name, text] of conditions)
      query.where((builder) => this.#matches(builder, kind, name, text));
    if (!sort) return this.#records(kind, await query.offset(skip).limit(limit));
    // SQL cannot sort values of mixed types this way
    const found = (await query).map(fromRow).sort(sort);
    return this.#withMembers(kind, found.slice(skip, skip + limit));
  }

  /** Adds a user; only `id` is required. */
  async addUser(user) {
    const record = await userRecord(user);
    return this.#within((store) => store.#add('users', record));
  }

  /** The id of the user with these credentials (see login.js), or nothing if there is none. */
  async userWith({ username, phone, password, oauth }) {
    if (username !== undefined)
      return this.#userWithSecret('username', username, 'password', password);
    if (phone !== undefined) return this.#userWithSecret('phone', phone, 'code', password);
    const given = identityDigests(oauth);
    const candidates = await this.#db('users').whereIn('identity_key', given).orderBy('seq');
    const isGiven = (entry) => given.includes(entry);
    return candidates.find(({ identity }) => JSON.parse(identity).every(isGiven))?.id;
  }

  /** The ids of a user's friends, oldest friendship first. */
  friends(id) {
    return this.#db('friends').where({ user: id }).orderBy('seq').pluck('friend');
  }

  /**
   * The friendship of two users as {"ts", "from", "to"}: since when, and who added whom. Nothing if
   * they are not friends.
   */
  friendship(oneId, otherId) {
    return this.#db('friends').where({ user: oneId, friend: otherId }).first('ts', 'from', 'to');
  }

  /**
   * Numbers that decide whether one person may write to another: {"fromPassenger", "toPassenger",
   * "toUser", "areFriends"}.
   */
  async relation(fromId, toId) {
    must(typeof toId === 'string' && idPattern.test(toId), 'unknownUser');
    const count = (table, where) => this.#db(table).where(where).count('*');
    const numbers = await this.#db.first({
      fromPassenger: count('passengers', { id: fromId }),
      toPassenger: count('passengers', { id: toId }),
      toUser: count('users', { id: toId }),
      areFriends: count('friends', { user: fromId, friend: toId }),
    });
    return Object.fromEntries(Object.entries(numbers)
      .map(([name, number]) => [name, Number(number)]));
  }

  /** The groups or rooms that the user is a member of, in the order in which they were added. */
  async placesOf(kind, userId) {
    const ids = this.#db('members').select('place').where({ kind, user: userId });
    return this.#records(kind, await this.#db(kind).whereIn('id', ids).orderBy('seq'));
  }

  /** Makes two users friends. Nothing happens if they are friends already. */
  befriend(fromId, toId) {
    return this.#within((store) => store.#befriend(fromId, toId));
  }

  async unfriend(oneId, otherId) {
    await this.#within(async (store) => {
      await store.user(oneId);
      const ends = idPattern.test(otherId) ? [oneId, otherId] : [];
      const friendships = store.#db('friends').whereIn('user', ends).whereIn('friend', ends);
      must((await friendships.del()) > 0, 'notFriends');
    });
  }

  /** Adds a group; its owner becomes a member. `fields` are those the service does not know. */
  addGroup(group) {
    return this.#within((store) => store.#addGroup(group));
  }

  addRoom(room) {
    return this.#within((store) => store.#addRoom(room));
  }

  /**
   * Changes a record: `make` gets it and returns new values for some of its keys. Either all are
   * stored or none.
   */
  async change(kind, id, make) {
    await this.#within(async (store) => {
      const row = await store.#row(kind, id, { forUpdate: true });
      must(row, unknown[kind]);
      const [record] = await store.#records(kind, [row]);
      const { owner, members, attributes, fields, name } = make(record);
      const changes = { attributes: attributes && fitting(attributes),
        fields: fields && fitting(fields), name };
      if (owner !== undefined) changes.owner = (await store.user(owner)).id;
      await store.#db(kind).where({ id }).update(toRow({ ...changes, updated: Date.now() }));
      if (attributes) await store.#noteTerms(kind, id, attributes);
      if (members !== undefined) {
        await store.#db('members').where({ kind, place: id }).del();
        await store.#join(kind, id, members);
      }
    });
  }

  /** Users who are members already stay so. */
  async addMembers(kind, id, ids) {
    await this.#within(async (store) => {
      must(await store.#row(kind, id, { forUpdate: true }), unknown[kind]);
      await store.#join(kind, id, ids);
    });
  }

  async removeMembers(kind, id, ids) {
    must(await this.#row(kind, id), unknown[kind]);
    for (const some of chunks(ids.filter((one) => idPattern.test(one)))) {
      await this.#db('members').where({ kind, place: id }).whereIn('user', some).del();
    }
  }

  /** Removes the group with this id and its messages, or the room. */
  async removePlace(id) {
    await this.#within(async (store) => {
      const kind = (await store.#row('groups', id)) ? 'groups' : 'rooms';
      must(await store.#row(kind, id), 'unknownGroup');
      await store.#db(kind).where({ id }).del();
      await store.#db('terms').where({ kind, id }).del();
      await store.#db('members').where({ kind, place: id }).del();
      if (kind === 'groups')
        await store.#db('messages').where({ conversation: conversation.inGroup(id) }).del();
    });
  }

  async addPassenger(id = newId('p'), fields = {}) {
    return this.#within(async (store) => {
      must(!(await store.#row('users', id)), 'invalidValue', sentences.idOfUser);
      return store.#add('passengers', { id, fields: fitting(fields) });
    });
  }

  /** Records `install` as a device of the user. If there are too many, the oldest is removed. */
  async addInstall(userId, install) {
    await this.#within(async (store) => {
      const row = { user: (await store.user(userId)).id, install: bounded(install) };
      const known = () => store.#db('installs').where({ user: userId }).orderBy('seq', 'desc');
      const newest = await known().first('install');
      if (newest?.install === row.install) return;
      await store.#db('installs').where(row).del();
      await store.#db('installs').insert(row);
      const old = await known().offset(limits.installs).limit(100).pluck('seq');
      if (old.length > 0) await store.#db('installs').whereIn('seq', old).del();
    });
  }

  /** An unknown device is no error. */
  async removeInstalls(userId, installs) {
    const { id } = await this.user(userId);
    for (const some of chunks(installs.map(bounded)))
      await this.#db('installs').where({ user: id }).whereIn('install', some).del();
  }

  /** Stores a message in the order of its "ts". Resolves when it is on disk. */
  remember = (where, message) => this.#messages.add(where, message);

  /** At most `limit` messages with a "ts" below `before`, newest first. */
  latest = (where, before, limit) => this.#messages.latest(where, before, limit);

  /** Records an uploaded file: its "name", "type" and "size". */
  async addFile({ name, type, size }) {
    await this.#db('files').insert({ name, type: JSON.stringify(type), size, created: Date.now() });
    return { name, type, size };
  }

  async file(name) {
    const row = idPattern.test(name) ? await this.#db('files').where({ name }).first() : undefined;
    return row && { name: row.name, type: JSON.parse(row.type), size: row.size };
  }

  async removeFile(name) {
    await this.#db('files').where({ name }).del();
  }

  /** Runs `act` in a transaction: what it does with its store happens as a whole or not at all. */
  #within(act) {
    return this.#db.transaction((trx) => act(new Store(trx)));
  }

  async #row(kind, id, { forUpdate = false } = {}) {
    if (typeof id !== 'string' || !idPattern.test(id)) return undefined;
    const query = this.#db(kind).where({ id }).first();
    return forUpdate ? query.forUpdate() : query;
  }

  #records(kind, rows) {
    return this.#withMembers(kind, rows.map(fromRow));
  }

  async #withMembers(kind, records) {
    if (!hasMembers(kind) || records.length === 0) return records;
    for (const record of records) record.members = [];
    const places = new Map(records.map((record) => [record.id, record]));
    const rows = await this.#db('members').where({ kind }).whereIn('place', [...places.keys()])
      .orderBy('seq');
    for (const { place, user } of rows) places.get(place).members.push(user);
    return records;
  }

  /**
   * Restricts a search: the attribute `name` has the text form `text`, or, if there is no such
   * attribute, the field of that name does.
   */
  #matches(builder, kind, name, text) {
    const having = (...parts) =>
      this.#db('terms').select('id').where({ kind, term: term(...parts) });
    builder.whereIn('id', having(name, text));
    const known = { id: [text, 'id'], owner: kind === 'groups' && [text, 'owner'],
      name: kind === 'rooms' && [JSON.stringify(text), 'name'] };
    known.ts = String(Number(text)) === text && [Number(text), 'created'];
    const [value, column] = (Object.hasOwn(known, name) && known[name]) || [];
    if (column && !String(value).includes('\0'))
      builder.orWhere((or) => or.where({ [column]: value }).whereNotIn('id', having(name)));
  }

  async #noteTerms(kind, id, attributes) {
    await this.#db('terms').where({ kind, id }).del();
    const isScalar = (value) => value === null || typeof value !== 'object';
    const terms = Object.entries(attributes).flatMap(([key, value]) =>
      isScalar(value) ? [term(key), term(key, String(value))] : [term(key)]);
    for (const some of chunks(terms))
      await this.#db('terms').insert(some.map((one) => ({ kind, id, term: one })));
  }

  async #userWithSecret(column, name, secretColumn, secret) {
    if (typeof name !== 'string' || typeof secret !== 'string') return undefined;
    const row = await this.#db('users').where({ [column]: bounded(name) })
      .first('id', `${secretColumn} as hash`);
    return (await isRight(secret, row?.hash)) ? row.id : undefined;
  }

  async #befriend(fromId, toId) {
    for (const id of [fromId, toId].sort())
      must(await this.#row('users', id, { forUpdate: true }), 'unknownUser');
    must(fromId !== toId, 'invalidValue', sentences.ownFriend);
    const friendship = { ts: Date.now(), from: fromId, to: toId };
    const ends = [[fromId, toId], [toId, fromId]];
    const rows = ends.map(([user, friend]) => ({ ...friendship, user, friend }));
    await this.#db('friends').insert(rows).onConflict(['user', 'friend']).ignore();
  }

  async #addGroup({ id = newId('g'), owner, members = [], attributes = {}, fields = {} }) {
    await this.user(owner);
    const group = { id, owner, attributes: fitting(attributes), fields: fitting(fields) };
    return this.#add('groups', group, [owner, ...members]);
  }

  #addRoom({ id = newId('r'), name, members = [], attributes = {} }) {
    return this.#add('rooms', { id, name, attributes: fitting(attributes) }, members);
  }

  async #add(kind, { id, ...fields }, members) {
    must(typeof id === 'string' && idPattern.test(id), 'invalidValue', sentences.notId);
    const [{ count }] = await this.#db(kind).count({ count: '*' });
    must(Number(count) < limits.records, 'limitReached');
    const record = { id, ...fields, created: Date.now(), updated: Date.now() };
    await this.#db(kind)
      .insert(toRow(record))
      .catch((error) => {
        must(!isTaken(error), 'invalidValue', 'This id, user name or phone number is taken.');
        throw error;
      });
    if (members) await this.#join(kind, id, members);
    if (fields.attributes) await this.#noteTerms(kind, id, fields.attributes);
    return record;
  }

  async #join(kind, place, ids) {
    for (const some of chunks([...new Set(ids)])) {
      must(some.every((id) => idPattern.test(id)), 'unknownUser');
      const [{ count }] = await this.#db('users').whereIn('id', some).count({ count: '*' });
      must(Number(count) === some.length, 'unknownUser');
      const rows = some.map((user) => ({ kind, place, user }));
      await this.#db('members').insert(rows).onConflict(['kind', 'place', 'user']).ignore();
    }
    const [{ count }] = await this.#db('members').where({ kind, place }).count({ count: '*' });
    must(Number(count) <= limits.members, 'limitReached');
  }
}

const newId = (prefix) => prefix + randomBytes(8).toString('hex');
