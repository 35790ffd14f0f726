// Decides where a message goes. Its payload names the receiver, but never the sender.

import { must } from './errors.js';
import { sentences } from './interface.js';
import { conversation } from './store.js';
import { isObject } from './values.js';

const toUser = 0;
const toGroup = 1;
const toRoom = 2;

/**
 * Returns the message as its readers get it, the conversation that stores it (none for a room) and
 * the ids of its readers. Throws if `sender`, the id of a user or passenger, may not write there.
 */
export async function address(store, sender, payload) {
  must(isObject(payload) && isObject(payload.content) && isObject(payload.to), 'invalidValue',
    sentences.notMessage);
  const { id, type } = payload.to;
  const from = { id: sender, type, ...(type === toUser ? {} : { gid: id }) };
  const message = { ...payload, ts: Number.isFinite(payload.ts) ? payload.ts : Date.now(), from };
  delete message.speaker; // readers would take it for the sender
  if (type === toUser)
    return { message, conversation: conversation.between(sender, id),
      readers: [await partner(store, sender, id)] };
  if (type === toGroup)
    return { message, conversation: conversation.inGroup(id),
      readers: members(await store.group(id), sender) };
  must(type === toRoom, 'invalidValue', sentences.notReceiver);
  return { message, readers: members(await store.room(id), sender) };
}

/** Friends may talk to each other, and passengers to users. */
async function partner(store, sender, id) {
  const { fromPassenger, toPassenger, toUser, areFriends } = await store.relation(sender, id);
  must(toPassenger || toUser, 'unknownUser');
  must(fromPassenger ? toUser : toPassenger || areFriends, 'notFriends');
  return id;
}

function members(place, sender) {
  must(place.members.includes(sender), 'notMember');
  return place.members;
}
