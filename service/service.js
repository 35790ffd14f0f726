// Puts the parts together: one HTTP server that carries REST, the live part and the control endpoint.

import { once } from 'node:events';
import { createServer } from 'node:http';
import { createServer as createTlsServer } from 'node:https';
import express from 'express';
import { Attachments } from './attachments.js';
import { control } from './control.js';
import { ServiceError } from './errors.js';
import { Faults } from './faults.js';
import { Live } from './live.js';
import { Log } from './log.js';
import { answerError, rest } from './rest/index.js';
import { seed } from './seed.js';
import { Store } from './store.js';
import { views } from './views.js';

/** Starts a service; resolves to its URL and a function that ends it. `tls` is {cert, key} in PEM, or nothing. */
export async function startService({ host, port, tls, app, line, namespace, engine, attachmentLimit, maxSignatureAge, bodyLimit }) {
  const httpServer = tls ? createTlsServer(tls) : createServer();
  httpServer.requestTimeout = 0; // a slow upload is no attack here
  const log = new Log();
  const faults = new Faults();
  const store = new Store();
  await store.reset(seed);
  const attachments = new Attachments(attachmentLimit);

  const site = express().disable('x-powered-by').disable('etag');
  httpServer.on('request', site);
  const live = new Live({ httpServer, store, app, log, line, namespace, engine }); // takes its path before `site` sees it
  faults.guard(httpServer, (request, response) => noteRequest(log, request, response));

  const service = { app, log, faults, store, live, attachments, views: views({ store, live }) };
  site.use('/_control', control(service));
  site.use(rest(service, { app, maxSignatureAge, bodyLimit }));
  site.use(() => {
    throw new ServiceError('unknownPath');
  });
  site.use(answerError);

  const close = () => {
    live.close();
    httpServer.close();
    httpServer.closeAllConnections();
    attachments.close();
  };
  httpServer.listen(port, host);
  await once(httpServer, 'listening').catch((error) => {
    close();
    throw error;
  });
  const name = host.includes(':') ? `[${host}]` : host;
  return {
    url: `${tls ? 'https' : 'http'}://${name}:${httpServer.address().port}`,
    close,
  };
}

function noteRequest(log, request, response) {
  const { method, url, headers } = request;
  const kind = url.startsWith('/socket.io/') ? 'poll' : 'request';
  request.logEntry = log.add(kind, { method, url, headers });
  response.on('finish', () => {
    const answered = { type: response.getHeader('content-type'), length: Number(response.getHeader('content-length')) };
    Object.assign(request.logEntry, { status: response.statusCode, ...answered });
  });
}
