// The process itself, and the faults that tests can ask for.

import assert from 'node:assert/strict';
import { once } from 'node:events';
import { mkdtempSync, rmSync } from 'node:fs';
import { get } from 'node:https';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, describe, test } from 'node:test';
import { UsageError, readOptions } from '../options.js';
import { auth, certificate, connect, runServer, start } from './support.mjs';

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
    for (const flags of ['--socketio 5', '--port x', '--nothing', '--tls cert-only'])
      assert.throws(() => readOptions(flags.split(' ')), UsageError, flags);
    const { status, stderr } = runServer('stray');
    assert.equal(status, 2);
    assert.match(stderr, /unknown word: stray\n[^]*usage:/);
  });

  test('it speaks TLS', async () => {
    const folder = mkdtempSync(join(tmpdir(), 'tls-test-'));
    const service = await start('--tls', ...certificate(folder, 'localhost'));
    const trust = { rejectUnauthorized: false };
    const [response] = await once(get(`${service.url}/_control/seed`, trust), 'response');
    assert.equal(response.resume().statusCode, 200);
    const alice = connect(service, '4', auth({ client: 'alice' }), trust);
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
    const answer = { status: 503, headers: { 'Retry-After': '1' }, body: { a: 1 } };
    await plan({ method: 'GET', path: '/ctx/bob', times: 2, skip: 1, ...answer });
    const statuses = [];
    for (const request of ['GET /ctx/alice', 'DELETE /ctx/bob/friends/zed', 'GET /ctx/bob',
      'GET /ctx/bob/friends', 'GET /ctx/bob', 'GET /ctx/bob']) {
      const { status, body, headers } = await service.call(...request.split(' '));
      statuses.push(status);
      if (status === 503) assert.deepEqual([body, headers.get('retry-after')], [{ a: 1 }, '1']);
    }
    assert.deepEqual(statuses, [200, 404, 200, 503, 503, 200]);
    await plan({ bodyBase64: '/w==', headers: { 'Content-Type': 'x/y' } });
    assert.equal(await service.body('POST', '/groups', { owner: 'alice' }), '\ufffd', 'any bytes');
    assert.equal((await service.body('GET', '/groups')).length, 1, 'the service never saw it');
  });

  test('a connection is cut where asked', async () => {
    const cases = [
      ['before anything is read', { drop: true }],
      ['within the request', { dropAfterReceived: 3 }],
      ['after the request', { dropAfterReceived: 1_000_000 }],
      ['before the body of a real answer', { dropAfterSent: 0 }],
      ['within a real answer', { dropAfterSent: 5 }],
      ['within a made-up answer', { dropAfterSent: 5, status: 200, body: 'only half of this' }],
    ];
    for (const [why, fault] of cases) {
      await plan(fault);
      await assert.rejects(service.call('POST', '/ctx/alice/attributes', { a: 1 }), TypeError, why);
      assert.equal(await service.status('GET', '/ctx/alice'), 200, `${why}: the next one works`);
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
    const ask = (path) => service.call('GET', path).then(() => order.push(path));
    await Promise.all(['/ctx/alice', '/ctx/bob'].map(ask));
    assert.deepEqual(order, ['/ctx/bob', '/ctx/alice']);
  });

  test('a client that leaves during a fault harms nobody', async () => {
    await plan({ path: '/ctx/alice', delayMs: 200, status: 500 });
    await assert.rejects(fetch(`${service.url}/ctx/alice`, { signal: AbortSignal.timeout(50) }));
    await plan({ path: '/ctx/bob', delayMs: 300 }); // so that the first answer is due before
    assert.equal(await service.status('GET', '/ctx/bob'), 200);
  });
});
