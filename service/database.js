// Opens the database: PostgreSQL by its URL, SQLite in a folder, or SQLite in memory. The queries
// are the same for all three.

import knex from 'knex';
import BetterSqlite3Client from 'knex/lib/dialects/better-sqlite3/index.js';
import { statSync } from 'node:fs';
import { createRequire } from 'node:module';
import { join } from 'node:path';
import { migrations as released, sessionsIndex, sessionsTable, sourceOf } from './schema.js';

const Sqlite = createRequire(import.meta.url)('better-sqlite3');
const busyMillis = 10_000;
const queryMillis = 15_000;

/**
 * A transaction takes the write lock at the start: after a read SQLite would not wait for it
 * (`service admin` may write at the same time).
 */
class SqliteClient extends BetterSqlite3Client {
  _query(connection, query) {
    return super._query(connection,
      query.sql === 'BEGIN;' ? Object.assign(query, { sql: 'BEGIN IMMEDIATE;' }) : query);
  }
}

/**
 * The path of a folder's SQLite database. Throws if the file is there and empty: SQLite would take
 * a truncated database for a new one.
 */
export function databaseFile(directory) {
  const file = join(directory, 'service.sqlite');
  if (statSync(file, { throwIfNoEntry: false })?.size === 0)
    throw new Error(`${file} is empty. ${advice} If there is no backup, only move it away.`);
  return file;
}

const advice = 'Move it away, with its -wal and -shm, and restore a backup.';

/**
 * Returns knex for a database whose tables `migrations` have brought to this version. `url` is for
 * PostgreSQL.
 */
export async function openDatabase({ url, directory, migrations = released }) {
  const db = knex(url ? postgres(url) : sqlite(directory));
  try {
    if (url) await retryWhileStarting(() => db.raw('select 1'));
    await db.transaction(async (trx) => {
      // several nodes may start at the same time
      if (url) await trx.raw("select pg_advisory_xact_lock(hashtext('vexim-service schema'))");
      await trx.migrate.latest({ migrationSource: sourceOf(migrations),
        tableName: 'schema_versions' }).catch(explain);
      await trx.raw(sessionsTable(url ? 'unlogged' : 'temporary'));
      await trx.raw(sessionsIndex(url ? '' : 'temp.'));
    });
    return db;
  } catch (error) {
    await db.destroy();
    throw directory && !url ? explainDamage(error, directory) : error;
  }
}

function explain(error) {
  if (!/missing/.test(error.message)) throw error;
  throw new Error('A later version of the service has changed this database.', { cause: error });
}

/** SQLite's errors do not name the file. */
function explainDamage(error, directory) {
  if (!/^SQLITE_(CORRUPT|NOTADB)/.test(error.code)) return error;
  return new Error(`${databaseFile(directory)} is damaged (${error.message}). ${advice}`,
    { cause: error });
}

function postgres(url) {
  const connection = { connectionString: url, keepAlive: true, query_timeout: queryMillis,
    connectionTimeoutMillis: 5_000 };
  return { client: 'pg', connection, pool: { min: 0, max: 10 },
    acquireConnectionTimeout: queryMillis };
}

function sqlite(directory) {
  const afterCreate = (connection, done) => {
    connection.pragma('journal_mode = WAL');
    connection.pragma('synchronous = FULL'); // a message that was acknowledged survives a power cut
    connection.pragma(`busy_timeout = ${busyMillis}`);
    done(null, connection);
  };
  const filename = directory ? databaseFile(directory) : ':memory:';
  return { client: SqliteClient, connection: { filename }, useNullAsDefault: true,
    log: { warn: () => undefined }, pool: { min: 1, max: 1, afterCreate } };
}

/**
 * Locks a folder against other services, and throws if one runs there. The operating system frees
 * the lock when the process ends, for whatever reason.
 */
export function lockFolder(directory) {
  const lock = new Sqlite(join(directory, 'lock'), { timeout: 0 });
  try {
    lock.pragma('locking_mode = EXCLUSIVE');
    lock.exec('BEGIN EXCLUSIVE');
    return lock;
  } catch (error) {
    lock.close();
    throw new Error(`Another service uses ${directory} (${error.code}).`, { cause: error });
  }
}

/** While PostgreSQL starts, it answers "the database system is starting up" (SQLSTATE 57P03). */
async function retryWhileStarting(act, tries = 50) {
  for (let left = tries; ; left -= 1) {
    try {
      return await act();
    } catch (error) {
      if (error.code !== '57P03' || left === 0) throw error;
      await new Promise((resolve) => setTimeout(resolve, 200));
    }
  }
}

/** Whether the error says that a unique value already exists. */
export const isTaken = ({ code }) => code === '23505' || code === 'SQLITE_CONSTRAINT_UNIQUE' ||
  code === 'SQLITE_CONSTRAINT_PRIMARYKEY';
