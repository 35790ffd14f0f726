// The JSON form of each record, as REST answers it.

import { conversation } from './store.js';

export function views({ store, live }) {
  const recent = async (where) => {
    const [message] = await store.latest(where);
    return message && { recent: message };
  };
  const idsOf = async (kind, userId) => (await store.placesOf(kind, userId)).map((place) => place.id);

  return {
    async user({ id, updated, attributes }) {
      const sessions = await live.sessions(id);
      return {
        id,
        online: sessions > 0,
        sessions,
        ts: updated,
        attributes,
        friends: await store.friends(id),
        groups: await idsOf('groups', id),
        rooms: await idsOf('rooms', id),
      };
    },

    friend: async (userId, friendId) => ({
      id: friendId,
      online: (await live.sessions(friendId)) > 0,
      ...(await store.friendship(userId, friendId)), // ts, from, to
      ...(await recent(conversation.between(userId, friendId))),
    }),

    group: async ({ id, created, owner, members, attributes, fields }) => ({
      ...fields,
      id,
      owner,
      members,
      ts: created,
      attributes,
      ...(await recent(conversation.inGroup(id))),
    }),

    room: ({ id, created, name, members, attributes }) => ({ id, name, members, ts: created, attributes }),

    passenger: ({ id, created, fields }) => ({ ...fields, id, ts: created }),
  };
}
