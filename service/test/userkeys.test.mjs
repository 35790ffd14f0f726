// What one user can do to others with a key of their own, and a stranger without one.

import assert from 'node:assert/strict';
import { after, before, beforeEach, describe, test } from 'node:test';
import { policy } from '../policy.js';
import { resources } from '../rest/index.js';
import { sign } from '../signature.js';
import { connect, signedBy, start, text } from './support.mjs';

describe('a key of one user', { timeout: 60_000 }, () => {
  let service;
  let keys;
  const flags = ['--user-secret', 'a-secret-of-the-tests', '--id-login', 'off'];
  before(async () => (service = await start(...flags)));
  after(() => service.stop());
  beforeEach(async () => {
    await service.control('POST', '/reset');
    const carol = { id: 'carol', username: 'carol', password: 'carol-secret' };
    await service.control('POST', '/users', carol);
    keys = {};
    for (const id of ['alice', 'bob', 'carol'])
      keys[id] = await service.control('GET', `/users/${id}/key`);
  });
  const ask = (who, method, path, body) => service.call(method, path, body, signedBy(keys[who]));

  test('it acts for its user alone', async () => {
    const team = { owner: 'alice', members: ['bob'] };
    const { body: talk } = await ask('alice', 'POST', '/groups', team);
    const ours = { name: 'Ours', members: ['alice'] };
    const { body: room } = await ask('alice', 'POST', '/rooms', ours);
    const both = { members: ['bob', 'alice'] };
    const cases = [
      ['one’s own friends', 'alice', 'GET', '/ctx/alice/friends?detail', 200],
      ['another’s friends, with messages', 'carol', 'GET', '/ctx/alice/friends?detail', 403],
      ['one’s own talks', 'bob', 'GET', '/ctx/bob/friends/alice/chats', 200],
      ['another’s talks', 'carol', 'GET', '/ctx/bob/friends/alice/chats', 403],
      ['making others friends', 'carol', 'POST', '/ctx/alice/friends/carol', 403],
      ['making friends', 'carol', 'POST', '/ctx/carol/friends/alice', 200],
      ['parting others', 'carol', 'DELETE', '/ctx/alice/friends/bob', 403],
      ['another’s attributes: reading', 'carol', 'GET', '/ctx/alice/attributes/city', 200],
      ['… writing', 'carol', 'PUT', '/ctx/alice/attributes', 403, { nick: 'x' }],
      ['another’s devices', 'carol', 'DELETE', '/ctx/alice/installs', 403, { installs: ['x'] }],
      ['another’s places', 'carol', 'GET', '/ctx/alice/groups?detail', 403],
      ['a group in another’s name', 'carol', 'POST', '/groups', 403, { owner: 'alice' }],
      ['a group from outside', 'carol', 'GET', `/groups/${talk}`, 403],
      ['… its messages', 'carol', 'GET', `/groups/${talk}/chats`, 403],
      ['… joining it', 'carol', 'POST', `/groups/${talk}/members`, 403, { members: ['carol'] }],
      ['… changing it', 'bob', 'PUT', `/groups/${talk}`, 403, { owner: 'bob' }],
      ['… throwing others out', 'bob', 'DELETE', `/groups/${talk}/members`, 403, both],
      ['… leaving it', 'bob', 'DELETE', `/groups/${talk}/members`, 200, { members: ['bob'] }],
      ['… then reading it', 'bob', 'GET', `/groups/${talk}/chats`, 403],
      ['… deleting it', 'bob', 'DELETE', `/groups/${talk}`, 403],
      ['… deleting one’s own', 'alice', 'DELETE', `/groups/${talk}`, 200],
      ['joining a room', 'carol', 'POST', `/rooms/${room}/members`, 200, { members: ['carol'] }],
      ['deleting a room from outside', 'bob', 'DELETE', `/groups/${room}`, 403],
      ['bringing others into a room', 'bob', 'POST', `/rooms/${room}/members`, 403, both],
      ['the system’s voice, to all', 'alice', 'POST', '/system', 403, { content: {} }],
      ['… to a stranger', 'carol', 'POST', '/system/bob', 403, { content: {} }],
      ['… to a group of others', 'carol', 'POST', '/system/demo-group?group', 403, { content: {} }],
      ['… to a friend', 'bob', 'POST', '/system/alice', 200, { content: {} }],
      ['passengers', 'alice', 'POST', '/passengers', 403, { id: 'alice2' }],
    ];
    for (const [why, who, method, path, status, body] of cases) {
      const { status: got, body: answer } = await ask(who, method, path, body);
      assert.equal(got, status, `${why}: ${JSON.stringify(answer)}`);
      if (status === 403) assert.equal(answer.errorCode, 1106, why);
    }
  });

  test('searches show no more than reading does', async () => {
    const get = async (who, path) => (await ask(who, 'GET', path)).body;
    const seen = (await get('carol', '/ctx')).map(({ id, friends }) => [id, friends]);
    assert.deepEqual(seen, [['alice', undefined], ['bob', undefined], ['carol', []]]);
    assert.equal((await get('carol', '/ctx/alice')).groups, undefined);
    assert.equal((await get('carol', '/groups')).length, 0);
    assert.equal((await get('bob', '/groups')).length, 1);
  });

  test('it fits nobody else', async () => {
    const { alice, carol } = keys;
    const cases = [
      ['another’s name', { app: alice.app, key: carol.key }, 1102],
      ['nobody’s name', { app: 'demo-app:zed', key: carol.key }, 1102],
      ['a name of another kind', { app: 'demo-app:../x', key: carol.key }, 1102],
      ['the application’s name', { app: 'demo-app', key: alice.key }, 1102],
      ['the application’s key for a user', { app: alice.app, key: 'demo-key' }, 1102],
      ['another application', { app: 'other:alice', key: alice.key }, 1104],
    ];
    for (const [why, key, code] of cases)
      assert.equal(await service.code('GET', '/ctx/alice', undefined, signedBy(key)), code, why);
  });

  test('it logs in its user alone, with the password or the id', async () => {
    const login = async ({ app, key }, credentials) => {
      const client = connect(service, '4', { app, sign: sign(key), ...credentials });
      const { id, error } = await client.next('login');
      return { client, result: id ?? error.errorCode };
    };
    const password = { username: 'alice', password: 'alice-secret' };
    const id = { client: 'alice', install: 'x' };
    const cases = [
      ['one’s own password', keys.alice, password, 'alice'],
      ['one’s own id', keys.alice, id, 'alice'],
      ['another’s password, if it were known', keys.carol, password, 1106],
      ['another’s id', keys.carol, id, 1106],
      ['an id with the application’s key', { app: 'demo-app', key: 'demo-key' }, id, 1105],
    ];
    for (const [why, key, credentials, expected] of cases) {
      const { client, result } = await login(key, credentials);
      assert.equal(result, expected, why);
      client.close();
    }
    const alice = await login(keys.alice, password);
    const bob = await login(keys.bob, { client: 'bob', install: 'y' });
    alice.client.say(text('hello', 'bob'));
    assert.equal((await bob.client.next('message')).from.id, 'alice');
    for (const { client } of [alice, bob]) client.close();
  });

  test('every rule belongs to a path, and no path lacks one unless it is meant', () => {
    const list = (paths) => Object.entries(paths)
      .flatMap(([path, methods]) => Object.keys(methods).map((method) => `${method} ${path}`));
    const paths = resources.flatMap((resource) => list(resource({ store: {}, views: {} })));
    const rules = list(policy);
    assert.deepEqual(rules.filter((rule) => !paths.includes(rule)), []);
    const without = paths.filter((path) => !rules.includes(path));
    assert.deepEqual(without, ['post /passengers', 'post /system']);
  });
});
