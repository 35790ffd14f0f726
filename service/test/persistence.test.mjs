// What was acknowledged is there after the process has ended, however it did.

import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { mkdtempSync, readFileSync, readdirSync, rmSync, truncateSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { afterEach, beforeEach, describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { auth, connect, start, text } from './support.mjs';

describe('a service with a folder', { timeout: 120_000 }, () => {
  let data;
  let service;
  const open = async () => (service = await start('--development', '--data', data));
  const ok = async (...request) => {
    const { status, body } = await service.call(...request);
    assert.equal(status, 200, `${request}: ${JSON.stringify(body)}`);
    return body;
  };
  beforeEach(async () => {
    data = mkdtempSync(join(tmpdir(), 'persistence-test-'));
    await open();
  });
  afterEach(async () => {
    await service.stop();
    rmSync(data, { recursive: true });
  });

  test('all kinds of records survive a clean end and a kill', async () => {
    await service.control('POST', '/users', { id: 'carol', username: 'carol', password: 'carol-secret', attributes: { n: 1.5, '\0': 'é😀' } });
    const group = await ok('POST', '/groups', { owner: 'carol', name: 'Team', members: ['bob'], topic: 'x' });
    const room = await ok('POST', '/rooms', { name: 'Ha\0ll', members: ['bob', 'alice'] });
    const passenger = await ok('POST', '/passengers', { name: 'Visitor' });
    await ok('POST', '/ctx/carol/friends/bob');
    await ok('DELETE', '/ctx/alice/friends/bob');
    const form = new FormData();
    form.append('attachment', new Blob(['some text'], { type: 'text/plain' }), 'a.txt');
    const [file] = await ok('POST', '/attachment', form);
    const paths = ['/ctx/carol', '/ctx/bob', '/ctx/carol/friends?detail', `/groups/${group}`, `/rooms/${room}`, `/passengers/${passenger}`, '/groups'];
    const before = [];
    for (const path of paths) before.push(await ok('GET', path));
    assert.deepEqual([before[0].friends, before[1].rooms], [['bob'], ['demo-room', room]]);
    for (const signal of ['SIGTERM', 'SIGKILL']) {
      await service.stop(signal);
      await open();
      for (const [i, path] of paths.entries()) assert.deepEqual(await ok('GET', path), before[i], `${path} after ${signal}`);
      assert.equal(await (await fetch(new URL(new URL(file).pathname, service.url))).text(), 'some text');
      const login = connect(service, '4', auth({ username: 'carol', password: 'carol-secret' }));
      assert.equal((await login.next('login')).id, 'carol', 'and the seed has not come back');
      login.close();
    }
    await service.stop();
    const found = spawnSync('grep', ['-rc', 'carol-secret', data], { encoding: 'utf8' }).stdout;
    assert.ok(found.trim().split('\n').every((line) => line.endsWith(':0')), `no password is readable in ${found}`);
  });

  test('messages and files that were acknowledged survive kills under load, once and in order', async () => {
    const acknowledged = { messages: [], files: [] };
    for (let round = 0; round < 3; round += 1) {
      const alice = connect(service, '4', auth({ client: 'alice' }));
      await alice.next('login');
      const uploads = async () => {
        for (let i = 0; ; i += 1) {
          const form = new FormData();
          const content = `${round} ${i} `.repeat(20_000);
          form.append('attachment', new Blob([content]), 'a.bin');
          const { status, body } = await service.call('POST', '/attachment', form).catch(() => ({}));
          if (status !== 200) return;
          acknowledged.files.push([new URL(body[0]).pathname, content]);
        }
      };
      const uploading = uploads();
      for (let i = 0; i < 3000; i += 1) alice.say(text(`${round} ${i}`, 'bob', 0, round * 10_000 + i + 1));
      for (let i = 0; i < 500 * (round + 1); i += 1) acknowledged.messages.push((await alice.next('yourself')).content.body);
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
      const numbers = bodies.filter((body) => body.startsWith(`${round} `)).map((body) => Number(body.split(' ')[1]));
      assert.deepEqual(numbers, numbers.map((_, i) => i), 'what is lost is the end only');
    }
    assert.ok(acknowledged.files.length > 0);
    for (const [path, content] of acknowledged.files) assert.equal(await (await fetch(new URL(path, service.url))).text(), content);
    for (const name of readdirSync(join(data, 'attachments')).filter((one) => !one.endsWith('.part'))) {
      assert.equal(readFileSync(join(data, 'attachments', name)).length % 20_000, 0, 'what has a name is whole');
    }
  });

  test('a folder is left alone that another service uses, that a later version has changed, or that is damaged', async () => {
    const refused = (...words) => {
      const program = fileURLToPath(new URL('../server.js', import.meta.url));
      const { status, stderr } = spawnSync(process.execPath, [program, ...words, '--development', '--data', data], { encoding: 'utf8', timeout: 30_000 });
      assert.equal(status, 2);
      return stderr;
    };
    assert.match(refused(), /Another service uses/);
    await service.stop('SIGKILL');
    const insert = "insert into schema_versions (name, batch, migration_time) values ('9-later', 9, 0)";
    const script = `new (require('better-sqlite3'))(process.argv[1]).exec("${insert}")`;
    execFileSync(process.execPath, ['-e', script, join(data, 'service.sqlite')], { cwd: fileURLToPath(new URL('..', import.meta.url)) });
    assert.match(refused(), /later version/);
    truncateSync(join(data, 'service.sqlite'), 5_000);
    assert.match(refused(), /^\S*service\.sqlite is damaged \(.*\)\. Move it away[^]*\n$/);
    truncateSync(join(data, 'service.sqlite'), 0);
    for (const words of [[], ['admin', 'list'], ['admin', 'backup', join(data, 'backup.tar')]]) assert.match(refused(...words), /service\.sqlite is empty/, words.join(' '));
  });
});
