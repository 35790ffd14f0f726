import assert from 'node:assert/strict';
import { after, before, beforeEach, describe, test } from 'node:test';
import { sign } from '../signature.js';
import { auth, connect, start, text } from './support.mjs';

describe('REST', { timeout: 60_000 }, () => {
  let service;
  before(async () => (service = await start('--body-limit', '20000')));
  after(() => service.stop());
  beforeEach(() => service.control('POST', '/reset'));
  const ok = async (method, path, body) => {
    const { status, body: answer } = await service.call(method, path, body);
    assert.equal(status, 200, `${method} ${path}: ${JSON.stringify(answer)}`);
    return answer;
  };
  const done = { success: true };

  test('a request is refused by its signature, path, method or body', async () => {
    const now = Math.round(Date.now() / 1000);
    const cases = [
      ['no signature', 'GET', '/ctx/alice', undefined, { 'X-VX-Request-Sign': '' }, 401, 1101],
      ['a signature with another key', 'GET', '/ctx/alice', undefined, { 'X-VX-Request-Sign': sign('other') }, 401, 1102],
      ['a signature in capitals', 'GET', '/ctx/alice', undefined, { 'X-VX-Request-Sign': sign('demo-key').toUpperCase() }, 401, 1102],
      ['a signature with another time', 'GET', '/ctx/alice', undefined, { 'X-VX-Request-Sign': `${sign('demo-key', now).split(',')[0]},${now - 1}` }, 401, 1102],
      ['a signature eleven minutes old', 'GET', '/ctx/alice', undefined, { 'X-VX-Request-Sign': sign('demo-key', now - 660) }, 401, 1103],
      ['a signature from the future', 'GET', '/ctx/alice', undefined, { 'X-VX-Request-Sign': sign('demo-key', now + 660) }, 401, 1103],
      ['an unknown application', 'GET', '/ctx/alice', undefined, { 'X-VX-AppId': 'other' }, 403, 1104],
      ['an unknown path', 'GET', '/nothing', undefined, {}, 404, 1004],
      ['a broken escape', 'GET', '/ctx/%ff', undefined, {}, 404, 1004],
      ['a method that the path does not take', 'PATCH', '/ctx/alice', undefined, {}, 405, 1005],
      ['a body that is no JSON', 'POST', '/groups', '{"owner":', {}, 400, 1001],
      ['a body that is no object', 'POST', '/groups', '"owner"', {}, 400, 1001],
      ['no body', 'POST', '/groups', undefined, {}, 400, 1001],
      ['a body of another type', 'POST', '/groups', '{"owner":"alice"}', { 'Content-Type': 'text/plain' }, 400, 1001],
      ['a body that is too large', 'POST', '/groups', { owner: 'a'.repeat(30_000) }, {}, 413, 1003],
      ['a body that is nested too deep', 'POST', '/groups', `{"owner":"alice","x":${'['.repeat(9_000)}${']'.repeat(9_000)}}`, {}, 400, 1002],
      ['an unknown user', 'GET', '/ctx/zed', undefined, {}, 404, 1201],
      ['a limit that is no number', 'GET', '/ctx?_limit=ten', undefined, {}, 400, 1002],
    ];
    for (const [why, method, path, body, headers, status, code] of cases) {
      const { status: got, body: answer } = await service.call(method, path, body, headers);
      assert.deepEqual([got, answer.errorCode, typeof answer.errorMessage], [status, code, 'string'], why);
    }
  });

  test('users befriend each other and part', async () => {
    await service.control('POST', '/users', { id: 'carol' });
    const info = await ok('POST', '/ctx/carol/friends/bob');
    assert.deepEqual({ ...info, ts: 0 }, { id: 'bob', online: false, ts: 0, from: 'carol', to: 'bob' });
    assert.deepEqual(await ok('POST', '/ctx/bob/friends/carol'), { ...info, id: 'carol' }, 'asking again changes nothing');
    assert.deepEqual(await ok('GET', '/ctx/bob/friends'), ['alice', 'carol']);
    assert.deepEqual((await ok('GET', '/ctx/carol')).friends, ['bob']);
    await ok('DELETE', '/ctx/bob/friends/carol');
    for (const path of ['/ctx/carol/friends/bob', '/ctx/carol/friends/bob/chats']) assert.equal((await service.call('GET', path)).body.errorCode, 1202);
    assert.equal((await service.call('POST', '/ctx/bob/friends/bob')).status, 400);
  });

  test('a group lives: made, changed, joined, left, deleted', async () => {
    const id = await ok('POST', '/groups', { owner: 'alice', name: 'Team', members: ['bob', 'bob'], topic: 'x' });
    assert.equal(typeof id, 'string');
    await ok('PUT', `/groups/${id}`, { owner: 'bob', topic: 'y', id: 'other', ts: 1 });
    const { ts, ...group } = await ok('GET', `/groups/${id}`);
    assert.deepEqual(group, { id, owner: 'bob', members: ['alice', 'bob'], attributes: { name: 'Team' }, topic: 'y' });
    assert.ok(ts > 1);
    await ok('DELETE', `/groups/${id}/members`, { members: ['alice', 'zed'] });
    assert.deepEqual(await ok('GET', '/ctx/alice/groups'), ['demo-group']);
    await ok('POST', `/groups/${id}/members`, { members: ['alice'] });
    assert.deepEqual((await ok('GET', '/ctx/alice/groups?detail')).map((one) => one.members), [['alice', 'bob'], ['bob', 'alice']]);
    const cases = [
      ['an unknown owner', 'POST', '/groups', { owner: 'zed' }, 1201],
      ['no owner', 'POST', '/groups', { name: 'x' }, 1002],
      ['an unknown member', 'POST', '/groups', { owner: 'alice', members: ['zed'] }, 1201],
      ['members that are no array', 'POST', `/groups/${id}/members`, { members: 'bob' }, 1002],
      ['a bare array', 'DELETE', `/groups/${id}/members`, ['bob'], 1001],
      ['an unknown member among known ones', 'POST', `/groups/${id}/members`, { members: ['alice', 'zed'] }, 1201],
    ];
    for (const [why, method, path, body, code] of cases) assert.equal((await service.call(method, path, body)).body.errorCode, code, why);
    assert.equal((await ok('GET', '/groups')).length, 2, 'what was refused has left nothing behind');
    await ok('DELETE', `/groups/${id}`);
    assert.equal((await service.call('DELETE', `/groups/${id}`)).body.errorCode, 1301);
  });

  test('a room lives: no owner, a bare array to leave, deleted under /groups', async () => {
    const id = await ok('POST', '/rooms', { name: 'Hall', members: [] });
    await ok('POST', `/rooms/${id}/members`, { members: ['alice', 'bob'] });
    await ok('DELETE', `/rooms/${id}/members`, ['alice']);
    assert.deepEqual(await ok('PUT', `/rooms/${id}`, { name: 'Foyer' }), done);
    const { ts, ...room } = await ok('GET', `/rooms/${id}`);
    assert.deepEqual(room, { id, name: 'Foyer', members: ['bob'], attributes: {} });
    assert.ok(ts > 0);
    assert.deepEqual(await ok('GET', '/ctx/bob/rooms'), ['demo-room', id]);
    assert.equal((await service.call('DELETE', `/rooms/${id}/members`, { members: ['bob'] })).status, 400);
    await ok('DELETE', `/groups/${id}`);
    assert.equal((await service.call('GET', `/rooms/${id}`)).body.errorCode, 1401);
  });

  test('attributes are merged, replaced, read one by one and deleted', async () => {
    for (const owner of ['/ctx/alice', '/groups/demo-group', '/rooms/demo-room']) {
      const path = `${owner}/attributes`;
      await ok('PUT', path, { a: 1, b: { c: [null] } });
      await ok('POST', path, '{"a": 12.5, "__proto__": "kept", "t": true, "z": null}');
      assert.equal(JSON.stringify(await ok('GET', path)), '{"a":12.5,"b":{"c":[null]},"__proto__":"kept","t":true,"z":null}');
      for (const [key, value] of [['a', 12.5], ['b', { c: [null] }], ['t', true], ['z', null], ['__proto__', 'kept']]) {
        assert.deepEqual(await ok('GET', `${path}/${key}`), value);
      }
      for (const key of ['nothing', 'toString']) assert.equal((await service.call('GET', `${path}/${key}`)).body.errorCode, 1701);
      await ok('DELETE', path);
      assert.deepEqual(await ok('GET', path), {});
    }
    for (let part = 0; part < 5; part += 1) await service.call('POST', '/ctx/alice/attributes', { [part]: 'x'.repeat(15_000) });
    assert.deepEqual(Object.keys(await ok('GET', '/ctx/alice/attributes')), ['0', '1', '2', '3'], 'the fifth was too much');
  });

  test('a passenger is made once and then changed', async () => {
    const id = await ok('POST', '/passengers', { name: 'Visitor', a: 1 });
    assert.equal(await ok('POST', '/passengers', { id, a: 2 }), id);
    const { ts, ...passenger } = await ok('GET', `/passengers/${id}`);
    assert.deepEqual(passenger, { id, name: 'Visitor', a: 2 });
    assert.equal(await ok('POST', '/passengers', { id: 'own-id' }), 'own-id');
    for (const taken of ['alice', 'a/b', '', 7, null]) assert.equal((await service.call('POST', '/passengers', { id: taken })).status, 400);
  });

  test('searches filter, sort and page', async () => {
    const people = [['u1', { n: 2, c: 'x' }], ['u2', { n: 10, c: 'x' }], ['u3', { n: 2, c: 'y', on: true }], ['u4', { c: 'a&b', on: 'true' }]];
    for (const [id, attributes] of people) await service.control('POST', '/users', { id, attributes });
    const cases = [
      ['?c=x', ['u1', 'u2']],
      ['?c=x&n=2', ['u1']],
      ['?c=x&c=y', []],
      ['?on=true', ['u3', 'u4']],
      ['?c=a%26b', ['u4']],
      ['?id=u3', ['u3']],
      ['?_sort=n,-c&_limit=3', ['u3', 'u1', 'u2']],
      ['?_sort=-n&_limit=2', ['u2', 'u1']],
      ['?_sort=id&_skip=2&_limit=2', ['u1', 'u2']],
      ['?_limit=0', []],
      ['?_skip=99', []],
      ['?password=bob-secret', []],
    ];
    for (const [query, ids] of cases) assert.deepEqual((await ok('GET', `/ctx${query}`)).map((user) => user.id), ids, query);
    assert.deepEqual((await ok('GET', '/groups?name=Demo%20group')).map((group) => group.id), ['demo-group']);
    assert.deepEqual((await ok('GET', '/rooms?name=Demo%20room&_sort=-ts')).map((room) => room.id), ['demo-room']);
  });

  test('history is what the live messages left, newest first, by time and not by arrival', async () => {
    const alice = connect(service, '4', auth({ client: 'alice' }));
    await alice.next('login');
    for (const [to, type] of [['bob', 0], ['demo-group', 1]]) {
      for (const ts of [30, 10, 20, 40]) alice.say(text(`at ${ts}`, to, type, ts));
    }
    for (let left = 8; left > 0; left -= 1) await alice.next('yourself');
    alice.close();
    const cases = [['', [40, 30, 20, 10]], ['?ts=40&limit=2', [30, 20]], ['?ts=10&limit=20', []], ['?ts=0&limit=0', [40, 30, 20, 10]]];
    for (const path of ['/ctx/alice/friends/bob/chats', '/ctx/bob/friends/alice/chats', '/groups/demo-group/chats']) {
      for (const [query, times] of cases) assert.deepEqual((await ok('GET', path + query)).map((message) => message.ts), times, path + query);
    }
    assert.equal((await ok('GET', '/ctx/bob/friends/alice')).recent.content.body, 'at 40');
    assert.equal((await ok('GET', '/ctx/bob/groups?detail'))[0].recent.from.gid, 'demo-group');
  });

  test('an installation is gone after its removal, however often', async () => {
    for (let time = 0; time < 2; time += 1) assert.deepEqual(await ok('DELETE', '/ctx/alice/installs', { installs: ['i1'] }), done);
    assert.equal((await service.call('DELETE', '/ctx/alice/installs', { installs: 'i1' })).status, 400);
  });
});
