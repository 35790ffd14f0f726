// "server.js admin …": commands for whoever runs the service. They work on the same database and
// folder, also while the service runs.

import { randomBytes } from 'node:crypto';
import { once } from 'node:events';
import { createInterface } from 'node:readline';
import { backUp, restore } from './backup.js';
import { UsageError } from './options.js';
import { openStore } from './store.js';
import { removeUser, setPassword } from './users.js';
import { keyring } from './userkeys.js';
import { limits } from './values.js';

export const usage = `\
usage: server.js admin COMMAND [--config FILE] [--data FOLDER] [--database URL]
  list                       the users
  add ID [NAME] [-]          a new user, who logs in as NAME (ID, when left out)
  password ID [-]            a new password; the user's key changes with it
  key ID                     shows what goes where the application's id and key go
  remove ID                  the user, the talks with friends, and groups without other members
  backup FILE                writes everything to a tar file ("-" for standard output)
  restore FILE               replaces everything by what such a file holds ("-" for standard input)
With "-" the first line of standard input is the password; otherwise one is made up and shown.`;

const commands = {
  async list({ store, print }, words) {
    expect(words, 0, 0);
    const users = await store.search('users', [], { limit: limits.records });
    for (const { id, username, created } of users) {
      print([id, username ?? '-', new Date(created).toISOString()].join('\t'));
    }
  },

  async add(context, words) {
    const chosen = await choosePassword(words);
    expect(words, 1, 2);
    const [id, username = id] = words;
    await context.store.addUser({ id, username, password: chosen.password });
    context.print(`user: ${id}\nuser name: ${username}`);
    await showSecrets(context, id, chosen);
  },

  async password(context, words) {
    const chosen = await choosePassword(words);
    expect(words, 1, 1);
    await setPassword(context.store.db, words[0], chosen.password);
    await showSecrets(context, words[0], chosen);
  },

  async key({ keyOf, print }, words) {
    expect(words, 1, 1);
    if (keyOf === undefined)
      throw new UsageError('users have their own keys only with --user-secret');
    const { app, key } = await keyOf(words[0]);
    print(`app: ${app}\nkey: ${key}`);
  },

  async remove({ store }, words) {
    expect(words, 1, 1);
    await removeUser(store.db, words[0]);
  },

  async backup({ place }, words) {
    expect(words, 1, 1);
    await backUp(place, words[0]);
  },

  async restore({ place }, words) {
    expect(words, 1, 1);
    await restore(place, words[0]);
  },
};

/**
 * Runs the command in `words`, with the options from readOptions(). Rejects with an error whose
 * text can be shown to the user.
 */
export async function admin(words, { service: { data, database, app, userSecret } }) {
  const [name, ...rest] = words;
  if (!Object.hasOwn(commands, name ?? ''))
    throw new UsageError('admin needs one of these commands');
  process.umask(0o077); // a backup contains people's messages
  if (data === undefined && database === undefined)
    throw new UsageError('--data or --database must say where the users are');
  const isAboutAll = name === 'backup' || name === 'restore';
  const store = isAboutAll ? undefined : await openStore({ data, database, isShared: true });
  try {
    const keyOf = userSecret === undefined ? undefined : keyring({ store, app, userSecret });
    await commands[name]({ store, keyOf, place: { data, database },
      print: (text) => process.stdout.write(`${text}\n`) }, rest);
  } finally {
    await store?.close();
  }
}

function expect(words, least, most) {
  if (words.length < least || words.length > most)
    throw new UsageError('this command needs other arguments');
}

/** Removes a final "-" from `words`. */
async function choosePassword(words) {
  if (words.at(-1) !== '-')
    return { password: randomBytes(12).toString('base64url'), isMadeUp: true };
  words.pop();
  const nothing = once(process.stdin, 'end').then(() => ['']);
  const [line] = await Promise.race([once(createInterface(process.stdin), 'line'), nothing]);
  if (line === '') throw new UsageError('standard input has no password');
  return { password: line };
}

async function showSecrets({ keyOf, print }, id, { password, isMadeUp }) {
  if (isMadeUp) print(`password: ${password}`);
  if (keyOf === undefined) return;
  const { app, key } = await keyOf(id);
  print(`app: ${app}\nkey: ${key}`);
}
