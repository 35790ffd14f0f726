import assert from 'node:assert/strict';
import { after, afterEach, before, beforeEach, describe, test } from 'node:test';
import { sign } from '../signature.js';
import { auth, connect, start, text } from './support.mjs';

for (const line of ['2', '3', '4']) {
  describe(`live events over socket.io ${line}.x`, { timeout: 60_000 }, () => {
    let service;
    const connections = [];
    before(async () => (service = await start('--socketio', line)));
    after(() => service.stop());
    beforeEach(() => service.control('POST', '/reset'));
    afterEach(() => connections.splice(0).forEach((connection) => connection.close()));
    const open = (parameter, options) => {
      const connection = connect(service, line, parameter, options);
      connections.push(connection);
      return connection;
    };
    const login = async (id, options) => {
      const connection = open(auth({ client: id }), options);
      assert.equal((await connection.next('login')).success, true);
      return connection;
    };

    test('a login is let in or refused by its credentials', async () => {
      const bob = { provider: 'example', uid: 'bob@example' };
      const old = auth({ client: 'alice' }, sign('demo-key', 1_000));
      const phone = { phone: '+15550100001', password: '100001' };
      const cases = [
        ['a user id', auth({ client: 'alice', install: 'i1' }), 'alice'],
        ['a user name and password', auth({ username: 'bob', password: 'bob-secret' }), 'bob'],
        ['a phone number and SMS code', auth(phone), 'alice'],
        ['an outside identity', auth({ oauth: { ...bob, token: 'bob-token', more: 1 } }), 'bob'],
        ['an old signature, as a reconnect sends it', old, 'alice'],
        ['a wrong password', auth({ username: 'bob', password: 'alice-secret' }), 1105],
        ['an unknown user name', auth({ username: 'zed', password: 'x' }), 1105],
        ['an outside identity without its token', auth({ oauth: bob }), 1105],
        ['no credentials at all', auth({}), 1105],
        ['an unknown user id', auth({ client: 'zed' }), 1201],
        ['a user id that is not a string', auth({ client: { $ne: 1 } }), 1201],
        ['a wrong signature', auth({ client: 'alice' }, sign('other-key')), 1102],
        ['no signature', auth({ client: 'alice' }, null), 1101],
        ['an unknown application', { ...auth({ client: 'alice' }), app: 'other' }, 1104],
        ['no JSON', 'alice', 1001],
        ['an array', '[]', 1001],
      ];
      for (const [why, parameter, expected] of cases) {
        const connection = open(parameter);
        const result = await connection.next('login');
        assert.equal(result.success ? result.id : result.error.errorCode, expected, why);
        assert.equal(connection.socket.connected, true, `${why}: the connection stays`);
        connection.close();
      }
    });

    test('a message reaches its readers and all connections of its sender', async () => {
      const [alice, phone, bob] = [await login('alice'), await login('alice'), await login('bob')];
      const cases = [
        ['bob', 0, { id: 'alice', type: 0 }],
        ['demo-group', 1, { id: 'alice', type: 1, gid: 'demo-group' }],
        ['demo-room', 2, { id: 'alice', type: 2, gid: 'demo-room' }],
      ];
      for (const [to, type, from] of cases) {
        const message = { ...text('hé 😀', to, type, 1234567890123), extra: [1] };
        alice.say({ ...message, from: { id: 'mallory' }, speaker: 'mallory' });
        const expected = { ...message, from };
        assert.deepEqual(await bob.next('message'), expected);
        assert.deepEqual(await alice.next('yourself'), expected);
        assert.deepEqual(await phone.next('yourself'), expected);
      }
    });

    test('what may not be sent reaches nobody, and the log says why', async () => {
      await service.control('POST', '/users', { id: 'carol' });
      const [alice, bob, carol] = [await login('alice'), await login('bob'), await login('carol')];
      const stranger = open(auth({ client: 'zed' }));
      await stranger.next('login');
      stranger.say(text('not logged in', 'bob'));
      const cases = [
        ['to nobody', { content: {} }, 1002],
        ['no payload', undefined, 1002],
        ['without content', { to: { id: 'bob', type: 0 } }, 1002],
        ['to an unknown kind', text('x', 'bob', 7), 1002],
        ['to an unknown user', text('x', 'zed'), 1201],
        ['to an unknown group', text('x', 'zed', 1), 1301],
        ['to somebody who is no friend', text('x', 'bob'), 1202],
        ['to a group of others', text('x', 'demo-group', 1), 1501],
        ['to a room of others', text('x', 'demo-room', 2), 1501],
      ];
      for (const [, payload] of cases) carol.say(payload);
      const { body: own } = await service.call('POST', '/groups', { owner: 'carol' });
      carol.say(text('all said', own, 1));
      await carol.next('yourself');
      await service.call('POST', '/ctx/carol/friends/bob');
      carol.say(text('allowed', 'bob'));
      assert.equal((await bob.next('message')).content.body, 'allowed');
      alice.say(text('still here', 'bob'));
      assert.equal((await bob.next('message')).content.body, 'still here');
      const log = await service.control('GET', '/log?kind=say');
      const refused = log.filter((entry) => entry.refused);
      assert.deepEqual(
        refused.map((entry) => [entry.id, entry.refused.errorCode]),
        cases.map(([, , code]) => ['carol', code]));
    });

    test('friends hear when the first connection opens and the last one closes', async () => {
      const alice = await login('alice');
      const [bob, tablet] = [await login('bob'), await login('bob')];
      assert.equal(await alice.next('online'), 'bob');
      assert.equal((await service.call('GET', '/ctx/bob')).body.sessions, 2);
      bob.close();
      tablet.socket.disconnect();
      assert.equal(await alice.next('offline'), 'bob');
      const [friend] = await service.body('GET', '/ctx/alice/friends?detail');
      assert.equal(friend.online, false);
      await login('bob');
      assert.equal(await alice.next('online'), 'bob'); // so the second connection was no news
    });

    test('a system message reaches everybody, a user, a group or a room', async () => {
      await service.control('POST', '/users', { id: 'carol' });
      const people = {};
      for (const id of ['alice', 'bob', 'carol']) people[id] = await login(id);
      for (const [path, readers] of [
        ['/system', ['alice', 'bob', 'carol']],
        ['/system/bob', ['bob']],
        ['/system/demo-group?group', ['alice', 'bob']],
        ['/system/demo-room?room', ['alice', 'bob']],
        ['/system/carol', ['carol']],
      ]) {
        const message = { content: { media: 0, body: path }, ts: 5 };
        assert.equal(await service.status('POST', path, message), 200);
        for (const id of readers)
          assert.deepEqual(await people[id].next('sys'), message, `${id} of ${path}`);
      }
    });

    test('a passenger and a user talk, and the history keeps it', async () => {
      const { body: id } = await service.call('POST', '/passengers', { name: 'Visitor' });
      const [visitor, alice] = [await login(id), await login('alice')];
      visitor.say(text('help', 'alice', 0, 1));
      assert.deepEqual((await alice.next('message')).from, { id, type: 0 });
      alice.say(text('coming', id, 0, 2));
      await visitor.next('message');
      const { body } = await service.call('GET', `/passengers/${id}/chats/alice?ts=3&limit=9`);
      assert.deepEqual(body.map((message) => message.content.body), ['coming', 'help']);
    });

    test('polling carries the same events', async () => {
      const alice = await login('alice', { transports: ['polling'], upgrade: false });
      alice.say(text('x', 'demo-room', 2));
      assert.equal((await alice.next('yourself')).content.body, 'x');
    });

    test('tests can send any event, cut connections, silence them and read the log', async () => {
      const bob = await login('bob');
      const emit = (argument) =>
        service.control('POST', '/emit', { user: 'bob', event: 'custom', args: [argument] });
      assert.deepEqual(await emit({ odd: null }), { connections: 1 });
      assert.deepEqual(await bob.next('custom'), { odd: null });
      await service.control('POST', '/stall', { user: 'bob' });
      await emit('late');
      const late = text('late', 'demo-room', 2);
      bob.say(late);
      await service.control('POST', '/unstall', { user: 'bob' });
      assert.equal(await bob.next('custom'), 'late');
      await bob.next('yourself');
      const packets = await service.control('GET', '/log?kind=packet');
      assert.equal(packets.at(-1).data, `2/chat,${JSON.stringify(['say', late])}`);
      assert.deepEqual(await service.control('POST', '/drop', { user: 'bob' }), { connections: 1 });
      assert.equal(await bob.next('disconnect'), 'transport close');
      await service.control('POST', '/faults', { path: '/socket.io/', status: 503 });
      const refused = connect(service, line, auth({ client: 'bob' }));
      assert.notEqual(await refused.next('connect_error'), undefined);
      refused.close();
    });
  });
}
