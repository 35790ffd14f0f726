// Everything the service knows, in memory and bounded. Records are plain objects; nothing here speaks HTTP or Socket.IO.
// All methods are asynchronous: a database may stand behind them. `kind` is 'users', 'groups', 'rooms' or 'passengers'.

import { randomBytes } from 'node:crypto';
import { isDeepStrictEqual } from 'node:util';
import { must } from './errors.js';
import { isObject, limits } from './values.js';

const idPattern = /^[A-Za-z0-9._~@-]{1,64}$/; // ids are put into paths as they are

/** Where the messages between two people, or those of one group, are kept. */
export const conversation = {
  between: (one, other) => JSON.stringify([one, other].sort()),
  inGroup: (groupId) => `group ${groupId}`,
};

export class Store {
  /** Forgets everything, then takes in the records of `seed`. */
  async reset(seed) {
    this.#records = { users: new Map(), groups: new Map(), rooms: new Map(), passengers: new Map() };
    this.#conversations = new Map();
    for (const user of seed.users) await this.addUser(user);
    for (const user of seed.users) for (const friend of user.friends) await this.befriend(user.id, friend);
    for (const group of seed.groups) await this.addGroup(group);
    for (const room of seed.rooms) await this.addRoom(room);
  }

  /** The record of one user, group, room or passenger; throws when there is none. */
  async find(kind, id) {
    const record = this.#records[kind].get(id);
    must(record, unknown[kind]);
    return record;
  }

  user = (id) => this.find('users', id);
  group = (id) => this.find('groups', id);
  room = (id) => this.find('rooms', id);
  passenger = (id) => this.find('passengers', id);

  async isPassenger(id) {
    return this.#records.passengers.has(id);
  }

  /** All records of a kind, in the order in which they were added. */
  async all(kind) {
    return [...this.#records[kind].values()];
  }

  /** Adds a user; only `id` is required. */
  async addUser({ id, username, password, phone, smsCode, oauth, attributes = {} }) {
    const credentials = { username, password, phone, smsCode, oauth };
    return this.#add('users', id, { ...credentials, attributes: fitting(attributes), friends: new Map(), installs: new Set() });
  }

  /** The id of the user with these credentials (see login.js); nothing when they match nobody. */
  async userWith(credentials) {
    const check = credentialCheck(credentials);
    return (await this.all('users')).find(check)?.id;
  }

  /** The ids of a user's friends, the oldest friendship first. */
  async friends(id) {
    return [...((await this.#records.users.get(id))?.friends.keys() ?? [])];
  }

  /** Since when two users are friends, and who asked whom: {"ts", "from", "to"}; nothing when they are not. */
  async friendship(oneId, otherId) {
    return this.#records.users.get(oneId)?.friends.get(otherId);
  }

  /** The groups or rooms that the user is a member of, in the order in which they were added. */
  async placesOf(kind, userId) {
    return (await this.all(kind)).filter((place) => place.members.includes(userId));
  }

  /** Makes two users friends; nothing happens when they are. Returns the friendship, whose ends are "from" and "to". */
  async befriend(fromId, toId) {
    const [from, to] = [await this.user(fromId), await this.user(toId)];
    must(from !== to, 'invalidValue', 'Nobody is a friend of themselves.');
    if (!from.friends.has(toId)) {
      const friendship = { ts: Date.now(), from: fromId, to: toId };
      from.friends.set(toId, friendship);
      to.friends.set(fromId, friendship);
    }
    return from.friends.get(toId);
  }

  async unfriend(oneId, otherId) {
    const one = await this.user(oneId);
    must(one.friends.delete(otherId), 'notFriends');
    (await this.user(otherId)).friends.delete(oneId);
  }

  /** The owner becomes a member. `fields` are what the group holds beside what the service knows. */
  async addGroup({ id = newId('g'), owner, members = [], attributes = {}, fields = {} }) {
    return this.#add('groups', id, {
      owner: (await this.user(owner)).id,
      members: await this.#knownUsers([owner, ...members]),
      attributes: fitting(attributes),
      fields: fitting(fields),
    });
  }

  async addRoom({ id = newId('r'), name, members = [], attributes = {} }) {
    return this.#add('rooms', id, { name, members: await this.#knownUsers(members), attributes: fitting(attributes) });
  }

  /** Changes a record: `make` gets it and returns new values for some of its keys. All of them are taken, or none. */
  async change(kind, id, make) {
    const record = await this.find(kind, id);
    const { owner, members, attributes, ...changes } = make(record);
    if (owner !== undefined) changes.owner = (await this.user(owner)).id;
    if (members !== undefined) changes.members = await this.#knownUsers(members);
    if (attributes !== undefined) changes.attributes = fitting(attributes);
    if (changes.fields !== undefined) fitting(changes.fields);
    Object.assign(record, changes, { updated: Date.now() });
  }

  /** Who is a member already stays one, once. */
  async addMembers(kind, id, ids) {
    const place = await this.find(kind, id);
    place.members = await this.#knownUsers([...place.members, ...ids]);
  }

  async removeMembers(kind, id, ids) {
    const place = await this.find(kind, id);
    const leaving = new Set(ids);
    place.members = place.members.filter((id) => !leaving.has(id));
  }

  /** Removes the group of this id, and what was said in it, or the room. */
  async removePlace(id) {
    if (this.#records.groups.delete(id)) this.#conversations.delete(conversation.inGroup(id));
    else must(this.#records.rooms.delete(id), 'unknownGroup');
  }

  async addPassenger(id = newId('p'), fields = {}) {
    must(!this.#records.users.has(id), 'invalidValue', 'A user has this id.');
    return this.#add('passengers', id, { fields: fitting(fields) });
  }

  /** Notes `install` as a device of the user; the oldest one makes room. */
  async addInstall(userId, install) {
    const user = await this.user(userId);
    user.installs.delete(install);
    user.installs.add(install);
    if (user.installs.size > limits.installs) user.installs.delete(user.installs.values().next().value);
  }

  /** A device that is not known is already gone. */
  async removeInstalls(userId, installs) {
    const user = await this.user(userId);
    for (const install of installs) user.installs.delete(install);
  }

  /** Keeps a message in the order of its "ts". */
  async remember(where, message) {
    const messages = this.#conversations.get(where) ?? [];
    this.#conversations.set(where, messages);
    let place = messages.length;
    while (place > 0 && messages[place - 1].ts > message.ts) place -= 1;
    messages.splice(place, 0, message);
    if (messages.length > limits.history) messages.shift();
  }

  /** At most `limit` messages with a "ts" below `before`, the newest first. */
  async latest(where, before = Infinity, limit = 1) {
    const messages = this.#conversations.get(where) ?? [];
    return messages
      .filter((message) => message.ts < before)
      .slice(-limit)
      .reverse();
  }

  async #knownUsers(ids) {
    const known = new Set(ids);
    for (const id of known) await this.user(id);
    must(known.size <= limits.members, 'limitReached');
    return [...known];
  }

  #add(kind, id, fields) {
    const records = this.#records[kind];
    must(typeof id === 'string' && idPattern.test(id), 'invalidValue', 'An id is 1 to 64 letters, digits and . _ ~ @ -');
    must(!records.has(id), 'invalidValue', 'This id is taken.');
    must(records.size < limits.records, 'limitReached');
    const record = { id, ...fields, created: Date.now(), updated: Date.now() };
    records.set(id, record);
    return record;
  }

  #records;
  #conversations;
}

const unknown = { users: 'unknownUser', groups: 'unknownGroup', rooms: 'unknownRoom', passengers: 'unknownPassenger' };

function credentialCheck({ username, phone, password, oauth }) {
  const same = (given, kept) => typeof given === 'string' && given === kept;
  if (username !== undefined) return (user) => same(username, user.username) && same(password, user.password);
  if (phone !== undefined) return (user) => same(phone, user.phone) && same(password, user.smsCode);
  return (user) =>
    isObject(oauth) && user.oauth !== undefined && Object.entries(user.oauth).every(([key, value]) => isDeepStrictEqual(oauth[key], value));
}

/** `fields` itself when it is a JSON object of a bearable size. */
function fitting(fields) {
  must(isObject(fields), 'invalidValue', 'Attributes are a JSON object.');
  must(JSON.stringify(fields).length <= limits.fieldsLength, 'limitReached');
  return fields;
}

const newId = (prefix) => prefix + randomBytes(8).toString('hex');
