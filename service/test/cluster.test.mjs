// Nodes that share a database are one service. Needs what `scripts/bootstrap cluster` installs.

import assert from 'node:assert/strict';
import { existsSync } from 'node:fs';
import { after, before, beforeEach, describe, test } from 'node:test';
import pg from 'pg';
import { Cluster } from '../cluster.js';
import { auth, connect, serviceAt, text } from './support.mjs';

const skip = existsSync('/usr/lib/postgresql') && existsSync('/usr/sbin/nginx') ? false : 'run scripts/bootstrap cluster';

describe('a cluster', { timeout: 240_000, skip }, () => {
  const cluster = new Cluster({ isSticky: false });
  let nodes;
  before(async () => {
    await cluster.start(3);
    nodes = cluster.nodes.map(({ url }) => serviceAt(url));
  });
  after(() => cluster.close());
  beforeEach(() => nodes[0].control('POST', '/reset'));
  const login = async (node, id) => {
    const connection = connect(nodes[node], '4', auth({ client: id }));
    assert.equal((await connection.next('login')).success, true);
    return connection;
  };
  const bodies = (messages) => messages.map((message) => message.content.body);

  test('messages cross from node to node in order, however large', async () => {
    const [alice, phone, bob] = [await login(0, 'alice'), await login(1, 'alice'), await login(2, 'bob')];
    const sent = Array.from({ length: 300 }, (_, i) => `${i} ${'é'.repeat(i % 7 === 0 ? 20_000 : i)}`);
    for (const [i, body] of sent.entries()) alice.say(text(body, ['bob', 'demo-group', 'demo-room'][i % 3], i % 3, i + 1));
    for (const [reader, event] of [[bob, 'message'], [phone, 'yourself'], [alice, 'yourself']]) {
      const got = [];
      while (got.length < sent.length) got.push(await reader.next(event));
      assert.deepEqual(bodies(got), sent);
    }
    assert.equal((await nodes[1].call('GET', '/groups/demo-group/chats?limit=1000')).body.length, 100);
    await nodes[1].call('POST', '/system', { content: { body: 'all' } });
    for (const reader of [alice, phone, bob]) assert.equal((await reader.next('sys')).content.body, 'all');
    for (const connection of [alice, phone, bob]) connection.close();
  });

  test('a message that takes long to get ready is waited for', async () => {
    const [alice, bob] = [await login(0, 'alice'), await login(2, 'bob')];
    const database = new pg.Client({ connectionString: cluster.database });
    await database.connect();
    await database.query('begin; lock table parcels in access exclusive mode');
    const large = text('x'.repeat(20_000), 'bob');
    alice.say(large);
    // Each node has told the others how far it is since: it then clears away old parcels.
    const beats = () => database.query("select pg_stat_clear_snapshot(); select count(*) from pg_stat_activity where wait_event_type = 'Lock' and query like 'delete from \"parcels\"%'");
    while (Number((await beats())[1].rows[0].count) < nodes.length) await new Promise(setImmediate);
    await database.query('commit');
    await database.end();
    assert.equal((await bob.next('message')).content.body, large.content.body, 'and nobody is taken to have missed it');
    alice.close();
    bob.close();
  });

  test('polling that goes from node to node is told so, and WebSocket is not concerned', async () => {
    const query = `/socket.io/?EIO=4&transport=polling&auth=${encodeURIComponent(JSON.stringify(auth({ client: 'alice' })))}`;
    const proxy = serviceAt(cluster.url);
    const open = (await proxy.send('GET', query)).body;
    const { sid } = JSON.parse(open.slice(1));
    const answers = [];
    for (const node of nodes) answers.push(await node.send('POST', `${query}&sid=${sid}`, '40/chat,'));
    assert.deepEqual(answers.map(({ status }) => status).sort(), [200, 400, 400], 'one node knows it');
    for (const { body } of answers.filter(({ status }) => status === 400)) assert.deepEqual(body, { code: 1, message: 'Session ID unknown' });
    for (const transports of [['websocket'], ['websocket', 'polling']]) {
      const alice = connect(proxy, '4', auth({ client: 'alice' }), { transports });
      assert.equal((await alice.next('login')).id, 'alice');
      alice.close();
    }
  });

  test('presence is right over all nodes, also when one is killed', async () => {
    const bob = await login(0, 'bob');
    const [desk, phone] = [await login(1, 'alice'), await login(2, 'alice')];
    assert.equal(await bob.next('online'), 'alice');
    for (const node of nodes) assert.equal((await node.call('GET', '/ctx/alice')).body.sessions, 2);
    desk.close();
    phone.close();
    assert.equal(await bob.next('offline'), 'alice');
    const again = await login(2, 'alice');
    assert.equal(await bob.next('online'), 'alice');
    await cluster.stopNode(2, 'SIGKILL');
    assert.equal(await bob.next('offline'), 'alice', 'the others miss its beat');
    while ((await nodes[1].call('GET', '/ctx/alice')).body.sessions !== 0); // the news goes out a moment before the record is changed
    await cluster.startNode(2);
    const back = await login(2, 'alice');
    assert.equal(await bob.next('online'), 'alice');
    for (const connection of [again, back, bob]) connection.close();
  });

  test('a database that goes away costs connections, and no message that was acknowledged', async () => {
    const bob = await login(1, 'bob');
    const alice = await login(0, 'alice');
    alice.say(text('before', 'bob', 0, 1));
    assert.equal((await bob.next('message')).content.body, 'before');
    await cluster.stopDatabase();
    alice.say(text('meanwhile', 'bob', 0, 2));
    await alice.next('disconnect');
    await cluster.startDatabase();
    await bob.next('disconnect'); // who may have missed something is told by it
    const [again, reader] = [await login(0, 'alice'), await login(1, 'bob')];
    again.say(text('after', 'bob', 0, 3));
    assert.equal((await reader.next('message')).content.body, 'after');
    const { body } = await nodes[2].call('GET', '/ctx/bob/friends/alice/chats');
    assert.deepEqual(bodies(body), ['after', 'before']);
    again.close();
    reader.close();
  });
});
