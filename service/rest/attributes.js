// …/attributes: the free-form object that users, groups and rooms carry

import { must } from '../errors.js';
import { object } from '../values.js';

/** The attribute paths below `prefix`, which holds ":id"; `find` gives the owner for an id. */
export const attributes = (prefix, store, find) => ({
  [`${prefix}/attributes`]: {
    get: ({ params }) => find(params.id).attributes,
    post({ params, body }) {
      const owner = find(params.id);
      store.change(owner, { attributes: { ...owner.attributes, ...object(body) } });
    },
    put({ params, body }) {
      store.change(find(params.id), { attributes: object(body) });
    },
    delete({ params }) {
      store.change(find(params.id), { attributes: {} });
    },
  },
  [`${prefix}/attributes/:key`]: {
    get({ params }) {
      const owner = find(params.id);
      must(Object.hasOwn(owner.attributes, params.key), 'unknownAttribute');
      return owner.attributes[params.key];
    },
  },
});
