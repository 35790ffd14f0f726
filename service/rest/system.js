// /system: messages from the system, to everybody, a user, or the members of a group or room

import { paths } from '../interface.js';
import { object } from '../values.js';

export const system = ({ store, live }) => ({
  [paths.system]: {
    async post({ body }) {
      await live.sendToAll('sys', object(body));
    },
  },
  [paths.systemTo]: {
    async post({ params, query, body }) {
      await live.send(await readers(store, params.id, query), 'sys', object(body));
    },
  },
});

async function readers(store, id, query) {
  if ('group' in query) return (await store.group(id)).members;
  if ('room' in query) return (await store.room(id)).members;
  if (!(await store.isPassenger(id))) await store.user(id);
  return [id];
}
