// Who is it? A live connection names its user in the connect parameter "auth", a JSON object with "app", "sign" and one of
//   {"client": id, "install": id}   {"username", "password"}   {"phone", "password": the SMS code}   {"oauth": {…}}

import { must } from './errors.js';
import { checkSignature } from './signature.js';
import { isObject } from './values.js';

/** The id of the user (or passenger) whose credentials `parameter` holds. The signature's age is not looked at: a reconnect reuses it. */
export async function identify(store, app, parameter) {
  const auth = parse(parameter);
  checkSignature(app, auth.app, auth.sign);
  const id = await find(store, auth);
  if (typeof auth.install === 'string' && !(await store.isPassenger(id))) await store.addInstall(id, auth.install);
  return id;
}

function parse(parameter) {
  let auth;
  try {
    auth = JSON.parse(parameter);
  } catch {
    // No JSON is no object either.
  }
  must(isObject(auth), 'malformedBody', 'The connect parameter "auth" must be a JSON object.');
  return auth;
}

/** The id of whom the credentials belong to. */
async function find(store, auth) {
  if ('client' in auth) return (await store.isPassenger(auth.client)) ? auth.client : (await store.user(auth.client)).id;
  const id = await store.userWith(auth);
  must(id !== undefined, 'wrongCredentials');
  return id;
}
