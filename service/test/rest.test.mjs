import assert from 'node:assert/strict';
import { after, before, beforeEach, describe, test } from 'node:test';
import { sign } from '../signature.js';
import { auth, connect, start, text, times } from './support.mjs';

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
    const [digest] = sign('demo-key', now).split(',');
    const signed = (why, sent, code) =>
      [why, 'GET', '/ctx/alice', undefined, { 'X-VX-Request-Sign': sent }, 401, code];
    const other = { 'X-VX-AppId': 'other' };
    const nested = `{"owner":"alice","x":${'['.repeat(9_000)}${']'.repeat(9_000)}}`;
    const plain = { 'Content-Type': 'text/plain' };
    const cases = [
      signed('no signature', '', 1101),
      signed('a signature with another key', sign('other'), 1102),
      signed('a signature in capitals', sign('demo-key').toUpperCase(), 1102),
      signed('a signature with another time', `${digest},${now - 1}`, 1102),
      signed('a signature eleven minutes old', sign('demo-key', now - 660), 1103),
      signed('a signature from the future', sign('demo-key', now + 660), 1103),
      ['an unknown application', 'GET', '/ctx/alice', undefined, other, 403, 1104],
      ['an unknown path', 'GET', '/nothing', undefined, {}, 404, 1004],
      ['a broken escape', 'GET', '/ctx/%ff', undefined, {}, 404, 1004],
      ['a method that the path does not take', 'PATCH', '/ctx/alice', undefined, {}, 405, 1005],
      ['a body that is not JSON', 'POST', '/groups', '{"owner":', {}, 400, 1001],
      ['a body that is not an object', 'POST', '/groups', '"owner"', {}, 400, 1001],
      ['no body', 'POST', '/groups', undefined, {}, 400, 1001],
      ['a body of another type', 'POST', '/groups', '{"owner":"alice"}', plain, 400, 1001],
      ['a body that is too large', 'POST', '/groups', { owner: 'a'.repeat(30_000) }, {}, 413, 1003],
      ['a body that is nested too deep', 'POST', '/groups', nested, {}, 400, 1002],
      ['an unknown user', 'GET', '/ctx/zed', undefined, {}, 404, 1201],
      ['a limit that is not a number', 'GET', '/ctx?_limit=ten', undefined, {}, 400, 1002],
    ];
    for (const [why, method, path, body, headers, status, code] of cases) {
      const answer = await service.call(method, path, body, headers);
      const { errorCode, errorMessage } = answer.body;
      assert.deepEqual([answer.status, errorCode], [status, code], why);
      assert.equal(typeof errorMessage, 'string', why);
    }
  });

  test('users befriend each other and part', async () => {
    await service.control('POST', '/users', { id: 'carol' });
    const { ts, ...info } = await ok('POST', '/ctx/carol/friends/bob');
    assert.deepEqual(info, { id: 'bob', online: false, from: 'carol', to: 'bob' });
    const again = await ok('POST', '/ctx/bob/friends/carol');
    assert.deepEqual(again, { ...info, ts, id: 'carol' }, 'asking again changes nothing');
    assert.deepEqual(await ok('GET', '/ctx/bob/friends'), ['alice', 'carol']);
    assert.deepEqual((await ok('GET', '/ctx/carol')).friends, ['bob']);
    await ok('DELETE', '/ctx/bob/friends/carol');
    for (const path of ['/ctx/carol/friends/bob', '/ctx/carol/friends/bob/chats'])
      assert.equal(await service.code('GET', path), 1202);
    assert.equal(await service.status('POST', '/ctx/bob/friends/bob'), 400);
  });

  test('a group lives: made, changed, joined, left, deleted', async () => {
    const given = { owner: 'alice', name: 'Team', members: ['bob', 'bob'], topic: 'x' };
    const id = await ok('POST', '/groups', given);
    assert.equal(typeof id, 'string');
    await ok('PUT', `/groups/${id}`, { owner: 'bob', topic: 'y', id: 'other', ts: 1 });
    const { ts, ...group } = await ok('GET', `/groups/${id}`);
    const expected = { id, owner: 'bob', attributes: { name: 'Team' }, topic: 'y' };
    assert.deepEqual(group, { ...expected, members: ['alice', 'bob'] });
    assert.ok(ts > 1);
    await ok('DELETE', `/groups/${id}/members`, { members: ['alice', 'zed'] });
    assert.deepEqual(await ok('GET', '/ctx/alice/groups'), ['demo-group']);
    await ok('POST', `/groups/${id}/members`, { members: ['alice'] });
    const members = (await ok('GET', '/ctx/alice/groups?detail')).map((one) => one.members);
    assert.deepEqual(members, [['alice', 'bob'], ['bob', 'alice']]);
    const partly = { members: ['alice', 'zed'] };
    const cases = [
      ['an unknown owner', 'POST', '/groups', { owner: 'zed' }, 1201],
      ['no owner', 'POST', '/groups', { name: 'x' }, 1002],
      ['an unknown member', 'POST', '/groups', { owner: 'alice', members: ['zed'] }, 1201],
      ['members that are not an array', 'POST', `/groups/${id}/members`, { members: 'bob' }, 1002],
      ['a bare array', 'DELETE', `/groups/${id}/members`, ['bob'], 1001],
      ['an unknown member among known ones', 'POST', `/groups/${id}/members`, partly, 1201],
    ];
    for (const [why, method, path, body, code] of cases)
      assert.equal(await service.code(method, path, body), code, why);
    assert.equal((await ok('GET', '/groups')).length, 2, 'a refused request leaves nothing behind');
    await ok('DELETE', `/groups/${id}`);
    assert.equal(await service.code('DELETE', `/groups/${id}`), 1301);
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
    assert.equal(await service.status('DELETE', `/rooms/${id}/members`, { members: ['bob'] }), 400);
    await ok('DELETE', `/groups/${id}`);
    assert.equal(await service.code('GET', `/rooms/${id}`), 1401);
  });

  test('attributes are merged, replaced, read one by one and deleted', async () => {
    for (const owner of ['/ctx/alice', '/groups/demo-group', '/rooms/demo-room']) {
      const path = `${owner}/attributes`;
      await ok('PUT', path, { a: 1, b: { c: [null] } });
      await ok('POST', path, '{"a": 12.5, "__proto__": "kept", "t": true, "z": null}');
      const merged = '{"a":12.5,"b":{"c":[null]},"__proto__":"kept","t":true,"z":null}';
      assert.equal(JSON.stringify(await ok('GET', path)), merged);
      for (const [key, value] of Object.entries(JSON.parse(merged)))
        assert.deepEqual(await ok('GET', `${path}/${key}`), value);
      for (const key of ['nothing', 'toString'])
        assert.equal(await service.code('GET', `${path}/${key}`), 1701);
      await ok('DELETE', path);
      assert.deepEqual(await ok('GET', path), {});
    }
    const path = '/ctx/alice/attributes';
    await times(5, (part) => service.call('POST', path, { [part]: 'x'.repeat(15_000) }));
    const names = Object.keys(await ok('GET', path));
    assert.deepEqual(names, ['0', '1', '2', '3'], 'the fifth was too much');
  });

  test('a passenger is made once and then changed', async () => {
    const id = await ok('POST', '/passengers', { name: 'Visitor', a: 1 });
    assert.equal(await ok('POST', '/passengers', { id, a: 2 }), id);
    const { ts, ...passenger } = await ok('GET', `/passengers/${id}`);
    assert.deepEqual(passenger, { id, name: 'Visitor', a: 2 });
    assert.equal(await ok('POST', '/passengers', { id: 'own-id' }), 'own-id');
    for (const wrong of ['alice', 'a/b', '', 7, null])
      assert.equal(await service.status('POST', '/passengers', { id: wrong }), 400);
  });

  test('searches filter, sort and page', async () => {
    const people = [{ n: 2, c: 'x' }, { n: 10, c: 'x' }, { n: 2, c: 'y', on: true },
      { c: 'a&b', on: 'true' }];
    for (const [i, attributes] of people.entries())
      await service.control('POST', '/users', { id: `u${i + 1}`, attributes });
    const found = async (path) => (await ok('GET', path)).map(({ id }) => id);
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
    for (const [query, ids] of cases) assert.deepEqual(await found(`/ctx${query}`), ids, query);
    assert.deepEqual(await found('/groups?name=Demo%20group'), ['demo-group']);
    assert.deepEqual(await found('/rooms?name=Demo%20room&_sort=-ts'), ['demo-room']);
  });

  test('history has the live messages, newest first, by time and not by arrival', async () => {
    const alice = connect(service, '4', auth({ client: 'alice' }));
    await alice.next('login');
    for (const [to, type] of [['bob', 0], ['demo-group', 1]]) {
      for (const ts of [30, 10, 20, 40]) alice.say(text(`at ${ts}`, to, type, ts));
    }
    await times(8, () => alice.next('yourself'));
    alice.close();
    const all = [40, 30, 20, 10];
    const cases = { '': all, '?ts=40&limit=2': [30, 20], '?ts=10': [], '?ts=0&limit=0': all };
    const places = ['/ctx/alice/friends/bob', '/ctx/bob/friends/alice', '/groups/demo-group'];
    for (const place of places) {
      for (const [query, expected] of Object.entries(cases)) {
        const messages = await ok('GET', `${place}/chats${query}`);
        assert.deepEqual(messages.map(({ ts }) => ts), expected, place + query);
      }
    }
    assert.equal((await ok('GET', '/ctx/bob/friends/alice')).recent.content.body, 'at 40');
    assert.equal((await ok('GET', '/ctx/bob/groups?detail'))[0].recent.from.gid, 'demo-group');
  });

  test('an installation is gone after its removal, however often', async () => {
    const path = '/ctx/alice/installs';
    const answers = await times(2, () => ok('DELETE', path, { installs: ['i1'] }));
    assert.deepEqual(answers, [done, done]);
    assert.equal(await service.status('DELETE', path, { installs: 'i1' }), 400);
  });
});
