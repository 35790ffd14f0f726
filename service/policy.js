// What users may do over REST with their own keys: path → method → rule, a function of { user,
// params, query, body, store }. Whatever has no rule is refused. The application's key may do
// everything, because it says nothing about the user.

import { must } from './errors.js';
import { paths } from './interface.js';

const anyone = () => true;
const oneself = ({ user, params }) => params.id === user;
const member = (kind) => async ({ user, params, store }) =>
  (await store.find(kind, params.id)).members.includes(user);
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

const attributes = (record, read, change) => ({
  [paths[`${record}Attributes`]]: { get: read, post: change, put: change, delete: change },
  [paths[`${record}Attribute`]]: { get: read },
});

export const policy = {
  [paths.users]: { get: anyone },
  [paths.user]: { get: anyone },
  [paths.userInstalls]: { delete: oneself },
  [paths.userGroups]: { get: oneself },
  [paths.userRooms]: { get: oneself },
  ...attributes('user', anyone, oneself),
  [paths.friends]: { get: oneself },
  [paths.friend]: { get: oneself, post: oneself, delete: oneself },
  [paths.friendChats]: { get: oneself },
  [paths.groups]: { get: anyone, post: ({ user, body }) => body?.owner === user },
  [paths.group]: { get: member('groups'), put: owner, delete: mayDelete },
  [paths.groupMembers]: { post: member('groups'), delete: either(owner, onlyMe(inMembers)) },
  [paths.groupChats]: { get: member('groups') },
  ...attributes('group', member('groups'), owner),
  [paths.rooms]: { get: anyone, post: anyone },
  [paths.room]: { get: anyone, put: member('rooms') },
  [paths.roomMembers]: { post: either(member('rooms'), onlyMe(inMembers)),
    delete: either(member('rooms'), onlyMe((body) => body)) },
  ...attributes('room', anyone, member('rooms')),
  [paths.passenger]: { get: anyone },
  [paths.passengerChats]: { get: ({ user, params }) => params.user === user },
  [paths.systemTo]: { post: mayNotify },
};

/** Throws "notAllowed" unless the user may do that. */
export async function authorize(path, method, request, store) {
  const { user, params, query, body } = request;
  if (user === undefined) return;
  const rule = policy[path]?.[method];
  must(rule && (await rule({ user, params, query, body, store })), 'notAllowed');
}

/**
 * The part of an answer that this user may see: no lists of other users' friends, groups and rooms,
 * and no groups that the user is not in.
 */
export function visible(path, user, answer) {
  if (user === undefined) return answer;
  if (path === paths.users) return answer.map((record) => visible(paths.user, user, record));
  if (path === paths.groups && Array.isArray(answer))
    return answer.filter(({ members }) => members.includes(user));
  if (path !== paths.user || answer?.id === user) return answer;
  const { friends, groups, rooms, ...open } = answer;
  return open;
}
