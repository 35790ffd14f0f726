// Starts services and speaks to them as a client would.

import { execFileSync, spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { existsSync } from 'node:fs';
import { createRequire } from 'node:module';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';
import { sign } from '../signature.js';

const require = createRequire(import.meta.url);
const folder = fileURLToPath(new URL('..', import.meta.url));
const app = 'demo-app';
const key = 'demo-key';
const longest = 270_000; // more than a suite is given

// Before Node 20, a suite that runs out of time skips its after(), and its services would run on.
setTimeout(() => {
  console.error('These tests do not end.');
  process.exit(1);
}, longest).unref();

if (!existsSync(`${folder}/node_modules`)) throw new Error('Run "npm ci" in service/ first.');

// VEXIM_SERVICE_PROGRAM is another program to test. It must end when its standard input does.
const own = [process.execPath, `${folder}/server.js`, '--exit-with-parent'];
const [program, ...given] = process.env.VEXIM_SERVICE_PROGRAM?.split(' ') ?? own;

/** A running service; it ends with this process at the latest. */
export async function start(...flags) {
  const child = spawn(program, [...given, ...flags], { stdio: 'pipe' });
  const journal = [];
  createInterface(child.stderr).on('line', (line) => {
    if (line.startsWith('{')) journal.push(JSON.parse(line));
    else console.error(line);
  });
  const at = flags.indexOf('--control-secret') + 1;
  const secret = at > 0 ? { Authorization: `Bearer ${flags[at]}` } : {};
  const failure = ([code]) => Promise.reject(new Error(`The service ended with ${code}.`));
  const ended = once(child, 'exit').then(failure);
  const [line] = await Promise.race([once(createInterface(child.stdout), 'line'), ended]);
  return {
    child,
    journal, // what it has logged
    ...serviceAt(line.replace('listening on ', ''), secret),
    async stop(signal = 'SIGTERM') {
      if (child.exitCode !== null || child.signalCode !== null) return child.exitCode;
      child.kill(signal);
      const [code] = await once(child, 'exit');
      return code;
    },
  };
}

/** A service that runs at `url`. */
export function serviceAt(url, secret = {}) {
  const send = async (method, path, body, headers = {}) => {
    const isRaw = body === undefined || body instanceof FormData;
    if (!isRaw) headers = { 'Content-Type': 'application/json', ...headers };
    if (!isRaw && typeof body !== 'string') body = JSON.stringify(body);
    const response = await fetch(new URL(path, url), { method, headers, body });
    const answer = await response.text();
    return { status: response.status, body: parse(answer), headers: response.headers };
  };
  const call = (method, path, body, headers) =>
    send(method, path, body, { ...signedBy({ app, key }), ...headers });
  return {
    url,
    send,
    call, // a signed REST request; resolves to { status, body, headers }
    status: async (...request) => (await call(...request)).status,
    body: async (...request) => (await call(...request)).body,
    code: async (...request) => (await call(...request)).body.errorCode,
    control: async (method, path, body) =>
      (await send(method, `/_control${path}`, body, secret)).body,
  };
}

function parse(text) {
  try {
    return JSON.parse(text);
  } catch {
    return text;
  }
}

/** The headers of a request that this key signs. */
export const signedBy = ({ app, key }) => ({ 'X-VX-AppId': app, 'X-VX-Request-Sign': sign(key) });

/** The connect parameter of a login: `credentials` and what every login has. */
export const auth = (credentials, sent = sign(key)) => ({ app, sign: sent, ...credentials });

/** Calls `act` with 0, 1 … one after the other, and resolves to its results. */
export async function times(count, act) {
  const results = [];
  while (results.length < count) results.push(await act(results.length));
  return results;
}

/**
 * A live connection of the official client of `line`. `next(event)` resolves to the first argument
 * of the next such event. It rejects if the connection ends instead.
 */
export function connect(service, line, parameter, options = {}) {
  const query = { auth: typeof parameter === 'string' ? parameter : JSON.stringify(parameter) };
  const socket = require(`socket.io-client-${line}`)(`${service.url}/chat`, {
    query,
    transports: ['websocket'],
    forceNew: true,
    reconnection: false,
    ...options,
  });
  const queues = new Map();
  let end;
  const ends = ['disconnect', 'connect_error'];
  const insteadOf = (event) => new Error(`${end} instead of ${event}`);
  const others = ['login', 'message', 'yourself', 'sys', 'online', 'offline', 'custom'];
  for (const event of [...others, ...ends]) {
    const items = [];
    const waiting = [];
    queues.set(event, { items, waiting });
    socket.on(event, (item) => {
      if (waiting.length > 0) waiting.shift().resolve(item);
      else items.push(item);
      if (!ends.includes(event)) return;
      end = `${event} (${item?.message ?? item})`;
      for (const [other, queue] of queues)
        queue.waiting.splice(0).forEach(({ reject }) => reject(insteadOf(other)));
    });
  }
  return {
    socket,
    say: (payload) => socket.emit('say', payload),
    next(event) {
      const { items, waiting } = queues.get(event);
      if (items.length > 0) return Promise.resolve(items.shift());
      if (end) return Promise.reject(insteadOf(event));
      return new Promise((resolve, reject) => waiting.push({ resolve, reject }));
    },
    close: () => socket.close(),
  };
}

/** A text to somebody: type 0 a user, 1 a group, 2 a room. */
export const text = (body, id, type = 0, ts = 1_000) =>
  ({ content: { media: 0, body }, ts, to: { id, type } });

/** Writes a certificate for `name` to `folder`, and returns the arguments of --tls. */
export function certificate(folder, name) {
  const [cert, key] = [`${folder}/cert.pem`, `${folder}/key.pem`];
  const words = `req -x509 -newkey rsa:2048 -nodes -days 1 -out ${cert} -keyout ${key}`.split(' ');
  execFileSync('openssl', [...words, '-subj', `/CN=${name}`], { stdio: 'ignore' });
  return [cert, key];
}

/** Runs server.js to its end; returns { status, stderr }. */
export const runServer = (...words) =>
  spawnSync(process.execPath, [own[1], ...words], { encoding: 'utf8', timeout: 60_000 });
