// Who is it? A live connection names its user in the connect parameter "auth", a JSON object with "app", "sign" and one of
//   {"client": id, "install": id}   {"username", "password"}   {"phone", "password": the SMS code}   {"oauth": {…}}

import { isDeepStrictEqual } from 'node:util';
import { must } from './errors.js';
import { checkSignature } from './signature.js';
import { isObject } from './values.js';

/** The user (or passenger) whose credentials `parameter` holds. The signature's age is not looked at: a reconnect reuses it. */
export function identify(store, app, parameter) {
  const auth = parse(parameter);
  checkSignature(app, auth.app, auth.sign);
  const person = find(store, auth);
  if (typeof auth.install === 'string' && person.installs) store.addInstall(person, auth.install);
  return person;
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

function find(store, auth) {
  if ('client' in auth) return store.passengers.get(auth.client) ?? store.user(auth.client);
  const users = [...store.users.values()];
  const known = users.find(credentialCheck(auth));
  must(known, 'wrongCredentials');
  return known;
}

function credentialCheck({ username, phone, password, oauth }) {
  const same = (given, kept) => typeof given === 'string' && given === kept;
  if (username !== undefined) return (user) => same(username, user.username) && same(password, user.password);
  if (phone !== undefined) return (user) => same(phone, user.phone) && same(password, user.smsCode);
  return (user) =>
    isObject(oauth) && user.oauth !== undefined && Object.entries(user.oauth).every(([key, value]) => isDeepStrictEqual(oauth[key], value));
}
