// Starts services and speaks to them as a client would.

import { spawn } from 'node:child_process';
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

// Before Node 20, a suite whose time is up leaves out its after(), and what it has started would keep us here for ever.
setTimeout(() => {
  console.error('These tests do not end.');
  process.exit(1);
}, longest).unref();

if (!existsSync(`${folder}/node_modules`)) throw new Error('The packages are missing: run "npm ci" in service/.');

// Another program that is to be the same service; it ends when its standard input does.
const [program, ...given] = process.env.VEXIM_SERVICE_PROGRAM?.split(' ') ?? [process.execPath, `${folder}/server.js`, '--exit-with-parent'];

/** A running service; it ends with this process at the latest. */
export async function start(...flags) {
  const child = spawn(program, [...given, ...flags], { stdio: 'pipe' });
  const journal = [];
  createInterface(child.stderr).on('line', (line) => (line.startsWith('{') ? journal.push(JSON.parse(line)) : console.error(line)));
  const secret = flags.includes('--control-secret') ? { Authorization: `Bearer ${flags[flags.indexOf('--control-secret') + 1]}` } : {};
  const ended = once(child, 'exit').then(([code]) => Promise.reject(new Error(`The service ended with ${code}.`)));
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
    const isForm = body instanceof FormData;
    const type = body === undefined || isForm ? {} : { 'Content-Type': 'application/json' };
    const text = typeof body === 'string' || isForm || body === undefined ? body : JSON.stringify(body);
    const response = await fetch(new URL(path, url), { method, headers: { ...type, ...headers }, body: text });
    const answer = await response.text();
    return { status: response.status, body: parse(answer), headers: response.headers };
  };
  return {
    url,
    send,
    /** A signed REST request; resolves to { status, body, headers }. */
    call: (method, path, body, headers) => send(method, path, body, { 'X-VX-AppId': app, 'X-VX-Request-Sign': sign(key), ...headers }),
    control: async (method, path, body) => (await send(method, `/_control${path}`, body, secret)).body,
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

/** Who is to be logged in: `credentials` with what every login carries. */
export const auth = (credentials, signature = sign(key)) => ({ app, sign: signature, ...credentials });

/**
 * A live connection of the official client of `line`. `next(event)` resolves to the event's first argument, in the order of arrival; it
 * rejects when the connection ends instead.
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
  const queue = (event) => queues.get(event) ?? queues.set(event, { items: [], waiting: [] }).get(event);
  let end;
  for (const event of ['login', 'message', 'yourself', 'sys', 'online', 'offline', 'disconnect', 'connect_error', 'custom']) {
    socket.on(event, (item) => {
      const { items, waiting } = queue(event);
      if (waiting.length > 0) waiting.shift().resolve(item);
      else items.push(item);
      if (event !== 'disconnect' && event !== 'connect_error') return;
      end = `${event} (${item?.message ?? item})`;
      for (const [other, { waiting: others }] of queues) others.splice(0).forEach(({ reject }) => reject(new Error(`${end} instead of ${other}`)));
    });
  }
  return {
    socket,
    say: (payload) => socket.emit('say', payload),
    next(event) {
      const { items, waiting } = queue(event);
      if (items.length > 0) return Promise.resolve(items.shift());
      return end ? Promise.reject(new Error(`${end} instead of ${event}`)) : new Promise((resolve, reject) => waiting.push({ resolve, reject }));
    },
    close: () => socket.close(),
  };
}

/** A text to somebody: type 0 a user, 1 a group, 2 a room. */
export const text = (body, id, type = 0, ts = 1_000) => ({ content: { media: 0, body }, ts, to: { id, type } });
