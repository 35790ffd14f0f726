// /passengers: anonymous visitors, and their talks with users

import { conversation } from '../store.js';
import { object } from '../values.js';
import { history } from './history.js';

export const passengers = ({ store, views }) => ({
  '/passengers': {
    // Changes the passenger whose "id" is given, or makes one.
    async post({ body }) {
      const { id, ts, ...fields } = object(body);
      if (!(await store.isPassenger(id))) return (await store.addPassenger(id, fields)).id;
      await store.change('passengers', id, (passenger) => ({ fields: { ...passenger.fields, ...fields } }));
      return id;
    },
  },
  '/passengers/:id': {
    get: async ({ params }) => views.passenger(await store.passenger(params.id)),
  },
  '/passengers/:id/chats/:user': {
    async get({ params, query }) {
      await store.passenger(params.id);
      await store.user(params.user);
      return history(store, conversation.between(params.id, params.user), query);
    },
  },
});
