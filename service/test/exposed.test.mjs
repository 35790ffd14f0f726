// A service that others can reach: what a stranger on the network may try, and what its operator
// sees. With "--trust-proxy loopback" the tests are a proxy, so they can come from any address.

import assert from 'node:assert/strict';
import { once } from 'node:events';
import { copyFileSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { connect as connectPlain } from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, describe, test } from 'node:test';
import { connect as connectTls } from 'node:tls';
import { readOptions } from '../options.js';
import { sign } from '../signature.js';
import { LoginThrottle } from '../throttle.js';
import { auth, certificate, connect, runServer, start, text, times } from './support.mjs';

const Sqlite = createRequire(import.meta.url)('better-sqlite3');
const secret = 'a-secret-of-the-tests';
const strict = ['--trust-proxy', 'loopback', '--key', 'demo-key'];
const folder = mkdtempSync(join(tmpdir(), 'exposed-test-'));
const write = (name, content) => {
  writeFileSync(join(folder, name), JSON.stringify(content));
  return join(folder, name);
};
const users = ['alice', 'bob'].map((id) => ({ id, username: id, password: `${id}-secret` }));
const seed = write('seed.json', { users });
after(() => rmSync(folder, { recursive: true }));

/** A service that ends with the test `t`, even if the test fails. */
async function run(t, ...flags) {
  const service = await start(...flags);
  t.after(() => service.stop());
  return service;
}

/** One login from `address`; the name of the error's code, or "ok". */
async function login(service, credentials, address, line = '4', signature = undefined) {
  const client = connect(service, line, auth(credentials, signature), {
    extraHeaders: address ? { 'X-Forwarded-For': address } : {},
    auth: { password: 'alice-secret' }, // where another client might put it
  });
  const { success, error } = await client.next('login');
  client.close();
  return success ? 'ok' : error.errorCode;
}
const password = (username, text = `${username}-secret`) => ({ username, password: text });
const metrics = async (service) => (await service.send('GET', '/metrics')).body;

async function connected(service, user = 'alice') {
  const client = connect(service, '4', auth(password(user)));
  await client.next('login');
  return client;
}

describe('the control endpoint', { timeout: 60_000 }, () => {
  test('in development it refuses requests from proxies and web pages', async (t) => {
    const service = await run(t);
    const status = async (headers) =>
      (await service.send('POST', '/_control/reset', undefined, headers)).status;
    const cases = [
      ['RFC 7239', { Forwarded: 'for=192.0.2.1' }],
      ['what most proxies send', { 'X-Forwarded-For': '192.0.2.1' }],
      ['any of that family', { 'X-Forwarded-Proto': 'https' }],
      ['nginx', { 'X-Real-IP': '127.0.0.1' }],
      ['RFC 9110', { Via: '1.1 proxy' }],
      ['a form in a page', { Origin: 'https://evil.example' }],
      ['a link in a page', { 'Sec-Fetch-Site': 'cross-site' }],
    ];
    for (const [why, headers] of cases) assert.equal(await status(headers), 404, why);
    const socket = connectPlain(new URL(service.url).port, '127.0.0.1');
    socket.end('GET /_control/seed HTTP/1.1\r\nHost: evil.example\r\nConnection: close\r\n\r\n');
    const [answer] = await once(socket, 'data');
    assert.match(String(answer), /^HTTP\/1.1 404/, 'a name that was made to point here');
    assert.equal((await service.control('GET', '/seed')).users.length, 2);
  });

  test('elsewhere it is off or asks for its secret, and logs no secrets of users', async (t) => {
    const off = await run(t, ...strict);
    for (const path of ['/seed', '/log'])
      assert.equal(await off.status('GET', `/_control${path}`), 404);
    const service = await run(t, ...strict, '--seed', seed, '--control-secret', secret);
    const passedOn = { Authorization: `Bearer ${secret}`, 'X-Forwarded-For': '127.0.0.1' };
    const wrong = ['', 'Bearer wrong', `Bearer ${secret}x`, `Basic ${secret}`];
    for (const headers of [...wrong.map((Authorization) => ({ Authorization })), passedOn]) {
      const { status } = await service.send('GET', '/_control/seed', undefined, headers);
      assert.equal(status, 404, JSON.stringify(headers));
    }
    assert.equal(await login(service, password('alice')), 'ok');
    const log = JSON.stringify(await service.control('GET', '/log'));
    assert.match(log, /"login"/);
    await service.stop();
    const secrets = /alice-secret|alice%2Dsecret|demo-key|"sign":"[0-9a-f]/;
    assert.doesNotMatch(log + JSON.stringify(service.journal), secrets);
  });

  test('credentials in packets of the older line are masked too', async (t) => {
    const noted = ['--control-secret', secret, '--log-level', 'debug'];
    const service = await run(t, ...strict, '--seed', seed, ...noted, '--socketio', '2');
    assert.equal(await login(service, password('alice'), undefined, '2'), 'ok');
    const log = JSON.stringify(await service.control('GET', '/log'));
    await service.stop();
    assert.match(log, /"packet"/);
    assert.doesNotMatch(log + JSON.stringify(service.journal), /alice-secret|sign%22/);
  });
});

describe('limits', { timeout: 60_000 }, () => {
  test('an id alone is no login', async (t) => {
    const service = await run(t, ...strict, '--seed', seed);
    await service.call('POST', '/passengers', { id: 'visitor' });
    assert.equal(await login(service, { client: 'alice', install: 'x' }), 1105);
    assert.equal(await login(service, { client: 'visitor' }), 'ok');
  });

  test('guessing passwords ends soon, and locks out nobody who was here before', async (t) => {
    const service = await run(t, ...strict, '--seed', seed, '--login-failures', '3');
    const from = (address, ...given) => login(service, password(...given), address);
    const good = await times(4, () => from('192.0.2.1', 'alice'));
    assert.deepEqual(good, ['ok', 'ok', 'ok', 'ok'], 'successful logins are not counted');
    const one = await times(4, (i) => from('192.0.2.9', 'nobody', String(i)));
    assert.deepEqual(one, [1105, 1105, 1105, 1007], 'one address, any account');
    assert.equal(await from('192.0.2.9', 'bob'), 1007, 'the right password does not help it');
    const guess = password('alice', 'x');
    await times(4, (i) => login(service, guess, `198.51.101.${i}`, '4', 'no signature'));
    const many = [1, 2, 3, 4, 5].map((i) => login(service, guess, `198.51.100.${i}`));
    const results = (await Promise.all(many)).sort();
    assert.deepEqual(results, [1007, 1007, 1105, 1105, 1105], 'many addresses, one account');
    assert.equal(await from('203.0.113.1', 'alice'), 1007, 'an address new to the account waits');
    assert.equal(await from('192.0.2.1', 'alice'), 'ok', 'the owner is not locked out');
    const network = await times(4, (i) => from(`2001:db8:1:1::${i}`, 'nobody2', 'x'));
    assert.equal(network[3], 1007, 'an IPv6 customer is one address');
    assert.equal(await from('2001:db8:1:2::1', 'bob'), 'ok');
    const body = await metrics(service);
    assert.match(body, /vexim_logins_total\{result="wrongCredentials"\} 9/);
    assert.match(body, /vexim_rate_limited_total\{limit="logins"\} 6/);
  });

  test('a failure of the service itself counts against nobody', async () => {
    const throttle = new LoginThrottle(1);
    for (const address of ['192.0.2.1', '192.0.2.1', '192.0.2.2']) {
      const login = throttle.attempt(address, async (account) => {
        await account('alice');
        throw new Error('no disk');
      });
      await assert.rejects(login, /no disk/);
    }
  });

  test('requests and handshakes of a client are counted together, unread', async (t) => {
    const service = await run(t, ...strict, '--request-rate', '1');
    const headersOf = (address) => ({ 'X-Forwarded-For': address });
    const ask = (address, path = '/ctx/x') =>
      service.call('GET', path, undefined, headersOf(address));
    const paths = ['/socket.io/?EIO=4&transport=polling', '/ctx/x'];
    const answers = await times(10, (i) => ask('192.0.2.1', paths[i % 2]));
    assert.ok(!answers.some((answer) => answer.status === 429));
    const { status, headers, body } = await ask('192.0.2.1');
    assert.deepEqual([status, headers.get('retry-after'), body.errorCode], [429, '10', 1007]);
    const extraHeaders = headersOf('192.0.2.1');
    const client = connect(service, '4', auth(password('alice')), { extraHeaders });
    const { context } = await client.next('connect_error');
    assert.match(String(context?.message ?? 'websocket error'), /429|websocket error/);
    client.close();
    assert.equal((await ask('192.0.2.2')).status, 404, 'others go on');
  });

  test('a client that floods others or the service is cut off, logged in or not', async (t) => {
    const service = await run(t, ...strict, '--request-rate', '1', '--seed', seed);
    const alice = await connected(service);
    for (let i = 0; i < 11; i += 1) alice.say(text('x', 'bob'));
    await alice.next('disconnect');
    const ten = /vexim_messages_total\{result="refused"\} 10/;
    assert.match(await metrics(service), ten, 'ten are allowed in ten seconds');
    const stranger = connect(service, '4', auth({ username: 'alice', password: 'wrong' }));
    assert.equal((await stranger.next('login')).success, false);
    for (let i = 0; i < 11; i += 1) stranger.say(text('x', 'bob'));
    await stranger.next('disconnect');
  });

  test('one peer opens only so many connections', async (t) => {
    const service = await run(t, '--host', '::', '--key', 'demo-key', '--connections', '2');
    const { port } = new URL(service.url);
    const open = () => connectPlain(port, '127.0.0.1');
    const sockets = [open(), open()];
    await Promise.all(sockets.map((socket) => once(socket, 'connect')));
    const [third] = await once(open().on('error', () => {}), 'close');
    assert.equal(typeof third, 'boolean');
    sockets[0].destroy();
    sockets[1].destroy();
  });
});

describe('running it', { timeout: 60_000 }, () => {
  test('a query that fails is logged without its values', async (t) => {
    const data = join(folder, 'data');
    const flags = ['--data', data, '--key', 'demo-key', '--seed', seed, '--request-rate', '0'];
    const service = await run(t, ...flags);
    const alice = await connected(service);
    await service.call('POST', '/ctx/alice/friends/bob');
    const database = new Sqlite(join(data, 'service.sqlite'));
    database.exec('drop table messages; drop table terms');
    database.close();
    assert.equal(await service.status('PUT', '/ctx/alice/attributes', { a: 'confidential' }), 500);
    alice.say(text('confidential', 'bob'));
    await alice.next('disconnect');
    assert.equal(service.journal.filter(({ level }) => level === 'error').length, 2);
    assert.doesNotMatch(JSON.stringify(service.journal), /confidential/);
  });

  test('a mistake in the configuration is refused and named', () => {
    const cases = [
      ['no such key', { prot: 1, keys: 'x' }, /unknown keys: prot, keys/],
      ['a port that is not a number', { port: 'x' }, /--port takes a whole number/],
      ['transports that are not a list', { transports: 5 }, /--transports/],
      ['an unknown choice', { 'log-level': 'loud' }, /--log-level is one of/],
      ['a short secret', { 'control-secret': 'x' }, /16 characters/],
      ['half of TLS', { tls: ['x'] }, /certificate and its key/],
      ['the known key, reachable by others', { host: '0.0.0.0' }, /--key is needed/],
      ['no object', [], /no JSON object/],
      ['a seed of something else', { seed: write('other.json', { people: [] }) }, /arrays users/],
    ];
    const read = (content) => readOptions(['--config', write('config.json', content)]);
    for (const [why, content, message] of cases) assert.throws(() => read(content), message, why);
    const { status, stderr } = runServer('--trust-proxy', 'nginx', '--key', 'k');
    assert.equal(status, 2);
    assert.match(stderr, /invalid IP address: nginx/);
  });

  test('a flag wins over the file', async (t) => {
    const file = write('both.json', { app: 'other', key: 'demo-key', seed });
    const service = await run(t, '--config', file, '--app', 'demo-app');
    assert.equal(await service.status('GET', '/ctx/alice'), 200);
  });

  test('health and metrics', async (t) => {
    const service = await run(t);
    await service.call('GET', '/ctx/alice');
    await service.call('GET', '/ctx/secret-name/friends');
    assert.deepEqual((await service.send('GET', '/health')).body, { status: 'ok' });
    const { body, headers } = await service.send('GET', '/metrics');
    assert.match(headers.get('content-type'), /^text\/plain; version=0.0.4/);
    assert.match(body, /request_seconds_count\{method="GET",route="\/ctx\/:id",status="200"\} 1/);
    assert.match(body, /nodejs_eventloop_lag_seconds/);
    assert.doesNotMatch(body, /secret-name/);
    const guarded = await run(t, '--metrics-secret', secret);
    const status = async (one, headers) =>
      (await one.send('GET', '/metrics', undefined, headers)).status;
    assert.equal(await status(service, { Via: '1.1 x' }), 404);
    assert.equal(await status(guarded), 404);
    assert.equal(await status(guarded, { Authorization: `Bearer ${secret}` }), 200);
  });

  test('at the end it takes no more, and finishes what it has begun', async (t) => {
    const service = await run(t, '--drain-timeout', '30');
    const alice = await connected(service);
    const upload = connectPlain(new URL(service.url).port, '127.0.0.1');
    const body = '{"nick":"Al"}';
    const head = ['POST /ctx/alice/attributes HTTP/1.1', 'Host: x', 'X-VX-AppId: demo-app',
      `X-VX-Request-Sign: ${sign('demo-key')}`, 'Content-Type: application/json',
      `Content-Length: ${body.length}`, '', body.slice(0, 5)];
    upload.write(head.join('\r\n'));
    await service.control('POST', '/emit', { user: 'alice', event: 'custom', args: [1] });
    await alice.next('custom'); // so the beginning of the upload has been read
    service.child.kill('SIGTERM');
    await alice.next('disconnect');
    await assert.rejects(service.send('GET', '/health'), TypeError, 'no new connections');
    upload.write(body.slice(5));
    assert.match(String((await once(upload, 'data'))[0]), /^HTTP\/1.1 200 OK[^]*"success":true/i);
    assert.deepEqual(await once(service.child, 'exit'), [0, null]);
  });

  test('new TLS files are taken on SIGHUP; broken ones change nothing', async (t) => {
    const files = certificate(folder, 'first');
    const service = await run(t, '--tls', ...files, '--log-level', 'info');
    const seen = async () => {
      const { port } = new URL(service.url);
      const socket = connectTls({ port, host: '127.0.0.1', rejectUnauthorized: false });
      await once(socket, 'secureConnect');
      const { CN } = socket.getPeerCertificate().subject;
      socket.destroy();
      return CN;
    };
    const reload = async (level) => {
      const count = service.journal.length;
      service.child.kill('SIGHUP');
      while (service.journal.length === count) await once(service.child.stderr, 'data');
      assert.equal(service.journal[count].level, level);
    };
    assert.equal(await seen(), 'first');
    certificate(folder, 'second');
    await reload('info');
    assert.equal(await seen(), 'second');
    copyFileSync(seed, files[0]);
    await reload('error');
    assert.equal(await seen(), 'second');
  });
});
