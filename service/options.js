// The options: as flags, or by the same names in the JSON file that --config names. A flag
// overrides the file, the file overrides the default. "Development" means a service that only this
// machine can reach and that stores nothing, or the flag of that name. Every other run starts with
// strict defaults.

import { readFileSync } from 'node:fs';
import { parseArgs } from 'node:util';
import { isLoopback } from './address.js';
import { lines } from './lines.js';
import { seed } from './seed.js';

/** A mistake in the command line or the configuration. */
export class UsageError extends Error {}

const minute = 60;

// kind, default in development, default otherwise (when it differs)
const table = {
  socketio: ['text', '4'],
  host: ['text', '127.0.0.1'],
  port: ['number', 0],
  tls: ['list'], // certificate, key
  app: ['text', 'demo-app'],
  key: ['text', 'demo-key', undefined],
  'user-secret': ['text'],
  nsp: ['text', '/chat'],
  seed: ['text'],
  data: ['text'],
  database: ['text'],
  development: ['flag', false],
  'signature-age': ['number', 10 * minute],
  'body-limit': ['number', 1_048_576],
  'attachment-limit': ['number', 4_294_967_296, 268_435_456],
  'ping-interval': ['number', 25_000],
  'ping-timeout': ['number', 20_000],
  transports: ['list', ['websocket', 'polling']],
  'trust-proxy': ['list', []],
  'public-url': ['text'],
  'id-login': ['text', 'any', 'passengers'],
  'request-rate': ['number', 0, 50],
  'login-failures': ['number', 0, 20],
  connections: ['number', 0, 500],
  'control-secret': ['text'],
  'no-control': ['flag', false],
  'metrics-secret': ['text'],
  'log-level': ['text', 'warn', 'info'],
  'drain-timeout': ['number', 1, 30],
  'exit-with-parent': ['flag', false],
};

export const usage = `usage: node server.js [--FLAG VALUE...] [--config FILE]
  ${Object.keys(table)
    .map((name) => `--${name}`)
    .join(' ')
    .replace(/(.{1,100})(?: |$)/g, '$1\n  ')
    .trim()}
README.md says what each means.`;

const readers = {
  text: (value) => (typeof value === 'string' && value !== '' ? value : undefined),
  number: (value) => (/^[0-9]{1,15}$/.test(String(value)) ? Number(value) : undefined),
  flag: (value) => (typeof value === 'boolean' ? value : undefined),
  list: (value) => {
    const items = typeof value === 'string' ? value.split(',') : value;
    return Array.isArray(items) && items.length > 0 &&
      items.every((item) => typeof item === 'string' && item !== '') ? items : undefined;
  },
};
const wanted = { text: 'a string', number: 'a whole number', flag: 'true or false',
  list: 'one or more strings' };

/**
 * Reads the command line and the file that it names. `rest` has the words that belong to no flag.
 * Throws a UsageError.
 */
export function readOptions(argv) {
  const { values: flags, positionals: rest } = parse(argv);
  if (flags.help) return { help: true };
  if (typeof flags.tls === 'string') flags.tls = [flags.tls, ...rest.splice(0, 1)];
  const given = { ...readFile(flags.config), ...flags };
  delete given.config;

  const set = {};
  for (const [name, value] of Object.entries(given)) {
    const [kind] = table[name];
    set[name] = readers[kind](value);
    if (set[name] === undefined) throw new UsageError(`--${name} takes ${wanted[kind]}`);
  }
  const development = isDevelopment(set);
  const defaults = Object.entries(table).map(([name, [, relaxed, ...strict]]) =>
    [name, development || strict.length === 0 ? relaxed : strict[0]]);
  const values = { ...Object.fromEntries(defaults), ...set };
  check(values);
  return { rest, development, values, exitWithParent: values['exit-with-parent'],
    service: forService(values, development) };
}

function isDevelopment({ host = '127.0.0.1', development, ...set }) {
  const { 'trust-proxy': proxies, data, database } = set;
  return development ||
    (isLoopback(host) && proxies === undefined && data === undefined && database === undefined);
}

function parse(argv) {
  const options = { config: { type: 'string' }, help: { type: 'boolean', short: 'h' } };
  for (const [name, [kind]] of Object.entries(table))
    options[name] = { type: kind === 'flag' ? 'boolean' : 'string' };
  try {
    return parseArgs({ args: argv, options, allowPositionals: true });
  } catch (error) {
    throw new UsageError(error.message);
  }
}

function readJsonObject(file) {
  let content;
  try {
    content = JSON.parse(readFileSync(file, 'utf8'));
  } catch (error) {
    throw new UsageError(`${file} cannot be read: ${error.message}`);
  }
  if (typeof content !== 'object' || content === null || Array.isArray(content))
    throw new UsageError(`${file} holds no JSON object`);
  return content;
}

function readFile(file) {
  if (file === undefined) return {};
  const content = readJsonObject(file);
  const unknown = Object.keys(content).filter((name) => !Object.hasOwn(table, name));
  if (unknown.length > 0) throw new UsageError(`${file} has unknown keys: ${unknown.join(', ')}`);
  return content;
}

function readSeed(file) {
  const { users = [], groups = [], rooms = [], ...others } = readJsonObject(file);
  if (Object.keys(others).length > 0 || ![users, groups, rooms].every(Array.isArray)) {
    throw new UsageError(`${file} holds other than the arrays users, groups and rooms`);
  }
  return { users: users.map((user) => ({ friends: [], ...user })), groups, rooms };
}

function check(values) {
  const oneOf = (name, ...choices) => {
    if (!choices.includes(values[name]))
      throw new UsageError(`--${name} is one of ${choices.join(', ')}`);
  };
  oneOf('socketio', ...Object.keys(lines));
  oneOf('id-login', 'any', 'passengers', 'off');
  oneOf('log-level', 'debug', 'info', 'warn', 'error', 'silent');
  if (values.development && !isLoopback(values.host))
    throw new UsageError('--development listens on loopback only');
  if (values.database && !values.data)
    throw new UsageError('--database needs --data, the folder of attachments that all nodes share');
  if (values.tls && values.tls.length !== 2)
    throw new UsageError('--tls takes a certificate and its key');
  if (!values.key && !values['user-secret'])
    throw new UsageError('--user-secret or --key is needed: everybody knows the demo key');
  for (const name of ['control-secret', 'metrics-secret', 'user-secret']) {
    if (values[name]?.length < 16) throw new UsageError(`--${name} needs 16 characters or more`);
  }
}

function forService(values, development) {
  return {
    host: values.host,
    port: values.port,
    tls: values.tls && { cert: values.tls[0], key: values.tls[1] },
    app: { appId: values.app, clientKey: values.key },
    userSecret: values['user-secret'],
    line: values.socketio,
    namespace: values.nsp,
    engine: {
      pingInterval: values['ping-interval'],
      pingTimeout: values['ping-timeout'],
      transports: values.transports,
      // 2.x would accept 100 MB
      ...(development ? {} : { maxHttpBufferSize: values['body-limit'] }),
    },
    maxSignatureAge: values['signature-age'],
    bodyLimit: values['body-limit'],
    attachmentLimit: values['attachment-limit'],
    data: values.data,
    database: values.database,
    publicUrl: values['public-url']?.replace(/\/$/, ''),
    seed: values.seed ? readSeed(values.seed) : development ? seed : undefined,
    idLogin: values['id-login'],
    control: {
      isOn: !values['no-control'] && (development || values['control-secret'] !== undefined),
      secret: values['control-secret'],
      maskSecrets: !development,
    },
    gate: { trustProxy: values['trust-proxy'], requestRate: values['request-rate'],
      connections: values.connections },
    loginFailures: values['login-failures'],
    metricsSecret: values['metrics-secret'],
    logLevel: values['log-level'],
    drainSeconds: values['drain-timeout'],
  };
}
