// /_control: what tests need and no application may have. Unsigned, and answered to this machine only.

import express from 'express';
import { must } from './errors.js';
import { seed } from './seed.js';
import { object, text } from './values.js';

export function control({ store, live, log, app, attachments, faults }) {
  const router = express.Router();
  router.use((request, response, next) => {
    must(isLoopback(request.socket.remoteAddress), 'unknownPath');
    next();
  });
  router.use(express.json({ limit: '64mb' }));

  const add = (method, path, handle) => {
    router[method](path, async (request, response) => response.json((await handle(request)) ?? { success: true }));
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

  add('get', '/log', ({ query }) => log.entries(query.kind));
  add('delete', '/log', () => log.clear());

  add('get', '/faults', () => faults.pending);
  add('post', '/faults', ({ body }) => faults.add(object(body)));
  add('delete', '/faults', () => faults.clear());

  // Each of these takes {"user": id}, or nothing for everybody, and answers how many connections it met.
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

const isLoopback = (address) => address === '::1' || /^(::ffff:)?127\./.test(address);
