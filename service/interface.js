// Reads interface.json: what the service and the library's test kit have in common. The kit's build
// reads the same file.
//   errors     name → "errorCode", HTTP status and default text
//   sentences  texts for one case, used instead of the default; "%" stands for a name
//   paths      name → REST path, with its parameters
//   records    name → the fields of an answer ("answered"), and the kinds of those that requests
//              must get right ("given")

import { readFileSync } from 'node:fs';

export const { errors, sentences, paths, records } = JSON.parse(
  readFileSync(new URL('interface.json', import.meta.url), 'utf8'));

/** A sentence with `name` in place of its "%". */
export const named = (sentence, name) => sentences[sentence].replace('%', () => name);

/** The fields of `body` that are stored as they are: all that the service does not set itself. */
export const free = (record, body) => Object.fromEntries(Object.entries(body)
  .filter(([name]) => !Object.hasOwn(records[record].answered, name)));

/** The JSON form of a record, made of `values`. Fields whose kind ends with "?" may be missing. */
export function answered(record, values) {
  const names = Object.entries(records[record].answered)
    .filter(([name, kind]) => values[name] !== undefined || !kind.endsWith('?'));
  return Object.fromEntries(names.map(([name]) => [name, values[name]]));
}
