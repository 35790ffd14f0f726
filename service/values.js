// Limits and checks for what clients send.

import { createHash } from 'node:crypto';
import { must } from './errors.js';
import { named, records, sentences } from './interface.js';

export const idPattern = /^[A-Za-z0-9._~@-]{1,64}$/; // ids are put into paths as they are

export const limits = {
  records: 200_000, // of each kind
  members: 10_000, // of a group or room
  installs: 32, // of a user
  fieldsLength: 65_536, // characters of one record's attributes, or other free fields, as JSON text
  history: 1_000, // messages of a conversation kept in memory; no limit on disk
  page: 20, // results by default
  longestPage: 1_000, // results at most
};

export const isObject = (value) => typeof value === 'object' && value !== null &&
  !Array.isArray(value);

/** `body` itself. Throws unless it is a JSON object. */
export function object(body) {
  must(isObject(body), 'malformedBody', sentences.notObject);
  return body;
}

/** `fields` itself if it is a JSON object and not too large. */
export function fitting(fields) {
  must(isObject(fields), 'invalidValue', 'Attributes are a JSON object.');
  must(JSON.stringify(fields).length <= limits.fieldsLength, 'limitReached');
  return fields;
}

/** `value` itself. Throws unless it is a string that is not empty. */
export function text(value, name) {
  must(typeof value === 'string' && value !== '', 'invalidValue', named('notText', name));
  return value;
}

/** `value` itself. Throws unless it is an array of strings. */
export function texts(value, name) {
  must(Array.isArray(value) && value.every((item) => typeof item === 'string'), 'invalidValue',
    named('notTexts', name));
  return value;
}

const checks = { text, texts };

/** `body` itself. Throws if a field is not of the kind that interface.json gives for it. */
export function given(record, body) {
  for (const [name, kind] of Object.entries(records[record].given)) {
    if (body[name] !== undefined) checks[kind](body[name], name);
  }
  return body;
}

/** The whole number in the query parameter `value`, or `otherwise` if there is none. */
export function count(value, name, otherwise) {
  if (value === undefined || value === '') return otherwise;
  must(/^[0-9]{1,15}$/.test(value), 'invalidValue', named('notCount', name));
  return Number(value);
}

/**
 * The results of `make` for each of `items`, one after the other, so a long list does not block the
 * database.
 */
export async function inTurn(items, make) {
  const made = [];
  for (const item of items) made.push(await make(item));
  return made;
}

/** `text` itself, or a digest of it if it does not fit into a column. */
export const bounded = (text) => (text.length <= 200 && !text.includes('\0') ? text
  : createHash('sha256').update(text).digest('hex'));
