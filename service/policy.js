// Who may do what over REST with a key of their own: path → method → a rule, a function of { user, params, query, body, store }.
// What has no rule is refused. The application's key may do everything: it says nothing about the user.

import { must } from './errors.js';

const anyone = () => true;
const oneself = ({ user, params }) => params.id === user;
const member = (kind) => async ({ user, params, store }) => (await store.find(kind, params.id)).members.includes(user);
const owner = async ({ user, params, store }) => (await store.group(params.id)).owner === user;
const onlyMe = (list) => (request) => {
  const ids = list(request.body ?? {});
  return Array.isArray(ids) && ids.length > 0 && ids.every((id) => id === request.user);
};
const either =
  (...rules) =>
  async (request) => {
    for (const rule of rules) if (await rule(request)) return true;
    return false;
  };
const inMembers = (body) => body.members;

/** Groups and rooms are deleted at the same path. */
async function mayDelete(request) {
  const isRoom = await request.store.room(request.params.id).then(
    () => true,
    () => false,
  );
  return isRoom ? member('rooms')(request) : owner(request);
}

async function mayNotify(request) {
  const { user, params, query, store } = request;
  if ('group' in query) return member('groups')(request);
  if ('room' in query) return member('rooms')(request);
  return params.id === user || (await store.friendship(user, params.id)) !== undefined;
}

const attributes = (prefix, read, change) => ({
  [`${prefix}/attributes`]: { get: read, post: change, put: change, delete: change },
  [`${prefix}/attributes/:key`]: { get: read },
});

export const policy = {
  '/ctx': { get: anyone },
  '/ctx/:id': { get: anyone },
  '/ctx/:id/installs': { delete: oneself },
  '/ctx/:id/groups': { get: oneself },
  '/ctx/:id/rooms': { get: oneself },
  ...attributes('/ctx/:id', anyone, oneself),
  '/ctx/:id/friends': { get: oneself },
  '/ctx/:id/friends/:friend': { get: oneself, post: oneself, delete: oneself },
  '/ctx/:id/friends/:friend/chats': { get: oneself },
  '/groups': { get: anyone, post: ({ user, body }) => body?.owner === user },
  '/groups/:id': { get: member('groups'), put: owner, delete: mayDelete },
  '/groups/:id/members': { post: member('groups'), delete: either(owner, onlyMe(inMembers)) },
  '/groups/:id/chats': { get: member('groups') },
  ...attributes('/groups/:id', member('groups'), owner),
  '/rooms': { get: anyone, post: anyone },
  '/rooms/:id': { get: anyone, put: member('rooms') },
  '/rooms/:id/members': { post: either(member('rooms'), onlyMe(inMembers)), delete: either(member('rooms'), onlyMe((body) => body)) },
  ...attributes('/rooms/:id', anyone, member('rooms')),
  '/passengers/:id': { get: anyone },
  '/passengers/:id/chats/:user': { get: ({ user, params }) => params.user === user },
  '/system/:id': { post: mayNotify },
};

/** Throws "notAllowed" unless the one who asks may do that. */
export async function authorize(path, method, request, store) {
  const { user, params, query, body } = request;
  if (user === undefined) return;
  const rule = policy[path]?.[method];
  must(rule && (await rule({ user, params, query, body, store })), 'notAllowed');
}

/** What of an answer is for this user: of others no lists of friends and places, and no group that one is not in. */
export function visible(path, user, answer) {
  if (user === undefined) return answer;
  if (path === '/ctx') return answer.map((record) => visible('/ctx/:id', user, record));
  if (path === '/groups' && Array.isArray(answer)) return answer.filter(({ members }) => members.includes(user));
  if (path !== '/ctx/:id' || answer?.id === user) return answer;
  const { friends, groups, rooms, ...open } = answer;
  return open;
}
