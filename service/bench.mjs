// Measures the figures of README.md on loopback, in minutes: bench.mjs [CONNECTIONS] [MESSAGES]

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { mkdtempSync, readFileSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { Cluster } from './cluster.js';
import { openStore } from './store.js';
import { auth, serviceAt, start } from './test/support.mjs';

const require = createRequire(import.meta.url);
const fromClient = createRequire(require.resolve('socket.io-client-4'));
const WebSocket = createRequire(fromClient.resolve('engine.io-client'))('ws');
const [idle = 10_000, kept = 1_000_000] = process.argv.slice(2).map(Number);
const pairs = 20;
const perPair = 150;

/**
 * A connection without the client's library, so that our side uses as little of the machine as
 * possible. Resolves once it is logged in.
 */
function connect(url, credentials, onEvent = () => undefined) {
  const query =
    `EIO=4&transport=websocket&auth=${encodeURIComponent(JSON.stringify(auth(credentials)))}`;
  const socket = new WebSocket(`${url.replace('http', 'ws')}/socket.io/?${query}`,
    { perMessageDeflate: false });
  return new Promise((resolve, reject) => {
    socket.on('error', reject);
    socket.on('message', (data) => {
      const text = data.toString();
      if (text === '2') return socket.send('3');
      if (text.startsWith('0')) return socket.send('40/chat,');
      if (!text.startsWith('42/chat,')) return undefined;
      const [event, content] = JSON.parse(text.slice(8));
      if (event === 'login') return content.success ? resolve(socket) : reject(new Error(text));
      return onEvent(event, content);
    });
  });
}

const rate = (count, since) => Math.round((count * 1000) / (performance.now() - since));
const say = (socket, to) => {
  const message = { content: { media: 0, body: 'hello' }, ts: Date.now(), to: { id: to, type: 0 } };
  socket.send(`42/chat,${JSON.stringify(['say', message])}`);
};

async function inParallel(count, width, act) {
  let next = 0;
  const work = async () => {
    while (next < count) await act((next += 1) - 1);
  };
  await Promise.all(Array.from({ length: width }, work));
}

async function logins(url, count, credentials) {
  const since = performance.now();
  const sockets = [];
  await inParallel(count, 20, async () => sockets.push(await connect(url, credentials)));
  const result = rate(count, since);
  sockets.forEach((socket) => socket.terminate());
  return result;
}

async function messages(url) {
  let left = pairs * perPair;
  let done;
  const all = new Promise((resolve) => (done = resolve));
  const heard = (event) => event === 'message' && (left -= 1) === 0 && done();
  const sockets = [];
  for (let i = 0; i < pairs; i += 1)
    sockets.push([await connect(url, { client: `a${i}` }),
      await connect(url, { client: `b${i}` }, heard)]);
  const since = performance.now();
  for (let n = 0; n < perPair; n += 1)
    for (let i = 0; i < pairs; i += 1) say(sockets[i][0], `b${i}`);
  await all;
  const result = rate(pairs * perPair, since);
  sockets.flat().forEach((socket) => socket.terminate());
  return result;
}

async function people(node) {
  const { call, control } = serviceAt(node);
  for (let i = 0; i < pairs; i += 1) {
    await control('POST', '/users', { id: `a${i}` });
    await control('POST', '/users', { id: `b${i}` });
    await call('POST', `/ctx/a${i}/friends/b${i}`);
  }
}

const memory = (pid) =>
  Number(/VmRSS:\s+(\d+)/.exec(readFileSync(`/proc/${pid}/status`, 'utf8'))[1]) / 1024;

async function idleMemory(url, pid) {
  const before = memory(pid);
  const sockets = [];
  await inParallel(idle, 50, async () => sockets.push(await connect(url, { client: 'alice' })));
  const after = memory(pid);
  sockets.forEach((socket) => socket.terminate());
  return `${Math.round(before)} → ${Math.round(after)} MiB`;
}

const bare = `
const { createServer } = require('node:http');
const server = createServer();
const io = require('socket.io-4')(server, { serveClient: false });
io.of('/chat').on('connection', (socket) => {
  const { client } = JSON.parse(socket.handshake.query.auth);
  socket.join(client);
  socket.emit('login', { success: true, id: client });
  socket.on('say', (message) => {
    io.of('/chat').to(message.to.id).emit('message', message);
    socket.emit('yourself', message);
  });
});
const url = () => 'http://127.0.0.1:' + server.address().port;
server.listen(0, '127.0.0.1', () => console.log('listening on ' + url()));`;

const folder = mkdtempSync(join(tmpdir(), 'vexim-bench-'));
const report = (what, value) => console.log(`${what}: ${value}`);
try {
  const child = spawn(process.execPath, ['-e', bare],
    { stdio: ['ignore', 'pipe', 'inherit'], cwd: new URL('.', import.meta.url) });
  const [line] = await once(child.stdout, 'data');
  const url = line.toString().trim().replace('listening on ', '');
  report('bare, logins/s', await logins(url, 2000, { client: 'alice' }));
  report('bare, messages/s', await messages(url));
  report(`bare, memory for ${idle} idle connections`, await idleMemory(url, child.pid));
  child.kill();

  const one = await start('--development', '--data', join(folder, 'one'));
  await people(one.url);
  report('one node (SQLite), logins/s by id', await logins(one.url, 500, { client: 'alice' }));
  report('one node (SQLite), messages/s', await messages(one.url));
  report(`one node (SQLite), memory for ${idle} idle connections`,
    await idleMemory(one.url, one.child.pid));
  await one.stop('SIGKILL');

  const cluster = new Cluster({});
  await cluster.start(3);
  await people(cluster.nodes[0].url);
  report('one node of three (PostgreSQL), messages/s', await messages(cluster.nodes[0].url));
  report('three nodes (PostgreSQL, nginx), logins/s by id',
    await logins(cluster.url, 500, { client: 'alice' }));
  report('three nodes (PostgreSQL, nginx), messages/s', await messages(cluster.url));
  await cluster.close();

  const data = join(folder, 'many');
  const store = await openStore({ data, seed: { users: [{ id: 'alice' }, { id: 'bob' }] } });
  const text = JSON.stringify({ content: { media: 0, body: 'x'.repeat(100) }, ts: 1,
    to: { id: 'bob', type: 0 } });
  await store.db.raw(
    `with recursive n(i) as (select 1 union all select i + 1 from n where i < ${kept})
     insert into messages (conversation, ts, message)
     select '["u' || (i % 1000) || '","v"]', i, ? from n`, [text]);
  await store.close();
  const since = performance.now();
  const again = await start('--development', '--data', data);
  await fetch(`${again.url}/health`);
  report(`restart with ${kept} messages`, `${Math.round(performance.now() - since)} ms`);
  await again.stop();
} finally {
  rmSync(folder, { recursive: true, force: true });
}
process.exit(0);
