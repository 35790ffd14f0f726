// Everything the service knows, in memory and bounded. Records are plain objects; nothing here speaks HTTP or Socket.IO.

import { randomBytes } from 'node:crypto';
import { must } from './errors.js';
import { isObject, limits } from './values.js';

const idPattern = /^[A-Za-z0-9._~@-]{1,64}$/; // ids are put into paths as they are

/** Where the messages between two people, or those of one group, are kept. */
export const conversation = {
  between: (one, other) => JSON.stringify([one, other].sort()),
  inGroup: (groupId) => `group ${groupId}`,
};

export class Store {
  constructor(seed) {
    this.reset(seed);
  }

  /** Forgets everything, then takes in the records of `seed`. */
  reset(seed) {
    this.users = new Map();
    this.groups = new Map();
    this.rooms = new Map();
    this.passengers = new Map();
    this.#conversations = new Map();
    for (const user of seed.users) this.addUser(user);
    for (const user of seed.users) user.friends.forEach((friend) => this.befriend(user.id, friend));
    for (const group of seed.groups) this.addGroup(group);
    for (const room of seed.rooms) this.addRoom(room);
  }

  user = (id) => find(this.users, id, 'unknownUser');
  group = (id) => find(this.groups, id, 'unknownGroup');
  room = (id) => find(this.rooms, id, 'unknownRoom');
  passenger = (id) => find(this.passengers, id, 'unknownPassenger');

  /** Adds a user; only `id` is required. */
  addUser({ id, username, password, phone, smsCode, oauth, attributes = {} }) {
    const credentials = { username, password, phone, smsCode, oauth };
    return this.#add(this.users, id, { ...credentials, attributes: fitting(attributes), friends: new Map(), installs: new Set() });
  }

  /** Makes two users friends; nothing happens when they are. Returns the friendship, whose ends are "from" and "to". */
  befriend(fromId, toId) {
    const [from, to] = [this.user(fromId), this.user(toId)];
    must(from !== to, 'invalidValue', 'Nobody is a friend of themselves.');
    if (!from.friends.has(toId)) {
      const friendship = { ts: Date.now(), from: fromId, to: toId };
      from.friends.set(toId, friendship);
      to.friends.set(fromId, friendship);
    }
    return from.friends.get(toId);
  }

  unfriend(oneId, otherId) {
    const one = this.user(oneId);
    must(one.friends.delete(otherId), 'notFriends');
    this.user(otherId).friends.delete(oneId);
  }

  /** The owner becomes a member. `fields` are what the group holds beside what the service knows. */
  addGroup({ id = newId('g'), owner, members = [], attributes = {}, fields = {} }) {
    return this.#add(this.groups, id, {
      owner: this.user(owner).id,
      members: this.#knownUsers([owner, ...members]),
      attributes: fitting(attributes),
      fields: fitting(fields),
    });
  }

  addRoom({ id = newId('r'), name, members = [], attributes = {} }) {
    return this.#add(this.rooms, id, { name, members: this.#knownUsers(members), attributes: fitting(attributes) });
  }

  /** Gives a user, group, room or passenger new values for `changes`' keys; all of them, or none. */
  change(record, { owner, members, attributes, ...changes }) {
    if (owner !== undefined) changes.owner = this.user(owner).id;
    if (members !== undefined) changes.members = this.#knownUsers(members);
    if (attributes !== undefined) changes.attributes = fitting(attributes);
    if (changes.fields !== undefined) fitting(changes.fields);
    Object.assign(record, changes, { updated: Date.now() });
  }

  /** Who is a member already stays one, once. */
  addMembers(place, ids) {
    place.members = this.#knownUsers([...place.members, ...ids]);
  }

  removeMembers(place, ids) {
    const leaving = new Set(ids);
    place.members = place.members.filter((id) => !leaving.has(id));
  }

  addPassenger(id = newId('p'), fields = {}) {
    must(!this.users.has(id), 'invalidValue', 'A user has this id.');
    return this.#add(this.passengers, id, { fields: fitting(fields) });
  }

  /** Notes `install` as a device of the user; the oldest one makes room. */
  addInstall(user, install) {
    user.installs.delete(install);
    user.installs.add(install);
    if (user.installs.size > limits.installs) user.installs.delete(user.installs.values().next().value);
  }

  /** Keeps a message in the order of its "ts". */
  remember(where, message) {
    const messages = this.#conversations.get(where) ?? [];
    this.#conversations.set(where, messages);
    let place = messages.length;
    while (place > 0 && messages[place - 1].ts > message.ts) place -= 1;
    messages.splice(place, 0, message);
    if (messages.length > limits.history) messages.shift();
  }

  /** At most `limit` messages with a "ts" below `before`, the newest first. */
  latest(where, before = Infinity, limit = 1) {
    const messages = this.#conversations.get(where) ?? [];
    return messages
      .filter((message) => message.ts < before)
      .slice(-limit)
      .reverse();
  }

  forget(where) {
    this.#conversations.delete(where);
  }

  #knownUsers(ids) {
    const known = new Set(ids.map((id) => this.user(id).id));
    must(known.size <= limits.members, 'limitReached');
    return [...known];
  }

  #add(records, id, fields) {
    must(typeof id === 'string' && idPattern.test(id), 'invalidValue', 'An id is 1 to 64 letters, digits and . _ ~ @ -');
    must(!records.has(id), 'invalidValue', 'This id is taken.');
    must(records.size < limits.records, 'limitReached');
    const record = { id, ...fields, created: Date.now(), updated: Date.now() };
    records.set(id, record);
    return record;
  }

  #conversations;
}

function find(records, id, error) {
  const record = records.get(id);
  must(record, error);
  return record;
}

/** `fields` itself when it is a JSON object of a bearable size. */
function fitting(fields) {
  must(isObject(fields), 'invalidValue', 'Attributes are a JSON object.');
  must(JSON.stringify(fields).length <= limits.fieldsLength, 'limitReached');
  return fields;
}

const newId = (prefix) => prefix + randomBytes(8).toString('hex');
