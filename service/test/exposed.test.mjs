// A service that others can reach: what a stranger on the network tries, and what its keeper sees. "--trust-proxy loopback" makes the
// tests a proxy, so that they can come from any address.

import assert from 'node:assert/strict';
import { execFileSync, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { copyFileSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import { connect as connectPlain } from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, describe, test } from 'node:test';
import { connect as connectTls } from 'node:tls';
import { fileURLToPath } from 'node:url';
import { readOptions } from '../options.js';
import { sign } from '../signature.js';
import { auth, connect, start, text } from './support.mjs';

const Sqlite = createRequire(import.meta.url)('better-sqlite3');
const program = fileURLToPath(new URL('../server.js', import.meta.url));
const secret = 'a-secret-of-the-tests';
const strict = ['--trust-proxy', 'loopback', '--key', 'demo-key'];
const folder = mkdtempSync(join(tmpdir(), 'exposed-test-'));
const write = (name, content) => (writeFileSync(join(folder, name), JSON.stringify(content)), join(folder, name));
const users = ['alice', 'bob'].map((id) => ({ id, username: id, password: `${id}-secret` }));
const seed = write('seed.json', { users });
after(() => rmSync(folder, { recursive: true }));

/** A service that ends with the test `t`, also with one that fails. */
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

describe('the control endpoint', { timeout: 60_000 }, () => {
  test('in development it takes nothing that was passed on or comes from a page', async (t) => {
    const service = await run(t, );
    const cases = [
      ['RFC 7239', { Forwarded: 'for=192.0.2.1' }],
      ['what most proxies send', { 'X-Forwarded-For': '192.0.2.1' }],
      ['any of that family', { 'X-Forwarded-Proto': 'https' }],
      ['nginx', { 'X-Real-IP': '127.0.0.1' }],
      ['RFC 9110', { Via: '1.1 proxy' }],
      ['a form in a page', { Origin: 'https://evil.example' }],
      ['a link in a page', { 'Sec-Fetch-Site': 'cross-site' }],
    ];
    for (const [why, headers] of cases) assert.equal((await service.send('POST', '/_control/reset', undefined, headers)).status, 404, why);
    const { port } = new URL(service.url);
    const socket = connectPlain(port, '127.0.0.1');
    socket.end('GET /_control/seed HTTP/1.1\r\nHost: evil.example\r\nConnection: close\r\n\r\n');
    assert.match(String((await once(socket, 'data'))[0]), /^HTTP\/1.1 404/, 'a name that was made to point here');
    assert.equal((await service.control('GET', '/seed')).users.length, 2);
  });

  test('elsewhere it is off, or asks for its secret and keeps none of others', async (t) => {
    const off = await run(t, ...strict);
    for (const path of ['/seed', '/log']) assert.equal((await off.call('GET', `/_control${path}`)).status, 404);
    const service = await run(t, ...strict, '--seed', seed, '--control-secret', secret);
    for (const Authorization of ['', 'Bearer wrong', `Bearer ${secret}x`, `Basic ${secret}`]) {
      assert.equal((await service.send('GET', '/_control/seed', undefined, { Authorization })).status, 404, Authorization);
    }
    const passedOn = { Authorization: `Bearer ${secret}`, 'X-Forwarded-For': '127.0.0.1' };
    assert.equal((await service.send('GET', '/_control/seed', undefined, passedOn)).status, 404);
    assert.equal(await login(service, password('alice')), 'ok');
    const log = JSON.stringify(await service.control('GET', '/log'));
    assert.match(log, /"login"/);
    await service.stop();
    for (const text of [log, JSON.stringify(service.journal)]) assert.doesNotMatch(text, /alice-secret|alice%2Dsecret|demo-key|"sign":"[0-9a-f]/);
  });

  test('the older line, whose packets carry credentials too, is masked as well', async (t) => {
    const service = await run(t, ...strict, '--seed', seed, '--control-secret', secret, '--socketio', '2', '--log-level', 'debug');
    assert.equal(await login(service, password('alice'), undefined, '2'), 'ok');
    const log = JSON.stringify(await service.control('GET', '/log'));
    await service.stop();
    assert.match(log, /"packet"/);
    for (const text of [log, JSON.stringify(service.journal)]) assert.doesNotMatch(text, /alice-secret|sign%22/);
  });
});

describe('limits', { timeout: 60_000 }, () => {
  test('an id alone is no login', async (t) => {
    const service = await run(t, ...strict, '--seed', seed);
    await service.call('POST', '/passengers', { id: 'visitor' });
    assert.deepEqual([await login(service, { client: 'alice', install: 'x' }), await login(service, { client: 'visitor' })], [1105, 'ok']);
  });

  test('guessing passwords ends soon, and locks nobody out who was here before', async (t) => {
    const service = await run(t, ...strict, '--seed', seed, '--login-failures', '3');
    for (let i = 0; i < 4; i += 1) assert.equal(await login(service, password('alice'), '192.0.2.1'), 'ok', 'what succeeds is not counted');
    const one = [];
    for (let i = 0; i < 4; i += 1) one.push(await login(service, password('nobody', String(i)), '192.0.2.9'));
    assert.deepEqual(one, [1105, 1105, 1105, 1007], 'one address, any account');
    assert.equal(await login(service, password('bob'), '192.0.2.9'), 1007, 'the right password does not help it');
    for (let i = 0; i < 4; i += 1) await login(service, password('alice', 'x'), `198.51.101.${i}`, '4', 'no signature');
    const many = await Promise.all([1, 2, 3, 4, 5].map((i) => login(service, password('alice', 'x'), `198.51.100.${i}`)));
    assert.deepEqual(many.sort(), [1007, 1007, 1105, 1105, 1105], 'many addresses at once, one account');
    assert.equal(await login(service, password('alice'), '203.0.113.1'), 1007, 'an address that the account does not know waits');
    assert.equal(await login(service, password('alice'), '192.0.2.1'), 'ok', 'the owner is not locked out');
    const network = [];
    for (let i = 0; i < 4; i += 1) network.push(await login(service, password('nobody2', 'x'), `2001:db8:1:1::${i}`));
    assert.equal(network[3], 1007, 'an IPv6 customer is one address');
    assert.equal(await login(service, password('bob'), '2001:db8:1:2::1'), 'ok');
    const { body } = await service.send('GET', '/metrics');
    assert.match(body, /vexim_logins_total\{result="wrongCredentials"\} 9/);
    assert.match(body, /vexim_rate_limited_total\{limit="logins"\} 6/);
  });

  test('requests and handshakes of one client are counted together, before anything is read', async (t) => {
    const service = await run(t, ...strict, '--request-rate', '1');
    const ask = (address, path = '/ctx/x') => service.call('GET', path, undefined, { 'X-Forwarded-For': address });
    const statuses = [];
    for (let i = 0; i < 10; i += 1) statuses.push((await ask('192.0.2.1', i % 2 ? '/ctx/x' : '/socket.io/?EIO=4&transport=polling')).status);
    assert.ok(!statuses.includes(429));
    const { status, headers, body } = await ask('192.0.2.1');
    assert.deepEqual([status, headers.get('retry-after'), body.errorCode], [429, '10', 1007]);
    const client = connect(service, '4', auth(password('alice')), { extraHeaders: { 'X-Forwarded-For': '192.0.2.1' } });
    assert.match(String((await client.next('connect_error')).context?.message ?? 'websocket error'), /429|websocket error/);
    client.close();
    assert.equal((await ask('192.0.2.2')).status, 404, 'others go on');
  });

  test('who floods others with messages is cut off, and who floods the service without having logged in', async (t) => {
    const service = await run(t, ...strict, '--request-rate', '1', '--seed', seed);
    const alice = connect(service, '4', auth(password('alice')));
    await alice.next('login');
    for (let i = 0; i < 11; i += 1) alice.say(text('x', 'bob'));
    await alice.next('disconnect');
    assert.match((await service.send('GET', '/metrics')).body, /vexim_messages_total\{result="refused"\} 10/, 'ten are as many as ten seconds allow');
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
    const service = await run(t, '--data', data, '--key', 'demo-key', '--seed', seed, '--request-rate', '0');
    const alice = connect(service, '4', auth(password('alice')));
    await alice.next('login');
    await service.call('POST', '/ctx/alice/friends/bob');
    const database = new Sqlite(join(data, 'service.sqlite'));
    database.exec('drop table messages; drop table terms');
    database.close();
    assert.equal((await service.call('PUT', '/ctx/alice/attributes', { nick: 'confidential' })).status, 500);
    alice.say(text('confidential', 'bob'));
    await alice.next('disconnect');
    assert.equal(service.journal.filter(({ level }) => level === 'error').length, 2);
    assert.doesNotMatch(JSON.stringify(service.journal), /confidential/);
  });

  test('what the configuration may not say is refused by name', () => {
    const cases = [
      ['no such key', { prot: 1, keys: 'x' }, /unknown keys: prot, keys/],
      ['a number that is none', { port: 'x' }, /--port takes a whole number/],
      ['a list that is none', { transports: 5 }, /--transports/],
      ['a choice that is none', { 'log-level': 'loud' }, /--log-level is one of/],
      ['a short secret', { 'control-secret': 'x' }, /16 characters/],
      ['half of TLS', { tls: ['x'] }, /certificate and its key/],
      ['the known key, reachable by others', { host: '0.0.0.0' }, /--key is needed/],
      ['no object', [], /no JSON object/],
      ['a seed of something else', { seed: write('other.json', { people: [] }) }, /arrays users/],
    ];
    for (const [why, content, message] of cases) assert.throws(() => readOptions(['--config', write('config.json', content)]), message, why);
    const noAddress = ['--trust-proxy', 'nginx', '--key', 'k'];
    const { status, stderr } = spawnSync(process.execPath, [program, ...noAddress], { encoding: 'utf8', timeout: 60_000 });
    assert.equal(status, 2);
    assert.match(stderr, /invalid IP address: nginx/);
  });

  test('a flag wins over the file', async (t) => {
    const service = await run(t, '--config', write('both.json', { app: 'other', key: 'demo-key', seed }), '--app', 'demo-app');
    assert.equal((await service.call('GET', '/ctx/alice')).status, 200);
  });

  test('health and metrics', async (t) => {
    const service = await run(t, );
    await service.call('GET', '/ctx/alice');
    await service.call('GET', '/ctx/secret-name/friends');
    assert.deepEqual((await service.send('GET', '/health')).body, { status: 'ok' });
    const { body, headers } = await service.send('GET', '/metrics');
    assert.match(headers.get('content-type'), /^text\/plain; version=0.0.4/);
    assert.match(body, /vexim_request_seconds_count\{method="GET",route="\/ctx\/:id",status="200"\} 1/);
    assert.match(body, /nodejs_eventloop_lag_seconds/);
    assert.doesNotMatch(body, /secret-name/);
    assert.equal((await service.send('GET', '/metrics', undefined, { Via: '1.1 x' })).status, 404);
    const guarded = await run(t, '--metrics-secret', secret);
    assert.equal((await guarded.send('GET', '/metrics')).status, 404);
    assert.equal((await guarded.send('GET', '/metrics', undefined, { Authorization: `Bearer ${secret}` })).status, 200);
  });

  test('at the end it takes no more, and finishes what it has begun', async (t) => {
    const service = await run(t, '--drain-timeout', '30');
    const alice = connect(service, '4', auth(password('alice')));
    await alice.next('login');
    const { port } = new URL(service.url);
    const upload = connectPlain(port, '127.0.0.1');
    const body = '{"nick":"Al"}';
    const head = ['POST /ctx/alice/attributes HTTP/1.1', 'Host: x', 'X-VX-AppId: demo-app', `X-VX-Request-Sign: ${sign('demo-key')}`];
    upload.write([...head, 'Content-Type: application/json', `Content-Length: ${body.length}`, '', body.slice(0, 5)].join('\r\n'));
    await service.control('POST', '/emit', { user: 'alice', event: 'custom', args: [1] }); // the upload's beginning was read before this
    await alice.next('custom');
    service.child.kill('SIGTERM');
    await alice.next('disconnect');
    await assert.rejects(service.send('GET', '/health'), TypeError, 'no new connections');
    upload.write(body.slice(5));
    assert.match(String((await once(upload, 'data'))[0]), /^HTTP\/1.1 200 OK[^]*"success":true/i);
    assert.deepEqual(await once(service.child, 'exit'), [0, null]);
  });

  test('new TLS files are taken on SIGHUP; broken ones change nothing', async (t) => {
    const [key, cert] = ['key.pem', 'cert.pem'].map((name) => join(folder, name));
    const issue = (name) => {
      const subject = ['-days', '1', '-subj', `/CN=${name}`];
      execFileSync('openssl', ['req', '-x509', '-newkey', 'rsa:2048', '-nodes', '-keyout', key, '-out', cert, ...subject], { stdio: 'ignore' });
    };
    issue('first');
    const service = await run(t, '--tls', cert, key, '--log-level', 'info');
    const seen = async () => {
      const socket = connectTls({ port: new URL(service.url).port, host: '127.0.0.1', rejectUnauthorized: false });
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
    issue('second');
    await reload('info');
    assert.equal(await seen(), 'second');
    copyFileSync(seed, cert);
    await reload('error');
    assert.equal(await seen(), 'second');
  });
});
