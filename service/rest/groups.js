// /groups: groups, their members and messages

import { free, paths } from '../interface.js';
import { conversation } from '../store.js';
import { given, inTurn, object, text, texts } from '../values.js';
import { attributes } from './attributes.js';
import { history } from './history.js';
import { search } from './search.js';

export const groups = ({ store, views }) => ({
  [paths.groups]: {
    get: async ({ query }) => inTurn(await search(store, 'groups', query), views.group),
    async post({ body }) {
      const { owner, attributes, ...rest } = split(object(body), {});
      return (await store.addGroup({ owner: text(owner, 'owner'), attributes, ...rest })).id;
    },
  },
  [paths.group]: {
    get: async ({ params }) => views.group(await store.group(params.id)),
    async put({ params, body }) {
      await store.change('groups', params.id, (group) => {
        const { fields, ...known } = split(object(body), group.attributes);
        return { ...known, fields: { ...group.fields, ...fields } };
      });
    },
    delete: ({ params }) => store.removePlace(params.id), // rooms are deleted here too
  },
  [paths.groupMembers]: {
    post: ({ params, body }) =>
      store.addMembers('groups', params.id, texts(object(body).members, 'members')),
    delete: ({ params, body }) =>
      store.removeMembers('groups', params.id, texts(object(body).members, 'members')),
  },
  [paths.groupChats]: {
    get: async ({ params, query }) =>
      history(store, conversation.inGroup((await store.group(params.id)).id), query),
  },
  ...attributes('group', store, 'groups'),
});

/**
 * Splits a body. A group's name is one of its attributes. Fields that the service sets itself are
 * left out; all others are stored unchanged.
 */
function split(body, oldAttributes) {
  const { owner, members, attributes } = given('group', body);
  const { name, ...fields } = free('group', body);
  if (name === undefined) return { owner, members, attributes, fields };
  return { owner, members, attributes: { ...(attributes ?? oldAttributes), name }, fields };
}
