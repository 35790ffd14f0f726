// Puts the parts together: one HTTP server that carries REST, the live part and the control endpoint.

import { createServer } from 'node:http';
import { createServer as createTlsServer } from 'node:https';
import express from 'express';
import { control } from './control.js';
import { ServiceError } from './errors.js';
import { Live } from './live.js';
import { Log } from './log.js';
import { answerError, rest } from './rest/index.js';
import { seed } from './seed.js';
import { Store } from './store.js';

/** Starts a service; resolves to its URL and a function that ends it. `tls` is {cert, key} in PEM, or nothing. */
export async function startService({ host, port, tls, app, line, namespace, engine, maxSignatureAge, bodyLimit }) {
  const httpServer = tls ? createTlsServer(tls) : createServer();
  const store = new Store(seed);
  const log = new Log();

  const site = express().disable('x-powered-by').disable('etag');
  httpServer.on('request', site);
  const live = new Live({ httpServer, store, app, log, line, namespace, engine }); // takes its path before `site` sees it
  const service = { store, live, log, app };
  site.use('/_control', control(service));
  site.use(recordRequests(log));
  site.use(rest(service, { app, maxSignatureAge, bodyLimit }));
  site.use(() => {
    throw new ServiceError('unknownPath');
  });
  site.use(answerError);

  await new Promise((resolve, reject) => httpServer.once('error', reject).listen(port, host, resolve));
  const name = host.includes(':') ? `[${host}]` : host;
  return {
    url: `${tls ? 'https' : 'http'}://${name}:${httpServer.address().port}`,
    close() {
      live.close();
      httpServer.close();
      httpServer.closeAllConnections();
    },
  };
}

function recordRequests(log) {
  return (request, response, next) => {
    const { method, url, headers } = request;
    request.logEntry = log.add('request', { method, url, headers });
    response.on('finish', () => (request.logEntry.status = response.statusCode));
    next();
  };
}
