// /rooms: rooms and their members. A room has no owner, its name is no attribute, and it is deleted under /groups.

import { object, text, texts } from '../values.js';
import { attributes } from './attributes.js';
import { search } from './search.js';

export const rooms = ({ store, views }) => ({
  '/rooms': {
    get: ({ query }) => search(store.rooms.values(), query).map(views.room),
    post({ body }) {
      const { name, members } = object(body);
      return store.addRoom({ name: text(name, 'name'), members: texts(members, 'members') }).id;
    },
  },
  '/rooms/:id': {
    get: ({ params }) => views.room(store.room(params.id)),
    put({ params, body }) {
      const room = store.room(params.id);
      room.name = text(object(body).name, 'name');
      return { success: true }; // the client looks for it here
    },
  },
  '/rooms/:id/members': {
    post: ({ params, body }) => store.addMembers(store.room(params.id), texts(object(body).members, 'members')),
    // The bare array, unlike everywhere else.
    delete: ({ params, body }) => store.removeMembers(store.room(params.id), texts(body, 'body')),
  },
  ...attributes('/rooms/:id', store, store.room),
});
