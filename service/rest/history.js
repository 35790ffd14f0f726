// …/chats?ts&limit: the messages of a conversation, newest first

import { count, limits } from '../values.js';

/**
 * At most "limit" messages from before "ts" (milliseconds). If both are missing or 0: the newest
 * 20.
 */
export function history(store, conversation, query) {
  const before = count(query.ts, 'ts') || Infinity;
  const limit = count(query.limit, 'limit') || limits.page;
  return store.latest(conversation, before, Math.min(limit, limits.longestPage));
}
