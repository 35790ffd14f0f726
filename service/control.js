// /_control: functions for tests only, not for applications. Requests are not signed, and only this
// machine may send them. Requests from a proxy are refused because they come from elsewhere, and
// those from a browser because any page may have sent them.

import express from 'express';
import { isForwarded, isLoopback } from './address.js';
import { must } from './errors.js';
import { bears } from './secrets.js';
import { object, text } from './values.js';

/** If there is a `secret`, requests must contain it. */
export function control({ store, live, log, app, seed, attachments, faults, keyOf }, { secret }) {
  const router = express.Router();
  router.use((request, response, next) => {
    must(mayControl(request, secret), 'unknownPath');
    next();
  });
  router.use(express.json({ limit: '64mb' }));

  const add = (method, path, handle) => {
    router[method](path,
      async (request, response) => response.json((await handle(request)) ?? { success: true }));
  };
  add('get', '/seed', () => ({ ...app, ...seed }));
  add('post', '/reset', async () => {
    await live.reset();
    faults.clear();
    await attachments.clear();
    await store.reset(seed);
    log.clear();
  });
  add('post', '/users', async ({ body }) => ({ id: (await store.addUser(object(body))).id }));

  add('get', '/users/:id/key', ({ params }) => keyOf(params.id));

  add('get', '/log', ({ query }) => log.entries(query.kind));
  add('delete', '/log', () => log.clear());

  add('get', '/faults', () => faults.pending);
  add('post', '/faults', ({ body }) => faults.add(object(body)));
  add('delete', '/faults', () => faults.clear());

  // Each of these takes {"user": id}, or nothing for everybody, and answers how many connections
  // were affected.
  add('post', '/drop', async ({ body }) => ({ connections: await live.drop(body?.user) }));
  add('post', '/stall', async ({ body }) => ({ connections: await live.stall(body?.user) }));
  add('post', '/unstall', async ({ body }) => ({ connections: await live.unstall(body?.user) }));
  add('post', '/emit', async ({ body }) => {
    const { user, event, args = [] } = object(body);
    must(Array.isArray(args), 'invalidValue', '"args" must be an array.');
    return { connections: await live.send([text(user, 'user')], text(event, 'event'), ...args) };
  });
  return router;
}

function mayControl(request, secret) {
  if (!isLoopback(request.socket.remoteAddress) || isForwarded(request)) return false;
  if (secret !== undefined) return bears(request, secret);
  const { origin, host = '', 'sec-fetch-site': site } = request.headers;
  return origin === undefined && site === undefined &&
    isLoopback(host.replace(/:[0-9]+$/, '').replace(/^\[(.*)\]$/, '$1'));
}
