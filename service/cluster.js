// A whole cluster on loopback, for trying things out and for tests: its own PostgreSQL, several
// nodes, and nginx in front of them. Closing it removes everything.

import { spawn, spawnSync } from 'node:child_process';
import { once } from 'node:events';
import { chmodSync, chownSync, mkdirSync, mkdtempSync, readdirSync, rmSync,
  writeFileSync } from 'node:fs';
import { createServer } from 'node:net';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { createInterface } from 'node:readline';
import { fileURLToPath } from 'node:url';

const program = fileURLToPath(new URL('server.js', import.meta.url));
const installed = '/usr/lib/postgresql'; // where Debian puts each version's programs

export class Cluster {
  #folder = mkdtempSync(join(tmpdir(), 'vexim-cluster-'));
  #flags;
  #isSticky;
  #database;
  #proxy;
  nodes = []; // { url, process }

  /**
   * `flags` are passed to each node. `isSticky`: all requests of one login go to the same node;
   * otherwise each request goes to the next node.
   */
  constructor({ flags = [], isSticky = true } = {}) {
    this.#flags = flags;
    this.#isSticky = isSticky;
  }

  async start(count) {
    chmodSync(this.#folder, 0o755);
    mkdirSync(this.#path('data'));
    this.#initDatabase();
    await this.startDatabase();
    this.nodes = Array.from({ length: count }, () => ({}));
    for (let i = 0; i < count; i += 1) await this.startNode(i); // the first one makes the tables
    await this.#startProxy();
    return this;
  }

  get database() {
    return this.databaseAt();
  }

  databaseAt(socket = this.socket) {
    return `postgresql:///postgres?host=${encodeURIComponent(socket)}&user=vexim`;
  }

  /** The folder of the database's Unix socket. */
  get socket() {
    return this.#path('socket');
  }

  /** `socket` is a folder with another socket for the database, which a test can block. */
  async startNode(i, { socket } = {}) {
    const node = this.nodes[i];
    const port = node.url ? new URL(node.url).port : '0';
    const own = ['--development', '--port', port, '--database', this.databaseAt(socket), '--data',
      this.#path('data'), '--exit-with-parent'];
    node.process = spawn(process.execPath, [program, ...own, ...this.#flags],
      { stdio: ['pipe', 'pipe', 'inherit'] });
    node.process.stdin.on('error', () => undefined);
    node.url = (await firstLine(node.process, 'listening on ')).replace('listening on ', '');
  }

  async stopNode(i, signal = 'SIGTERM') {
    await end(this.nodes[i].process, signal);
  }

  async startDatabase() {
    const settings = [`-cunix_socket_directories=${this.socket}`, '-clisten_addresses=',
      '-cmax_connections=200'];
    this.#database = spawnWithUs('SIGQUIT', postgres('postgres'),
      ['-D', this.#path('database'), ...settings], { ...postgresUser(), stdio: 'ignore' });
    const isReady = () => spawnSync(postgres('pg_isready'), ['-q', '-h', this.socket]).status === 0;
    for (let left = 300; !isReady(); left -= 1) {
      if (left === 0 || this.#database.exitCode !== null)
        throw new Error('The database does not start.');
      await new Promise((resolve) => setTimeout(resolve, 100));
    }
  }

  async stopDatabase() {
    await end(this.#database, 'SIGINT'); // a "fast" shutdown: connections are cut
  }

  async close() {
    await Promise.all(this.nodes.map(({ process: node }) => end(node)));
    await end(this.#proxy);
    await end(this.#database, 'SIGINT');
    rmSync(this.#folder, { recursive: true, force: true });
  }

  #path(name) {
    return join(this.#folder, name);
  }

  #initDatabase() {
    const { uid, gid } = postgresUser();
    for (const name of ['database', 'socket']) {
      mkdirSync(this.#path(name), { mode: 0o700 });
      if (uid !== undefined) chownSync(this.#path(name), uid, gid);
    }
    const options = ['-U', 'vexim', '-A', 'trust', '-E', 'UTF8', '--locale=C'];
    const { status, stderr } = spawnSync(postgres('initdb'),
      ['-D', this.#path('database'), ...options], { ...postgresUser(), cwd: '/' });
    if (status !== 0) throw new Error(`initdb: ${stderr}`);
  }

  async #startProxy() {
    const port = await freePort();
    const servers = this.nodes.map(({ url }) =>
      `server ${new URL(url).host} max_fails=1 fail_timeout=1s;`);
    writeFileSync(
      this.#path('nginx.conf'),
      `daemon off; master_process off; pid nginx.pid; error_log error.log;
events { worker_connections 8192; }
http {
  access_log off; client_max_body_size 0;
  client_body_temp_path body; proxy_temp_path proxy;
  fastcgi_temp_path f; uwsgi_temp_path u; scgi_temp_path s;
  map $arg_auth $login { "" $request_id; default $arg_auth; }
  map $http_upgrade $connection_header { "" close; default upgrade; }
  upstream nodes { ${this.#isSticky ? 'hash $login consistent;' : ''} ${servers.join(' ')} }
  server {
    listen 127.0.0.1:${port};
    location / {
      proxy_pass http://nodes;
      proxy_http_version 1.1;
      proxy_set_header Host $http_host;
      proxy_set_header Upgrade $http_upgrade;
      proxy_set_header Connection $connection_header;
      proxy_set_header X-Forwarded-For $remote_addr;
      proxy_read_timeout 1h; proxy_buffering off;
    }
  }
}
`,
    );
    const words = ['-p', this.#folder, '-c', this.#path('nginx.conf'), '-e', 'error.log'];
    this.#proxy = spawnWithUs('SIGTERM', '/usr/sbin/nginx', words,
      { stdio: ['ignore', 'ignore', 'inherit'] });
    this.url = `http://127.0.0.1:${port}`;
    for (let left = 100; ; left -= 1) {
      const answer = await fetch(`${this.url}/health`).catch(() => undefined);
      if (answer) return;
      if (left === 0 || this.#proxy.exitCode !== null) throw new Error('nginx does not start.');
      await new Promise((resolve) => setTimeout(resolve, 100));
    }
  }
}

const postgres = (name) => join(installed, readdirSync(installed).sort().at(-1), 'bin', name);

/** Starts a child process that gets `signal` if we end without close(), for whatever reason. */
const spawnWithUs = (signal, program, words, options) => spawn('setpriv',
  ['--pdeathsig', signal.slice(3), '--', program, ...words], options);

/** PostgreSQL refuses to run as root. It then runs as the user that its package has created. */
function postgresUser() {
  if (process.getuid() !== 0) return {};
  const id = (flag) => Number(spawnSync('id', [flag, 'postgres'], { encoding: 'utf8' }).stdout);
  return { uid: id('-u'), gid: id('-g'), cwd: '/' };
}

async function firstLine(child, beginning) {
  const lines = createInterface(child.stdout);
  const ended = once(child, 'exit')
    .then(([code]) => Promise.reject(new Error(`A node ended with ${code}.`)));
  ended.catch(() => undefined);
  const found = new Promise((resolve) =>
    lines.on('line', (line) => line.startsWith(beginning) && resolve(line)));
  return Promise.race([found, ended]);
}

async function end(child, signal = 'SIGTERM') {
  if (!child || child.exitCode !== null || child.signalCode !== null) return;
  child.kill(signal);
  const force = setTimeout(() => child.kill('SIGKILL'), 20_000);
  await once(child, 'exit');
  clearTimeout(force);
}

async function freePort() {
  const server = createServer().listen(0, '127.0.0.1');
  await once(server, 'listening');
  const { port } = server.address();
  server.close();
  await once(server, 'close');
  return port;
}

const seconds = (count) => new Promise((resolve) => setTimeout(resolve, count * 1_000));

/** Trouble for clients, at random intervals. */
const troubles = {
  async kill(cluster, turn) {
    await seconds(2 + Math.random() * 3);
    await cluster.stopNode(turn % cluster.nodes.length, 'SIGKILL');
    await cluster.startNode(turn % cluster.nodes.length);
  },
  async rolling(cluster, turn) {
    await seconds(3);
    await cluster.stopNode(turn % cluster.nodes.length);
    await cluster.startNode(turn % cluster.nodes.length);
  },
  async database(cluster) {
    await seconds(5);
    await cluster.stopDatabase();
    await seconds(10);
    await cluster.startDatabase();
  },
};

// node cluster.js NODES [--round-robin] [--trouble kill|rolling|database] [FLAG...]
if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const [count, ...rest] = process.argv.slice(2);
  const isSticky = rest[0] !== '--round-robin';
  if (!isSticky) rest.shift();
  const trouble = rest[0] === '--trouble' ? troubles[rest.splice(0, 2)[1]] : undefined;
  const flags = rest;
  const cluster = new Cluster({ isSticky, flags });
  let isClosing = false;
  const close = async () => {
    if (isClosing) return;
    isClosing = true;
    await cluster.close();
    process.exit(0);
  };
  process.on('SIGTERM', close);
  process.on('SIGINT', close);
  process.stdin.resume().on('end', close).on('error', close);
  await cluster.start(Number(count)).catch(async (error) => {
    console.error(error.message);
    await cluster.close();
    process.exit(1);
  });
  for (const { url } of cluster.nodes) console.log(`node ${url}`);
  console.log(`listening on ${cluster.url}`);
  for (let turn = 0; trouble && !isClosing; turn += 1)
    await trouble(cluster, turn).catch((error) => isClosing || console.error(error.message));
}
