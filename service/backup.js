// A backup is a tar file: service.sqlite or service.dump (pg_dump's own format), and the folder of
// attachments. Backup and restore work while services run: SQLite copies its pages under its own
// locks, PostgreSQL dumps and restores within a transaction.

import { spawn } from 'node:child_process';
import { once } from 'node:events';
import { existsSync, mkdirSync, mkdtempSync, readdirSync, renameSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { databaseFile, openDatabase } from './database.js';

const require = createRequire(import.meta.url);
const temporaryTables = ['sessions', 'nodes']; // who is connected at the moment

/** `place` is {"data", "database"} as for the store; `target` a file, or "-" (standard output). */
export async function backUp(place, target) {
  await within(place, async (folder) => {
    if (place.database) {
      const left = temporaryTables.map((table) => `--exclude-table-data=${table}`);
      await run('pg_dump', ['--format=custom', '--no-owner', ...left,
        `--file=${join(folder, 'service.dump')}`], postgresEnvironment(place.database));
    } else await copy(databaseFile(place.data), join(folder, 'service.sqlite'));
    // The files come last, so all that the database refers to are included.
    const files = place.data && existsSync(join(place.data, 'attachments'))
      ? ['-C', place.data, '--exclude=*.part*', 'attachments'] : [];
    await run('tar', ['--create', `--file=${target}`, '-C', folder,
      place.database ? 'service.dump' : 'service.sqlite', ...files]);
  });
}

/**
 * Replaces all data with that of `source`. Nothing changes if that is not a backup of this service,
 * or was made by a later version.
 */
export async function restore(place, source) {
  await within(place, async (folder) => {
    await run('tar', ['--extract', `--file=${source}`, '--no-same-owner', '-C', folder]);
    const [dump, sqlite] = ['service.dump', 'service.sqlite'].map((name) => join(folder, name));
    if (!existsSync(place.database ? dump : sqlite))
      throw new Error(`this is no backup of ${place.database ? 'PostgreSQL' : 'SQLite'}`);
    // checks it and brings it to our version
    if (!place.database) await openDatabase({ directory: folder }).then((db) => db.destroy());
    takeFiles(join(folder, 'attachments'), place.data);
    if (!place.database) return copy(sqlite, join(place.data, 'service.sqlite'));
    const how = ['--clean', '--if-exists', '--no-owner', '--single-transaction'];
    const environment = postgresEnvironment(place.database);
    await run('pg_restore', [...how, `--dbname=${environment.PGDATABASE}`, dump], environment);
    return (await openDatabase({ url: place.database })).destroy();
  });
}

/** SQLite's online backup, from one file into another that may be in use. */
async function copy(from, to) {
  const Sqlite = require('better-sqlite3');
  const source = new Sqlite(from, { fileMustExist: true, timeout: 10_000 });
  try {
    await source.backup(to);
  } finally {
    source.close();
  }
}

/** Names are random and contents never change, so existing files can stay. */
function takeFiles(from, data) {
  if (!data || !existsSync(from)) return;
  const to = join(data, 'attachments');
  mkdirSync(to, { recursive: true, mode: 0o700 });
  for (const name of readdirSync(from)) renameSync(join(from, name), join(to, name));
}

async function within({ data }, act) {
  const folder = mkdtempSync(join(data ?? tmpdir(), 'backup-'));
  try {
    await act(folder);
  } finally {
    rmSync(folder, { recursive: true, force: true });
  }
}

async function run(program, words, environment = process.env) {
  const child = spawn(program, words, { stdio: 'inherit', env: environment });
  const [code] = await once(child, 'exit');
  if (code !== 0) throw new Error(`${program} failed`);
}

/**
 * The connection for PostgreSQL's own programs. On the command line all users of the machine would
 * see the password.
 */
function postgresEnvironment(url) {
  const { host, port, user, password, database } = require('pg-connection-string').parse(url);
  const given = { PGHOST: host, PGPORT: port, PGUSER: user, PGPASSWORD: password,
    PGDATABASE: database };
  const set = Object.entries(given).filter(([, value]) => value);
  return { ...process.env, ...Object.fromEntries(set) };
}
