// /groups: groups, their members and messages

import { must } from '../errors.js';
import { conversation } from '../store.js';
import { object, text, texts } from '../values.js';
import { attributes } from './attributes.js';
import { history } from './history.js';
import { search } from './search.js';

export const groups = ({ store, views }) => ({
  '/groups': {
    get: ({ query }) => search(store.groups.values(), query).map(views.group),
    post({ body }) {
      const { owner, attributes, ...rest } = split(object(body), {});
      return store.addGroup({ owner: text(owner, 'owner'), attributes, ...rest }).id;
    },
  },
  '/groups/:id': {
    get: ({ params }) => views.group(store.group(params.id)),
    put({ params, body }) {
      const group = store.group(params.id);
      const { fields, ...known } = split(object(body), group.attributes);
      store.change(group, { ...known, fields: { ...group.fields, ...fields } });
    },
    // Rooms are deleted here too.
    delete({ params }) {
      if (store.groups.delete(params.id)) store.forget(conversation.inGroup(params.id));
      else must(store.rooms.delete(params.id), 'unknownGroup');
    },
  },
  '/groups/:id/members': {
    post: ({ params, body }) => store.addMembers(store.group(params.id), texts(object(body).members, 'members')),
    delete: ({ params, body }) => store.removeMembers(store.group(params.id), texts(object(body).members, 'members')),
  },
  '/groups/:id/chats': {
    get: ({ params, query }) => history(store, conversation.inGroup(store.group(params.id).id), query),
  },
  ...attributes('/groups/:id', store, store.group),
});

/** The parts of a body. A group's name is one of its attributes; what the service itself sets is left out; all else is kept as it comes. */
function split({ id, ts, recent, owner, members, name, attributes, ...fields }, oldAttributes) {
  if (members !== undefined) texts(members, 'members');
  if (name !== undefined) attributes = { ...(attributes ?? oldAttributes), name };
  return { owner, members, attributes, fields };
}
