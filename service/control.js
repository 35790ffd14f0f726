// /_control: what tests need and no application may have. Unsigned, and answered to this machine only.

import express from 'express';
import { must } from './errors.js';
import { seed } from './seed.js';
import { object, text } from './values.js';

export function control({ store, live, log, app }) {
  const router = express.Router();
  router.use((request, response, next) => {
    must(isLoopback(request.socket.remoteAddress), 'unknownPath');
    next();
  });
  router.use(express.json({ limit: '64mb' }));

  router.get('/seed', (request, response) => response.json({ ...app, ...seed }));
  router.post('/reset', (request, response) => {
    live.drop();
    store.reset(seed);
    log.clear();
    response.json({ success: true });
  });

  router.get('/log', (request, response) => response.json(log.entries(request.query.kind)));
  router.delete('/log', (request, response) => {
    log.clear();
    response.json({ success: true });
  });

  router.post('/emit', ({ body }, response) => {
    const { user, event, args = [] } = object(body);
    response.json({ connections: live.send([text(user, 'user')], text(event, 'event'), ...args) });
  });
  router.post('/drop', ({ body }, response) => response.json({ connections: live.drop(body?.user) }));
  return router;
}

const isLoopback = (address) => address === '::1' || /^(::ffff:)?127\./.test(address);
