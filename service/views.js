// The JSON form of each record, as REST answers it.

import { answered } from './interface.js';
import { conversation } from './store.js';

export function views({ store, live }) {
  const recent = async (where) => {
    const [message] = await store.latest(where);
    return message;
  };
  const idsOf = async (kind, userId) =>
    (await store.placesOf(kind, userId)).map((place) => place.id);

  return {
    async user({ id, updated, attributes }) {
      const sessions = await live.sessions(id);
      return answered('user', {
        id,
        online: sessions > 0,
        sessions,
        ts: updated,
        attributes,
        friends: await store.friends(id),
        groups: await idsOf('groups', id),
        rooms: await idsOf('rooms', id),
      });
    },

    friend: async (userId, friendId) =>
      answered('friend', {
        id: friendId,
        online: (await live.sessions(friendId)) > 0,
        ...(await store.friendship(userId, friendId)), // ts, from, to
        recent: await recent(conversation.between(userId, friendId)),
      }),

    group: async (group) => ({
      ...group.fields,
      ...answered('group',
        { ...group, ts: group.created, recent: await recent(conversation.inGroup(group.id)) }),
    }),

    room: (room) => answered('room', { ...room, ts: room.created }),

    passenger: (passenger) =>
      ({ ...passenger.fields, ...answered('passenger', { ...passenger, ts: passenger.created }) }),
  };
}
