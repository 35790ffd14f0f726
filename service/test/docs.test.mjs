// docs/service.md is complete. The library's end-to-end tests check its examples.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { errors } from '../interface.js';
import { resources } from '../rest/index.js';
import { sign } from '../signature.js';

const text = readFileSync(new URL('../../docs/service.md', import.meta.url), 'utf8');

test('every path is documented with every method', () => {
  const requests = [...text.matchAll(/^```http\n([A-Z]+) ([^\s?]+)/gm)];
  const all = resources.flatMap((resource) => Object.entries(resource({ store: {}, views: {} })));
  all.push(['/attachment', { post: 0 }], ['/files/:name', { get: 0 }]);
  for (const [path, methods] of all) {
    const pattern = new RegExp(`^${path.replace(/:[a-z]+/g, '[^/]+')}$`);
    for (const method of Object.keys(methods)) {
      const isIt = ([, verb, target]) => verb === method.toUpperCase() && pattern.test(target);
      assert.ok(requests.some(isIt), `${method} ${path}`);
    }
  }
});

test('the documented signature is right, and the table of errors is complete', () => {
  assert.ok(text.includes(sign('demo-key', 1700000000)));
  for (const { code, status, text: meaning } of Object.values(errors))
    assert.ok(text.includes(`| ${code} | ${status} | ${meaning} |`), meaning);
});
