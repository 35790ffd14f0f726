// /passengers: anonymous visitors, and their talks with users

import { conversation } from '../store.js';
import { object } from '../values.js';
import { history } from './history.js';

export const passengers = ({ store, views }) => ({
  '/passengers': {
    // Changes the passenger whose "id" is given, or makes one.
    post({ body }) {
      const { id, ts, ...fields } = object(body);
      const passenger = store.passengers.get(id);
      if (!passenger) return store.addPassenger(id, fields).id;
      store.change(passenger, { fields: { ...passenger.fields, ...fields } });
      return id;
    },
  },
  '/passengers/:id': {
    get: ({ params }) => views.passenger(store.passenger(params.id)),
  },
  '/passengers/:id/chats/:user': {
    get({ params, query }) {
      return history(store, conversation.between(store.passenger(params.id).id, store.user(params.user).id), query);
    },
  },
});
