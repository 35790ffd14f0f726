// /system: messages from the system itself, to everybody, a user, the members of a group or of a room

import { object } from '../values.js';

export const system = ({ store, live }) => ({
  '/system': {
    post({ body }) {
      live.sendToAll('sys', object(body));
    },
  },
  '/system/:id': {
    post({ params, query, body }) {
      live.send(readers(store, params.id, query), 'sys', object(body));
    },
  },
});

function readers(store, id, query) {
  if ('group' in query) return store.group(id).members;
  if ('room' in query) return store.room(id).members;
  return [store.passengers.get(id) ?? store.user(id)].map((person) => person.id);
}
