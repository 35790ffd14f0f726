// Who is it? A live connection names its user in the connect parameter "auth", a JSON object with
// "app", "sign" and the keys of one kind of credentials:
//   "client": id, "install": id     "username", "password"
//   "phone", "password": SMS code   "oauth": {…}

import { must } from './errors.js';
import { sentences } from './interface.js';
import { isObject } from './values.js';

/**
 * Returns a function (parameter, address) that resolves to the id of the user or passenger whose
 * credentials are in the connect parameter. The signature may be old, because a reconnect reuses
 * it. `idLogin` says who may log in with an id alone: "any", "passengers" or "off" (nobody).
 */
export const identifier =
  ({ store, verify, idLogin, throttle }) =>
  (parameter, address) => {
    const auth = parse(parameter);
    return throttle.attempt(address, async (account) => {
      const { user } = await verify(auth.app, auth.sign);
      const name = accountOf(auth);
      if (name !== undefined) await account(name);
      // the key has proved who this is
      const id = await find(store, auth, user === undefined ? idLogin : 'any');
      must(user === undefined || user === id, 'notAllowed', 'This key belongs to another user.');
      if (typeof auth.install === 'string' && !(await store.isPassenger(id)))
        await store.addInstall(id, auth.install);
      return id;
    });
  };

/** The name of the account whose password is tried. */
const accountOf = ({ username, phone }) =>
  [username, phone].find((name) => typeof name === 'string' && name !== '');

function parse(parameter) {
  let auth;
  try {
    auth = JSON.parse(parameter);
  } catch {
    // Text that is not JSON is not an object either.
  }
  must(isObject(auth), 'malformedBody', sentences.notAuth);
  return auth;
}

/** The id of the user to whom the credentials belong. */
async function find(store, auth, idLogin) {
  if ('client' in auth) {
    const isPassenger = idLogin !== 'off' && (await store.isPassenger(auth.client));
    must(isPassenger || idLogin === 'any', 'wrongCredentials', 'An id alone does not log in here.');
    return isPassenger ? auth.client : (await store.user(auth.client)).id;
  }
  const id = await store.userWith(auth);
  must(id !== undefined, 'wrongCredentials');
  return id;
}
