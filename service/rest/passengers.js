// /passengers: anonymous visitors, and their messages with users

import { free, paths } from '../interface.js';
import { conversation } from '../store.js';
import { given, object } from '../values.js';
import { history } from './history.js';

export const passengers = ({ store, views }) => ({
  [paths.passengers]: {
    // Changes the passenger with this "id", or creates one.
    async post({ body }) {
      const { id } = given('passenger', object(body));
      const fields = free('passenger', body);
      if (!(await store.isPassenger(id))) return (await store.addPassenger(id, fields)).id;
      await store.change('passengers', id,
        (passenger) => ({ fields: { ...passenger.fields, ...fields } }));
      return id;
    },
  },
  [paths.passenger]: {
    get: async ({ params }) => views.passenger(await store.passenger(params.id)),
  },
  [paths.passengerChats]: {
    async get({ params, query }) {
      await store.passenger(params.id);
      await store.user(params.user);
      return history(store, conversation.between(params.id, params.user), query);
    },
  },
});
