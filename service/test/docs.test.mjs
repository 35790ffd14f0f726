// docs/service.md leaves nothing out. That its examples are true is seen by the library's end-to-end tests.

import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { test } from 'node:test';
import { errors } from '../interface.js';
import { resources } from '../rest/index.js';
import { sign } from '../signature.js';

const text = readFileSync(new URL('../../docs/service.md', import.meta.url), 'utf8');

test('every path is documented with every method', () => {
  const requests = [...text.matchAll(/^```http\n([A-Z]+) ([^\s?]+)/gm)].map(([, method, path]) => [method, path]);
  const all = resources.flatMap((resource) => Object.entries(resource({ store: {}, views: {} })));
  for (const [path, methods] of [...all, ['/attachment', { post: 0 }], ['/files/:name', { get: 0 }]]) {
    const pattern = new RegExp(`^${path.replace(/:[a-z]+/g, '[^/]+')}$`);
    for (const method of Object.keys(methods)) {
      assert.ok(requests.some(([verb, target]) => verb === method.toUpperCase() && pattern.test(target)), `${method} ${path}`);
    }
  }
});

test('the documented signature is one, and the table of errors is whole', () => {
  assert.ok(text.includes(sign('demo-key', 1700000000)));
  for (const { code, status, text: meaning } of Object.values(errors)) assert.ok(text.includes(`| ${code} | ${status} | ${meaning} |`), meaning);
});
