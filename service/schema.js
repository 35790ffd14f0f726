// The tables, version by version. A released migration never changes; later ones are added below.
// Texts that people choose are stored as JSON, because PostgreSQL's "text" cannot hold the NUL
// character. Times are milliseconds since 1970.

const kinds = ['users', 'groups', 'rooms', 'passengers'];

async function first(db) {
  for (const kind of kinds) {
    await db.schema.createTable(kind, (table) => {
      table.bigIncrements('seq'); // the order in which they were added
      table.string('id', 64).notNullable().unique();
      table.double('created').notNullable();
      table.double('updated').notNullable();
      if (kind !== 'passengers') table.text('attributes').notNullable(); // JSON
      if (kind === 'groups' || kind === 'passengers') table.text('fields').notNullable(); // JSON
      if (kind === 'groups') table.string('owner', 64).notNullable();
      if (kind === 'rooms') table.text('name').notNullable(); // JSON
      if (kind === 'users') {
        table.string('username').unique();
        table.string('password'); // this and the code as in passwords.js
        table.string('phone').unique();
        table.string('code');
        table.string('identity_key').index(); // the first of the digests
        table.text('identity'); // JSON array of digests
      }
    });
  }
  // For searches by attribute: digests of a key, and of a key together with the text of its value.
  await db.schema.createTable('terms', (table) => {
    table.string('kind', 16).notNullable();
    table.string('id', 64).notNullable();
    table.string('term', 43).notNullable();
    table.index(['kind', 'term']);
    table.index(['kind', 'id']);
  });
  await db.schema.createTable('members', (table) => {
    table.bigIncrements('seq');
    table.string('kind', 16).notNullable();
    table.string('place', 64).notNullable();
    table.string('user', 64).notNullable();
    table.unique(['kind', 'place', 'user']);
    table.index(['kind', 'user']);
  });
  await db.schema.createTable('friends', (table) => {
    table.bigIncrements('seq');
    table.string('user', 64).notNullable();
    table.string('friend', 64).notNullable();
    table.double('ts').notNullable();
    table.string('from', 64).notNullable();
    table.string('to', 64).notNullable();
    table.unique(['user', 'friend']);
  });
  await db.schema.createTable('installs', (table) => {
    table.bigIncrements('seq');
    table.string('user', 64).notNullable();
    table.string('install').notNullable();
    table.unique(['user', 'install']);
  });
  await db.schema.createTable('messages', (table) => {
    table.bigIncrements('seq');
    table.string('conversation').notNullable();
    table.double('ts').notNullable(); // given by the sender, so neither unique nor in order
    table.text('message').notNullable(); // JSON
    table.index(['conversation', 'ts', 'seq']);
  });
  await db.schema.createTable('files', (table) => {
    table.string('name', 64).primary();
    table.text('type').notNullable(); // JSON
    table.double('size').notNullable();
    table.double('created').notNullable();
  });
  await db.schema.createTable('nodes', (table) => {
    table.string('id', 32).primary();
    table.double('seen').notNullable();
  });
}

/** Name and function of each. */
export const migrations = [['1-first', first]];

/** For knex: where these migrations are found. */
export const sourceOf = (given) => ({
  getMigrations: async () => given,
  getMigrationName: ([name]) => name,
  getMigration: async ([, up]) => ({ up, down: () => undefined }),
});

/** All tables with users' data. */
export const tables = [...kinds, 'terms', 'members', 'friends', 'installs', 'messages', 'files'];

/**
 * Tables about connections. In SQLite they end with the process; in PostgreSQL a crash of the
 * database may lose them.
 */
export const sessionsTable = (temporary) =>
  `create ${temporary} table if not exists sessions
    (id varchar(64) primary key, "user" varchar(64) not null, node varchar(32) not null)`;
export const sessionsIndex = (temporary) =>
  `create index if not exists ${temporary}sessions_user on sessions ("user")`;
