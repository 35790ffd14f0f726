// Passwords and SMS codes are stored as scrypt hashes (RFC 7914), in the form
// scrypt$N$r$p$SALT$HASH (base64), so that the cost can be raised for new ones. Tokens of outside
// identity providers are long and random, so a plain SHA-256 is enough for them.

import { createHash, createHmac, randomBytes, scrypt, timingSafeEqual } from 'node:crypto';
import { promisify } from 'node:util';
import { must } from './errors.js';
import { bounded, fitting, isObject } from './values.js';

// 16 MiB and about 50 ms; a team may log in at once when the service comes back
const cost = { N: 16_384, r: 8, p: 1 };
const derive = promisify(scrypt);
const memory = ({ N, r }) => 256 * N * r;
const keptProofs = 10_000;

/** The hash of a password; nothing if there is none. */
export async function hashed(password) {
  if (password === undefined || password === null) return null;
  const salt = randomBytes(16);
  const key = await derive(password, salt, 32, { ...cost, maxmem: memory(cost) });
  return ['scrypt', cost.N, cost.r, cost.p, salt.toString('base64'),
    key.toString('base64')].join('$');
}

const nobody = await hashed(randomBytes(16));
// keyed digests of correct passwords: a client sends its password again when it reconnects
const proven = new Set();
const processKey = randomBytes(32);

/** Whether the password belongs to `hash`. Takes as long without a hash. */
export async function isRight(password, hash) {
  const [, N, r, p, salt, key] = (hash ?? nobody).split('$');
  const proof = createHmac('sha256', processKey).update(`${hash}$${password}`).digest('base64');
  if (hash && proven.has(proof)) return true;
  const options = { N: Number(N), r: Number(r), p: Number(p) };
  const expected = Buffer.from(key, 'base64');
  const given = await derive(password, Buffer.from(salt, 'base64'), expected.length,
    { ...options, maxmem: memory(options) });
  if (!timingSafeEqual(given, expected) || !hash) return false;
  if (proven.size >= keptProofs) proven.delete(proven.values().next().value);
  proven.add(proof);
  return true;
}

/** SHA-256 of a text, in base64url. */
export const digest = (text) => createHash('sha256').update(text).digest('base64url');

/**
 * The digests of an identity's entries, the longest (most specific) entry first. An identity is
 * proved if all of them are among the digests of what was sent. Nothing if there are no entries.
 */
export function identityDigests(identity) {
  if (!isObject(identity)) return [];
  const entries = Object.entries(identity).map((entry) => canonical(entry));
  entries.sort((a, b) => b.length - a.length || (a < b ? -1 : 1));
  return entries.map(digest);
}

/** JSON that does not depend on the order of keys. */
function canonical(value) {
  if (Array.isArray(value)) return `[${value.map(canonical)}]`;
  if (!isObject(value)) return JSON.stringify(value);
  const keys = Object.keys(value).sort();
  return `{${keys.map((key) => `${JSON.stringify(key)}:${canonical(value[key])}`)}}`;
}

/**
 * A user's record with hashed secrets. Hashing takes long, so do it before a transaction begins.
 */
export async function userRecord(user) {
  const { id, username, password, phone, smsCode, oauth, attributes = {} } = user;
  for (const text of [username, password, phone, smsCode]) {
    must(text === undefined || (typeof text === 'string' && text !== ''), 'invalidValue',
      'Names and secrets are texts.');
  }
  if (!secretsOf.has(user)) secretsOf.set(user, Promise.all([hashed(password), hashed(smsCode)]));
  const [passwordHash, code] = await secretsOf.get(user);
  const identity = identityDigests(oauth);
  const names = { username: username && bounded(username), phone: phone && bounded(phone) };
  return { id, ...names, password: passwordHash, code, identity_key: identity[0], identity,
    attributes: fitting(attributes) };
}

const secretsOf = new WeakMap(); // tests load a seed again and again
