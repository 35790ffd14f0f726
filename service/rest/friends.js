// /ctx/…/friends: the friends of a user, and what they wrote to each other

import { must } from '../errors.js';
import { conversation } from '../store.js';
import { history } from './history.js';

export const friends = ({ store, views }) => ({
  '/ctx/:id/friends': {
    get({ params, query }) {
      const user = store.user(params.id);
      const ids = [...user.friends.keys()];
      return 'detail' in query ? ids.map((id) => views.friend(user, id)) : ids;
    },
  },
  '/ctx/:id/friends/:friend': {
    get: ({ params }) => views.friend(friendly(store, params), params.friend),
    post({ params }) {
      store.befriend(params.id, params.friend);
      return views.friend(store.user(params.id), params.friend);
    },
    delete: ({ params }) => store.unfriend(params.id, params.friend),
  },
  '/ctx/:id/friends/:friend/chats': {
    get({ params, query }) {
      friendly(store, params);
      return history(store, conversation.between(params.id, params.friend), query);
    },
  },
});

/** The user that the path names first, who is a friend of the second. */
function friendly(store, { id, friend }) {
  const user = store.user(id);
  must(user.friends.has(store.user(friend).id), 'notFriends');
  return user;
}
