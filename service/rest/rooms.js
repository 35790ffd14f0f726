// /rooms: rooms and their members. A room has no owner, its name is not an attribute, and it is
// deleted under /groups.

import { paths } from '../interface.js';
import { object, text, texts } from '../values.js';
import { attributes } from './attributes.js';
import { search } from './search.js';

export const rooms = ({ store, views }) => ({
  [paths.rooms]: {
    get: async ({ query }) => (await search(store, 'rooms', query)).map(views.room),
    async post({ body }) {
      const { name, members } = object(body);
      const room = { name: text(name, 'name'), members: texts(members, 'members') };
      return (await store.addRoom(room)).id;
    },
  },
  [paths.room]: {
    get: async ({ params }) => views.room(await store.room(params.id)),
    async put({ params, body }) {
      await store.change('rooms', params.id, () => ({ name: text(object(body).name, 'name') }));
      return { success: true }; // the client looks for it here
    },
  },
  [paths.roomMembers]: {
    post: ({ params, body }) =>
      store.addMembers('rooms', params.id, texts(object(body).members, 'members')),
    // A bare array, unlike everywhere else.
    delete: ({ params, body }) => store.removeMembers('rooms', params.id, texts(body, 'body')),
  },
  ...attributes('room', store, 'rooms'),
});
