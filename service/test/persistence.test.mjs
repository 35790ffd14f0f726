// Everything acknowledged is still there after the process has ended in any way.

import assert from 'node:assert/strict';
import { spawnSync } from 'node:child_process';
import { mkdtempSync, readFileSync, readdirSync, rmSync, truncateSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { afterEach, beforeEach, describe, test } from 'node:test';
import { auth, connect, runServer, start, text, times } from './support.mjs';

const Sqlite = createRequire(import.meta.url)('better-sqlite3');

describe('a service with a folder', { timeout: 120_000 }, () => {
  let data;
  let service;
  const open = async () => (service = await start('--development', '--data', data));
  const ok = async (...request) => {
    const { status, body } = await service.call(...request);
    assert.equal(status, 200, `${request}: ${JSON.stringify(body)}`);
    return body;
  };
  const content = async (path) => (await fetch(new URL(path, service.url))).text();
  beforeEach(async () => {
    data = mkdtempSync(join(tmpdir(), 'persistence-test-'));
    await open();
  });
  afterEach(async () => {
    await service.stop();
    rmSync(data, { recursive: true });
  });

  test('all kinds of records survive a clean end and a kill', async () => {
    const carol = { username: 'carol', password: 'carol-secret' };
    const attributes = { n: 1.5, '\0': 'é😀' };
    await service.control('POST', '/users', { id: 'carol', ...carol, attributes });
    const team = { owner: 'carol', name: 'Team', members: ['bob'], topic: 'x' };
    const group = await ok('POST', '/groups', team);
    const room = await ok('POST', '/rooms', { name: 'Ha\0ll', members: ['bob', 'alice'] });
    const passenger = await ok('POST', '/passengers', { name: 'Visitor' });
    await ok('POST', '/ctx/carol/friends/bob');
    await ok('DELETE', '/ctx/alice/friends/bob');
    const form = new FormData();
    form.append('attachment', new Blob(['some text'], { type: 'text/plain' }), 'a.txt');
    const [file] = await ok('POST', '/attachment', form);
    const paths = ['/ctx/carol', '/ctx/bob', '/ctx/carol/friends?detail', `/groups/${group}`,
      `/rooms/${room}`, `/passengers/${passenger}`, '/groups'];
    const all = () => times(paths.length, (i) => ok('GET', paths[i]));
    const before = await all();
    assert.deepEqual([before[0].friends, before[1].rooms], [['bob'], ['demo-room', room]]);
    for (const signal of ['SIGTERM', 'SIGKILL']) {
      await service.stop(signal);
      await open();
      assert.deepEqual(await all(), before, `after ${signal}`);
      assert.equal(await content(new URL(file).pathname), 'some text');
      const login = connect(service, '4', auth(carol));
      assert.equal((await login.next('login')).id, 'carol', 'and the seed has not come back');
      login.close();
    }
    await service.stop();
    const found = spawnSync('grep', ['-rc', 'carol-secret', data], { encoding: 'utf8' }).stdout;
    const isReadable = found.trim().split('\n').some((line) => !line.endsWith(':0'));
    assert.ok(!isReadable, `no password is readable in ${found}`);
  });

  test('acknowledged messages and files survive kills under load, once and in order', async () => {
    const acknowledged = { messages: [], files: [] };
    for (let round = 0; round < 3; round += 1) {
      const alice = connect(service, '4', auth({ client: 'alice' }));
      await alice.next('login');
      const uploads = async () => {
        for (let i = 0; ; i += 1) {
          const form = new FormData();
          const content = `${round} ${i} `.repeat(20_000);
          form.append('attachment', new Blob([content]), 'a.bin');
          const { status, body } =
            await service.call('POST', '/attachment', form).catch(() => ({}));
          if (status !== 200) return;
          acknowledged.files.push([new URL(body[0]).pathname, content]);
        }
      };
      const uploading = uploads();
      for (let i = 0; i < 3000; i += 1)
        alice.say(text(`${round} ${i}`, 'bob', 0, round * 10_000 + i + 1));
      const sent = await times(500 * (round + 1), () => alice.next('yourself'));
      acknowledged.messages.push(...sent.map((message) => message.content.body));
      await service.stop('SIGKILL');
      await uploading;
      alice.close();
      await open();
    }
    const kept = [];
    for (let before = ''; ; before = kept[0].ts) {
      const page = await ok('GET', `/ctx/alice/friends/bob/chats?limit=1000&ts=${before}`);
      if (page.length === 0) break;
      kept.unshift(...page.reverse());
    }
    const bodies = kept.map((message) => message.content.body);
    assert.equal(new Set(bodies).size, bodies.length, 'none is there twice');
    assert.deepEqual(acknowledged.messages.filter((body) => !bodies.includes(body)), []);
    for (let round = 0; round < 3; round += 1) {
      const pairs = bodies.map((body) => body.split(' ').map(Number));
      const numbers = pairs.filter(([first]) => first === round).map(([, number]) => number);
      assert.deepEqual(numbers, numbers.map((_, i) => i), 'only the end is lost');
    }
    assert.ok(acknowledged.files.length > 0);
    for (const [path, expected] of acknowledged.files) assert.equal(await content(path), expected);
    const folder = join(data, 'attachments');
    const names = readdirSync(folder).filter((name) => !name.endsWith('.part'));
    for (const name of names)
      assert.equal(readFileSync(join(folder, name)).length % 20_000, 0, `${name} is whole`);
  });

  test('a folder in use, from a later version or damaged is left alone', async () => {
    const refused = (...words) => {
      const { status, stderr } = runServer(...words, '--development', '--data', data);
      assert.equal(status, 2);
      return stderr;
    };
    assert.match(refused(), /Another service uses/);
    await service.stop('SIGKILL');
    const file = join(data, 'service.sqlite');
    const database = new Sqlite(file);
    database.exec("insert into schema_versions (name, batch, migration_time) values ('9', 9, 0)");
    database.close();
    assert.match(refused(), /later version/);
    truncateSync(file, 5_000);
    assert.match(refused(), /^\S*service\.sqlite is damaged \(.*\)\. Move it away[^]*\n$/);
    truncateSync(file, 0);
    for (const words of [[], ['admin', 'list'], ['admin', 'backup', join(data, 'backup.tar')]])
      assert.match(refused(...words), /service\.sqlite is empty/, words.join(' '));
  });
});
