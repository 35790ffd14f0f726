// Nodes that share a database are one service. Needs what `scripts/bootstrap cluster` installs.

import assert from 'node:assert/strict';
import { existsSync, mkdtempSync, rmSync } from 'node:fs';
import { createConnection, createServer } from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, afterEach, before, beforeEach, describe, test } from 'node:test';
import pg from 'pg';
import { Cluster } from '../cluster.js';
import { openDatabase } from '../database.js';
import { migrations } from '../schema.js';
import { auth, connect, serviceAt, text, times } from './support.mjs';

const programs = ['/usr/lib/postgresql', '/usr/sbin/nginx'];
const skip = programs.every((path) => existsSync(path)) ? false : 'run scripts/bootstrap cluster';

/** A way to the database that can hold up statements. */
class Obstruction {
  folder = mkdtempSync(join(tmpdir(), 'obstruction-'));
  #held; // which statements
  #waiting = []; // what would let them go
  #server;

  constructor(database) {
    const name = '.s.PGSQL.5432';
    this.links = new Set();
    this.#server = createServer((client) => {
      const server = createConnection(join(database, name));
      const link = { client, server, heard: '' };
      this.links.add(link);
      client.on('data', (data) => {
        link.heard += data;
        const pass = () => server.write(data);
        if (this.#held && data.includes(this.#held)) this.#waiting.push(pass);
        else pass();
      });
      server.on('data', (data) => link.isStalled || client.write(data));
      const end = () => (client.destroy(), server.destroy(), this.links.delete(link));
      for (const one of [client, server]) one.on('error', () => undefined).on('close', end);
    }).listen(join(this.folder, name));
  }

  hold(statement) {
    this.#held = statement;
  }

  release() {
    this.#held = undefined;
    this.#waiting.splice(0).forEach((pass) => pass());
  }

  /** Resolves when something waits. */
  async holds() {
    while (this.#waiting.length === 0) await new Promise(setImmediate);
  }

  close() {
    for (const { client } of this.links) client.destroy();
    this.#server.close();
    rmSync(this.folder, { recursive: true });
  }
}

describe('a cluster', { timeout: 240_000, skip }, () => {
  const cluster = new Cluster({ isSticky: false });
  let nodes;
  before(async () => {
    await cluster.start(3);
    nodes = cluster.nodes.map(({ url }) => serviceAt(url));
  });
  after(() => cluster.close());
  beforeEach(() => nodes[0].control('POST', '/reset'));
  const connections = [];
  afterEach(() => connections.splice(0).forEach((connection) => connection.close()));
  const login = async (node, id) => {
    const connection = connect(nodes[node], '4', auth({ client: id }));
    connections.push(connection);
    assert.equal((await connection.next('login')).success, true);
    return connection;
  };
  const talk = (node) => nodes[node].body('GET', '/ctx/bob/friends/alice/chats');
  const body = async (reader, event = 'message') => (await reader.next(event)).content.body;
  const healthy = async (node) => {
    while ((await nodes[node].send('GET', '/health')).status !== 200);
  };
  const bodies = (messages) => messages.map((message) => message.content.body);

  test('messages cross from node to node in order, however large', async () => {
    const alice = await login(0, 'alice');
    const [phone, bob] = [await login(1, 'alice'), await login(2, 'bob')];
    const places = ['bob', 'demo-group', 'demo-room'];
    const sent = await times(300, (i) => `${i} ${'é'.repeat(i % 7 === 0 ? 20_000 : i)}`);
    for (const [i, body] of sent.entries()) alice.say(text(body, places[i % 3], i % 3, i + 1));
    for (const [reader, event] of [[bob, 'message'], [phone, 'yourself'], [alice, 'yourself']])
      assert.deepEqual(await times(sent.length, () => body(reader, event)), sent);
    const history = await nodes[1].body('GET', '/groups/demo-group/chats?limit=1000');
    assert.equal(history.length, 100);
    await nodes[1].call('POST', '/system', { content: { body: 'all' } });
    for (const reader of [alice, phone, bob]) assert.equal(await body(reader, 'sys'), 'all');
  });

  test('a message that is stored slowly is waited for', async () => {
    const [alice, bob] = [await login(0, 'alice'), await login(2, 'bob')];
    const database = new pg.Client({ connectionString: cluster.database });
    await database.connect();
    await database.query('begin; lock table parcels in access exclusive mode');
    const large = text('x'.repeat(20_000), 'bob');
    alice.say(large);
    // Each node has since told the others its number, because it deletes old parcels after that.
    const beats = () => database.query(`select pg_stat_clear_snapshot();
      select count(*) from pg_stat_activity
      where wait_event_type = 'Lock' and query like 'delete from "parcels"%'`);
    while (Number((await beats())[1].rows[0].count) < nodes.length) await new Promise(setImmediate);
    await database.query('commit');
    await database.end();
    assert.equal(await body(bob), large.content.body, 'and no node thinks that it missed it');
  });

  test('polling that changes nodes gets an error; WebSocket does not need one node', async () => {
    const parameter = encodeURIComponent(JSON.stringify(auth({ client: 'alice' })));
    const query = `/socket.io/?EIO=4&transport=polling&auth=${parameter}`;
    const proxy = serviceAt(cluster.url);
    const open = (await proxy.send('GET', query)).body;
    const { sid } = JSON.parse(open.slice(1));
    const send = (i) => nodes[i].send('POST', `${query}&sid=${sid}`, '40/chat,');
    const answers = await times(nodes.length, send);
    const refused = answers.filter(({ status }) => status === 400).map(({ body }) => body);
    const unknown = { code: 1, message: 'Session ID unknown' };
    assert.equal(answers.filter(({ status }) => status === 200).length, 1, 'one node knows it');
    assert.deepEqual(refused, [unknown, unknown]);
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
    for (const node of nodes) assert.equal((await node.body('GET', '/ctx/alice')).sessions, 2);
    desk.close();
    phone.close();
    assert.equal(await bob.next('offline'), 'alice');
    await login(2, 'alice');
    assert.equal(await bob.next('online'), 'alice');
    await cluster.stopNode(2, 'SIGKILL');
    assert.equal(await bob.next('offline'), 'alice', 'the other nodes notice that it is gone');
    // The event is sent a moment before the record changes.
    while ((await nodes[1].body('GET', '/ctx/alice')).sessions !== 0);
    await cluster.startNode(2);
    await login(2, 'alice');
    assert.equal(await bob.next('online'), 'alice');
  });

  describe('with an obstructed way to its database', () => {
    let way;
    before(async () => {
      way = new Obstruction(cluster.socket);
      await cluster.stopNode(2);
      await cluster.startNode(2, { socket: way.folder });
    });
    after(async () => {
      await cluster.stopNode(2);
      way.close();
      await cluster.startNode(2);
    });

    const listening = () => [...way.links].find(({ heard }) => heard.includes('LISTEN'));
    const deafness = {
      'the connection ends': () => listening().client.destroy(),
      'the connection dies without a word': () => (listening().isStalled = true),
    };
    for (const [why, deafen] of Object.entries(deafness)) {
      test(`a node that does not hear the others drops its clients: ${why}`, async () => {
        const alice = await login(0, 'alice');
        const [phone, bob] = [await login(2, 'alice'), await login(2, 'bob')];
        way.hold('LISTEN');
        deafen();
        await way.holds();
        await assert.rejects(login(2, 'bob'), /disconnect/);
        assert.equal((await nodes[2].send('GET', '/health')).status, 503);
        phone.say(text('lost', 'bob', 0, 1));
        await phone.next('disconnect');
        alice.say(text('missed', 'bob', 0, 2));
        await alice.next('yourself');
        await nodes[2].call('POST', '/system', { content: { body: 'later' } });
        way.release();
        const lost = (event) => assert.rejects(bob.next(event), /disconnect/);
        await Promise.all([lost('sys'), lost('message')]);
        await healthy(2);
        const again = await login(2, 'bob');
        alice.say(text('heard', 'bob', 0, 3));
        assert.equal(await body(again), 'heard');
        assert.deepEqual(bodies(await talk(2)), ['heard', 'missed']);
      });
    }

    test('a message is acknowledged only after the other nodes were told', async () => {
      const [bob, alice] = [await login(0, 'bob'), await login(2, 'alice')];
      await bob.next('online'); // her messages wait until her login is finished
      way.hold('pg_notify');
      alice.say(text('kept', 'bob', 0, 1));
      while ((await talk(0)).length === 0);
      await way.holds();
      await cluster.stopNode(2, 'SIGKILL');
      await assert.rejects(alice.next('yourself'), /disconnect/);
      way.release();
      await cluster.startNode(2, { socket: way.folder });
    });
  });

  test('tables are changed as a whole, once, and keep what is in them', async () => {
    const keeper = new pg.Client({ connectionString: cluster.database });
    await keeper.connect();
    await keeper.query('create database upgrade');
    await keeper.end();
    const url = cluster.database.replace('/postgres?', '/upgrade?');
    const opened = [];
    const open = async (given) => {
      opened.push(await openDatabase({ url, migrations: given }));
      return opened.at(-1);
    };
    const column = (table) => table.text('later').notNullable().defaultTo('new');
    const later = [...migrations, ['2-later', (db) => db.schema.alterTable('users', column)]];
    const failing = [...later, ['3-failing', (db) => db.raw('drop table users; select 1 / 0')]];
    const user = { id: 'alice', created: 1, updated: 1, attributes: '{}' };

    const first = await open();
    await first('users').insert(user);
    await assert.rejects(open(failing), /division by zero/);
    const unknown = { code: '42703' };
    await assert.rejects(first('users').select('later'), unknown, 'the old version still runs');
    await open();
    const nodes = await Promise.all([open(later), open(later), open(later)]);
    const rows = [{ id: 'alice', later: 'new' }];
    for (const db of nodes) assert.deepEqual(await db('users').select('id', 'later'), rows);
    assert.deepEqual(await first('schema_versions').pluck('name'), ['1-first', '2-later']);
    await assert.rejects(open(), /later version/);
    await Promise.all(opened.map((db) => db.destroy()));
  });

  test('when the database goes away, connections end, but no sent message is lost', async () => {
    const bob = await login(1, 'bob');
    const alice = await login(0, 'alice');
    alice.say(text('before', 'bob', 0, 1));
    assert.equal(await body(bob), 'before');
    await cluster.stopDatabase();
    alice.say(text('meanwhile', 'bob', 0, 2));
    await alice.next('disconnect');
    await cluster.startDatabase();
    await bob.next('disconnect'); // because he may have missed something
    await Promise.all([healthy(0), healthy(1)]);
    const [again, reader] = [await login(0, 'alice'), await login(1, 'bob')];
    again.say(text('after', 'bob', 0, 3));
    assert.equal(await body(reader), 'after');
    assert.deepEqual(bodies(await talk(2)), ['after', 'before']);
  });
});
