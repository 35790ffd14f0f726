// Changes to users that only whoever runs the service may make, directly in the database.

import { must } from './errors.js';
import { hashed } from './passwords.js';
import { conversation } from './store.js';

export async function setPassword(db, id, password) {
  const hash = await hashed(password);
  must((await db('users').where({ id }).update({ password: hash, updated: Date.now() })) > 0,
    'unknownUser');
}

/**
 * Their groups pass to the longest-standing member, or are removed if there is none. Conversations
 * are removed, too, so a later user with the same id cannot read them. Messages in groups stay.
 */
export async function removeUser(db, id) {
  await db.transaction(async (trx) => {
    must(await trx('users').where({ id }).first('id').forUpdate(), 'unknownUser');
    await trx('members').where({ user: id }).del();
    for (const group of await trx('groups').where({ owner: id }).pluck('id')) {
      const heir = await trx('members').where({ kind: 'groups', place: group }).orderBy('seq')
        .first('user');
      if (heir) await trx('groups').where({ id: group }).update({ owner: heir.user });
      else await removeGroup(trx, group);
    }
    const talks = await trx('messages').distinct('conversation')
      .where('conversation', 'like', `[%"${id}"%]`).pluck('conversation');
    for (const talk of talks.filter((one) => JSON.parse(one).includes(id)))
      await trx('messages').where({ conversation: talk }).del();
    await trx('friends').where({ user: id }).orWhere({ friend: id }).del();
    await trx('installs').where({ user: id }).del();
    await trx('terms').where({ kind: 'users', id }).del();
    await trx('users').where({ id }).del();
  });
}

async function removeGroup(trx, id) {
  await trx('messages').where({ conversation: conversation.inGroup(id) }).del();
  await trx('terms').where({ kind: 'groups', id }).del();
  await trx('groups').where({ id }).del();
}
