// /ctx/…/friends: the friends of a user, and the messages between them

import { must } from '../errors.js';
import { paths } from '../interface.js';
import { conversation } from '../store.js';
import { inTurn } from '../values.js';
import { history } from './history.js';

export const friends = ({ store, views }) => ({
  [paths.friends]: {
    async get({ params, query }) {
      const { id } = await store.user(params.id);
      const ids = await store.friends(id);
      return 'detail' in query ? inTurn(ids, (friend) => views.friend(id, friend)) : ids;
    },
  },
  [paths.friend]: {
    async get({ params }) {
      await mustBeFriends(store, params);
      return views.friend(params.id, params.friend);
    },
    async post({ params }) {
      await store.befriend(params.id, params.friend);
      return views.friend(params.id, params.friend);
    },
    delete: ({ params }) => store.unfriend(params.id, params.friend),
  },
  [paths.friendChats]: {
    async get({ params, query }) {
      await mustBeFriends(store, params);
      return history(store, conversation.between(params.id, params.friend), query);
    },
  },
});

async function mustBeFriends(store, { id, friend }) {
  await store.user(id);
  await store.user(friend);
  must(await store.friendship(id, friend), 'notFriends');
}
