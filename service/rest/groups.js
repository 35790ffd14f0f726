// /groups: groups, their members and messages

import { conversation } from '../store.js';
import { inTurn, object, text, texts } from '../values.js';
import { attributes } from './attributes.js';
import { history } from './history.js';
import { search } from './search.js';

export const groups = ({ store, views }) => ({
  '/groups': {
    get: async ({ query }) => inTurn(await search(store, 'groups', query), views.group),
    async post({ body }) {
      const { owner, attributes, ...rest } = split(object(body), {});
      return (await store.addGroup({ owner: text(owner, 'owner'), attributes, ...rest })).id;
    },
  },
  '/groups/:id': {
    get: async ({ params }) => views.group(await store.group(params.id)),
    async put({ params, body }) {
      await store.change('groups', params.id, (group) => {
        const { fields, ...known } = split(object(body), group.attributes);
        return { ...known, fields: { ...group.fields, ...fields } };
      });
    },
    delete: ({ params }) => store.removePlace(params.id), // rooms are deleted here too
  },
  '/groups/:id/members': {
    post: ({ params, body }) => store.addMembers('groups', params.id, texts(object(body).members, 'members')),
    delete: ({ params, body }) => store.removeMembers('groups', params.id, texts(object(body).members, 'members')),
  },
  '/groups/:id/chats': {
    get: async ({ params, query }) => history(store, conversation.inGroup((await store.group(params.id)).id), query),
  },
  ...attributes('/groups/:id', store, 'groups'),
});

/** The parts of a body. A group's name is one of its attributes; what the service itself sets is left out; all else is kept as it comes. */
function split({ id, ts, recent, owner, members, name, attributes, ...fields }, oldAttributes) {
  if (members !== undefined) texts(members, 'members');
  if (name !== undefined) attributes = { ...(attributes ?? oldAttributes), name };
  return { owner, members, attributes, fields };
}
