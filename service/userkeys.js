// A key of a user's own. The application's key proves which application asks, and whoever has it
// may act for everybody; a user's key proves who asks. It goes where the application's goes, so
// that clients need to know nothing of it:
//   app id := application's id ':' user's id
//   key    := base64url(HMAC-SHA-256(secret, JSON [user's id, password hash]))
// It is not stored: a new password means a new key, and a removed user has none.

import { createHmac } from 'node:crypto';
import { ServiceError, must } from './errors.js';
import { checkSignature } from './signature.js';

/** The key of a user's record. */
export const userKey = (secret, { id, password }) =>
  createHmac('sha256', secret)
    .update(JSON.stringify([id, password ?? null]))
    .digest('base64url');

/**
 * Returns a function (user id) that resolves to {"app", "key"}, which this user uses in place of
 * the application's id and key.
 */
export const keyring =
  ({ store, app, userSecret }) =>
  async (id) => {
    must(userSecret !== undefined, 'notAllowed',
      'Users have their own keys only with --user-secret.');
    const user = await store.user(id);
    return { app: `${app.appId}:${id}`, key: userKey(userSecret, user) };
  };

/**
 * Returns a function (app id, signature) that resolves to {"seconds", "user"}: when the signature
 * was made, and with whose key (no user: the application's). Throws if it was made with neither.
 */
export const verifier =
  ({ store, app, userSecret }) =>
  async (appId, signature) => {
    const prefix = `${app.appId}:`;
    if (userSecret === undefined || !appId?.startsWith?.(prefix))
      return { seconds: checkSignature(app, appId, signature) };
    const user = appId.slice(prefix.length);
    const record = await store.user(user).catch((error) => {
      if (!(error instanceof ServiceError)) throw error;
      return { id: user, password: 'nobody' }; // so that strangers cannot find out who is a user
    });
    const clientKey = userKey(userSecret, record);
    return { seconds: checkSignature({ appId, clientKey }, appId, signature), user };
  };
