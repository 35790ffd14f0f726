// The process itself, and the faults that tests ask it for.

import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { mkdtempSync, rmSync } from 'node:fs';
import { get } from 'node:https';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { UsageError, readOptions } from '../options.js';
import { auth, connect, start } from './support.mjs';

const program = fileURLToPath(new URL('../server.js', import.meta.url));

describe('the process', { timeout: 60_000 }, () => {
  test('it ends cleanly on SIGTERM with connections open', async () => {
    for (const line of ['2', '3', '4']) {
      const service = await start('--socketio', line);
      const alice = connect(service, line, auth({ client: 'alice' }));
      await alice.next('login');
      assert.equal(await service.stop(), 0);
      await alice.next('disconnect');
    }
  });

  test('it ends when its standard input does', async () => {
    const { child } = await start();
    child.stdin.end();
    assert.deepEqual(await once(child, 'exit'), [0, null]);
  });

  test('a flag that it cannot use ends it at once', () => {
    for (const flags of [['--socketio', '5'], ['--port', 'x'], ['--nothing'], ['--tls', 'cert-only']]) assert.throws(() => readOptions(flags), UsageError, flags[0]);
    const { status, stderr } = spawnSync(process.execPath, [program, 'stray'], { encoding: 'utf8', timeout: 60_000 });
    assert.equal(status, 2);
    assert.match(stderr, /unknown word: stray\n[^]*usage:/);
  });

  test('it speaks TLS', async () => {
    const folder = mkdtempSync(join(tmpdir(), 'tls-test-'));
    const [key, cert] = [join(folder, 'key.pem'), join(folder, 'cert.pem')];
    const subject = ['-days', '1', '-subj', '/CN=localhost'];
    execFileSync('openssl', ['req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-keyout', key, '-out', cert, ...subject], { stdio: 'ignore' });
    const service = await start('--tls', cert, key);
    const [response] = await once(get(`${service.url}/_control/seed`, { rejectUnauthorized: false }), 'response');
    assert.equal(response.resume().statusCode, 200);
    const alice = connect(service, '4', auth({ client: 'alice' }), { rejectUnauthorized: false });
    assert.equal((await alice.next('login')).success, true);
    alice.close();
    await service.stop();
    rmSync(folder, { recursive: true });
  });
});

describe('faults', { timeout: 60_000 }, () => {
  let service;
  before(async () => (service = await start()));
  after(() => service.stop());
  const plan = (fault) => service.control('POST', '/faults', fault);

  test('an answer is replaced as often as asked, on the requests asked for', async () => {
    await plan({ method: 'GET', path: '/ctx/bob', times: 2, skip: 1, status: 503, headers: { 'Retry-After': '1' }, body: { a: 1 } });
    const statuses = [];
    for (const request of ['GET /ctx/alice', 'DELETE /ctx/bob/friends/zed', 'GET /ctx/bob', 'GET /ctx/bob/friends', 'GET /ctx/bob', 'GET /ctx/bob']) {
      const { status, body, headers } = await service.call(...request.split(' '));
      statuses.push(status);
      if (status === 503) assert.deepEqual([body, headers.get('retry-after')], [{ a: 1 }, '1']);
    }
    assert.deepEqual(statuses, [200, 404, 200, 503, 503, 200]);
    await plan({ bodyBase64: '/w==', headers: { 'Content-Type': 'x/y' } });
    assert.equal((await service.call('POST', '/groups', { owner: 'alice' })).body, '\ufffd', 'any bytes');
    assert.equal((await service.call('GET', '/groups')).body.length, 1, 'the service never saw it');
  });

  test('a connection is cut where asked', async () => {
    const cases = [
      ['before anything is read', { drop: true }],
      ['within the request', { dropAfterReceived: 3 }],
      ['after the request', { dropAfterReceived: 1_000_000 }],
      ['before the body of a real answer', { dropAfterSent: 0 }],
      ['within a real answer', { dropAfterSent: 5 }],
      ['within a made-up answer', { dropAfterSent: 5, status: 200, body: 'no more than half of it' }],
    ];
    for (const [why, fault] of cases) {
      await plan(fault);
      await assert.rejects(service.call('POST', '/ctx/alice/attributes', { a: 1 }), TypeError, why);
      assert.equal((await service.call('GET', '/ctx/alice')).status, 200, `${why}: the next one works`);
    }
  });

  test('the log keeps requests with their bodies, faulted ones too', async () => {
    await service.control('DELETE', '/log');
    await plan({ path: '/system', status: 500 });
    await service.call('POST', '/system?a=b', { content: {} });
    await service.call('POST', '/system', { content: {} }, { 'X-Extra': 'yes' });
    const entries = await service.control('GET', '/log?kind=request');
    assert.deepEqual(entries.map(({ method, url, body, status }) => [method, url, body, status]), [
      ['POST', '/system?a=b', '{"content":{}}', 500],
      ['POST', '/system', '{"content":{}}', 200],
    ]);
    assert.equal(entries[1].headers['x-extra'], 'yes');
  });

  test('a delay holds one request up and no other', async () => {
    await plan({ path: '/ctx/alice', delayMs: 300 });
    const order = [];
    await Promise.all(['/ctx/alice', '/ctx/bob'].map((path) => service.call('GET', path).then(() => order.push(path))));
    assert.deepEqual(order, ['/ctx/bob', '/ctx/alice']);
  });

  test('a client that leaves during a fault harms nobody', async () => {
    await plan({ path: '/ctx/alice', delayMs: 200, status: 500 });
    await assert.rejects(fetch(`${service.url}/ctx/alice`, { signal: AbortSignal.timeout(50) }));
    await plan({ path: '/ctx/bob', delayMs: 300 }); // so that the first one's answer is due before the second's
    assert.equal((await service.call('GET', '/ctx/bob')).status, 200);
  });
});
