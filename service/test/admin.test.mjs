// What the operator of a running service does on the command line.

import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtempSync, readFileSync, readdirSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { text as contentOf } from 'node:stream/consumers';
import { after, before, describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { admin as command } from '../admin.js';
import { readOptions } from '../options.js';
import { sign } from '../signature.js';
import { connect, signedBy, start, text } from './support.mjs';

const program = fileURLToPath(new URL('../server.js', import.meta.url));

describe('admin', { timeout: 120_000 }, () => {
  let service;
  let flags;
  const folder = mkdtempSync(join(tmpdir(), 'admin-test-'));
  before(async () => {
    flags = ['--data', join(folder, 'data'), '--user-secret', 'a-secret-of-the-tests'];
    service = await start(...flags);
  });
  after(async () => {
    await service.stop();
    rmSync(folder, { recursive: true });
  });

  /** Resolves to {code, out, err} of "admin …". */
  async function admin(words, { input = '', more = flags } = {}) {
    const child = spawn(process.execPath, [program, 'admin', ...words, ...more]);
    child.stdin.end(input);
    const texts = [child.stdout, child.stderr].map((stream) => contentOf(stream));
    const [out, err, [code]] = await Promise.all([...texts, once(child, 'exit')]);
    return { code, out, err };
  }
  const lines = (out) => out.split('\n').filter(Boolean);
  const ask = (who, method, path, body) => service.body(method, path, body, signedBy(who));
  const ok = async (words, options) => {
    const { code, out, err } = await admin(words, options);
    assert.equal(code, 0, `${words.join(' ')}: ${err}`);
    return Object.fromEntries(lines(out).map((line) => line.split(': ')));
  };
  const login = async ({ app, key }, username, password) => {
    const client = connect(service, '4', { app, sign: sign(key), username, password });
    const { id, error } = await client.next('login');
    return { ...client, result: id ?? error.errorCode };
  };
  const ids = async () => lines((await admin(['list'])).out).map((line) => line.split('\t')[0]);

  test('users come, change their password and go while it runs', async () => {
    const alice = await ok(['add', 'alice']);
    const bob = await ok(['add', 'bob', 'Bobby', '-'], { input: 'chosen by bob\n' });
    assert.equal(bob.password, undefined, 'what was chosen is not shown');
    assert.deepEqual(await ids(), ['alice', 'bob']);
    const first = await login(alice, 'alice', alice.password);
    const second = await login(bob, 'Bobby', 'chosen by bob');
    assert.deepEqual([first.result, second.result], ['alice', 'bob']);
    second.close();

    const changed = await ok(['password', 'bob']);
    assert.notEqual(changed.key, bob.key);
    assert.deepEqual(await ok(['key', 'bob']), { app: changed.app, key: changed.key });
    for (const [why, key, password, expected] of [
      ['the old key', bob, changed.password, 1102],
      ['the old password', changed, 'chosen by bob', 1105],
      ['both new', changed, changed.password, 'bob'],
    ]) {
      const client = await login(key, 'Bobby', password);
      assert.equal(client.result, expected, why);
      client.close();
    }

    const group = await ask(changed, 'POST', '/groups', { owner: 'bob', members: ['alice'] });
    await ask(alice, 'POST', '/ctx/alice/friends/bob');
    first.say(text('before you go', 'bob'));
    await first.next('yourself');
    await ok(['remove', 'bob']);
    assert.deepEqual(await ids(), ['alice']);
    assert.equal((await login(changed, 'Bobby', changed.password)).result, 1102);
    assert.deepEqual(await ask(alice, 'GET', '/ctx/alice/friends'), []);
    const { owner, members } = await ask(alice, 'GET', `/groups/${group}`);
    assert.deepEqual([owner, members], ['alice', ['alice']], 'a remaining member gets the group');
    const again = await ok(['add', 'bob']);
    await ask(again, 'POST', '/ctx/bob/friends/alice');
    const talk = await ask(again, 'GET', '/ctx/bob/friends/alice/chats');
    assert.deepEqual(talk, [], 'a new bob does not read the old one’s talks');
    first.close();
  });

  test('a backup brings everything back while it runs', async () => {
    const carol = await ok(['add', 'carol', 'carol', '-'], { input: 'pw\n' });
    const form = new FormData();
    form.set('attachment', new Blob(['the minutes']), 'minutes.txt');
    const [url] = await ask(carol, 'POST', '/attachment', form);
    const live = await login(carol, 'carol', 'pw');
    const group = await ask(carol, 'POST', '/groups', { owner: 'carol' });
    const say = async (body) => {
      live.say(text(body, group, 1));
      await live.next('yourself');
    };
    await say('kept');
    const file = join(folder, 'backup.tar');
    await ok(['backup', file]);
    assert.equal(statSync(file).mode & 0o077, 0, 'it is for nobody else to read');
    await say('lost');
    await ok(['add', 'dave']);
    const files = join(folder, 'data', 'attachments');
    for (const name of readdirSync(files)) rmSync(join(files, name));

    const before = await ids();
    writeFileSync(join(folder, 'broken.tar'), readFileSync(file).subarray(0, 3_000));
    assert.notEqual((await admin(['restore', join(folder, 'broken.tar')])).code, 0);
    assert.deepEqual(await ids(), before, 'half a backup changes nothing');

    await ok(['restore', file]);
    assert.ok(!(await ids()).includes('dave'));
    const history = async () =>
      (await ask(carol, 'GET', `/groups/${group}/chats`)).map(({ content }) => content.body);
    assert.deepEqual(await history(), ['kept']);
    assert.equal((await service.send('GET', url)).body, 'the minutes');
    await say('after');
    assert.deepEqual(await history(), ['after', 'kept'], 'the running service goes on with it');
    live.close();
    const left = readdirSync(join(folder, 'data')).filter((name) => name.startsWith('backup-'));
    assert.deepEqual(left, [], 'no temporary files are left');
  });

  test('a mistake is named', async () => {
    const cases = [
      [['add'], /other arguments/],
      [['add', 'alice'], /taken/],
      [['add', 'a b'], /An id must/],
      [['remove', 'nobody'], /no such user/],
      [['password', 'nobody'], /no such user/],
      [['dance'], /one of these commands/],
      [['restore', '/nonexistent.tar'], /tar/],
      [['list'], /--data or --database/, []],
    ];
    for (const [words, message, more = flags] of cases)
      await assert.rejects(command(words, readOptions(more)), message, words.join(' '));
    const { code, err } = await admin(['add', 'x', 'x', '-']);
    assert.equal(code, 2);
    assert.match(err, /no password[^]*usage: server.js admin/);
  });
});
