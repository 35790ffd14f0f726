// The JSON form of each record, as REST answers it.

import { conversation } from './store.js';

export function views({ store, live }) {
  const placesOf = (places, userId) => [...places.values()].filter((place) => place.members.includes(userId));
  const recent = (where) => {
    const [message] = store.latest(where);
    return message && { recent: message };
  };

  return {
    groupsOf: (userId) => placesOf(store.groups, userId),
    roomsOf: (userId) => placesOf(store.rooms, userId),

    user: ({ id, updated, attributes, friends }) => ({
      id,
      online: live.sessions(id) > 0,
      sessions: live.sessions(id),
      ts: updated,
      attributes,
      friends: [...friends.keys()],
      groups: placesOf(store.groups, id).map((group) => group.id),
      rooms: placesOf(store.rooms, id).map((room) => room.id),
    }),

    friend: (user, friendId) => ({
      id: friendId,
      online: live.sessions(friendId) > 0,
      ...user.friends.get(friendId), // ts, from, to
      ...recent(conversation.between(user.id, friendId)),
    }),

    group: ({ id, created, owner, members, attributes, fields }) => ({
      ...fields,
      id,
      owner,
      members,
      ts: created,
      attributes,
      ...recent(conversation.inGroup(id)),
    }),

    room: ({ id, created, name, members, attributes }) => ({ id, name, members, ts: created, attributes }),

    passenger: ({ id, created, fields }) => ({ ...fields, id, ts: created }),
  };
}
