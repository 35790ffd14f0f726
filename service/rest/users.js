// /ctx: users, their installations and lists

import { paths } from '../interface.js';
import { inTurn, object, texts } from '../values.js';
import { attributes } from './attributes.js';
import { search } from './search.js';

export const users = ({ store, views }) => ({
  [paths.users]: {
    get: async ({ query }) => inTurn(await search(store, 'users', query), views.user),
  },
  [paths.user]: {
    get: async ({ params }) => views.user(await store.user(params.id)),
  },
  [paths.userInstalls]: {
    delete: ({ params, body }) =>
      store.removeInstalls(params.id, texts(object(body).installs, 'installs')),
  },
  [paths.userGroups]: {
    get: ({ params, query }) => list(store, 'groups', params.id, query, views.group),
  },
  [paths.userRooms]: {
    get: ({ params, query }) => list(store, 'rooms', params.id, query, views.room),
  },
  ...attributes('user', store, 'users'),
});

/** Ids, or with "?detail" whole records. */
async function list(store, kind, userId, query, view) {
  const places = await store.placesOf(kind, (await store.user(userId)).id);
  return inTurn(places, 'detail' in query ? view : ({ id }) => id);
}
