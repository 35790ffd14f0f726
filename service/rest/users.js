// /ctx: users, their installations and lists

import { object, texts } from '../values.js';
import { attributes } from './attributes.js';
import { search } from './search.js';

export const users = ({ store, views }) => ({
  '/ctx': {
    get: ({ query }) => search(store.users.values(), query).map(views.user),
  },
  '/ctx/:id': {
    get: ({ params }) => views.user(store.user(params.id)),
  },
  '/ctx/:id/installs': {
    delete({ params, body }) {
      const user = store.user(params.id);
      // A device that is not known is already gone.
      texts(object(body).installs, 'installs').forEach((install) => user.installs.delete(install));
    },
  },
  '/ctx/:id/groups': {
    get: ({ params, query }) => list(views.groupsOf(store.user(params.id).id), query, views.group),
  },
  '/ctx/:id/rooms': {
    get: ({ params, query }) => list(views.roomsOf(store.user(params.id).id), query, views.room),
  },
  ...attributes('/ctx/:id', store, store.user),
});

/** Ids, or with "?detail" whole records. */
const list = (records, query, view) => records.map('detail' in query ? view : ({ id }) => id);
