// …/attributes: the free-form object of a user, group or room

import { must } from '../errors.js';
import { paths } from '../interface.js';
import { object } from '../values.js';

/** The attribute paths of a `record`, such as "group"; `kind` is the name of its table. */
export const attributes = (record, store, kind) => ({
  [paths[`${record}Attributes`]]: {
    get: async ({ params }) => (await store.find(kind, params.id)).attributes,
    async post({ params, body }) {
      await store.change(kind, params.id,
        ({ attributes }) => ({ attributes: { ...attributes, ...object(body) } }));
    },
    async put({ params, body }) {
      await store.change(kind, params.id, () => ({ attributes: object(body) }));
    },
    async delete({ params }) {
      await store.change(kind, params.id, () => ({ attributes: {} }));
    },
  },
  [paths[`${record}Attribute`]]: {
    async get({ params }) {
      const { attributes } = await store.find(kind, params.id);
      must(Object.hasOwn(attributes, params.key), 'unknownAttribute');
      return attributes[params.key];
    },
  },
});
