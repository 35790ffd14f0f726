// Puts the parts together: one HTTP server for REST, live events, the control endpoint and
// monitoring.

import { once } from 'node:events';
import { readFileSync } from 'node:fs';
import { createServer } from 'node:http';
import { createServer as createTlsServer } from 'node:https';
import { setTimeout } from 'node:timers/promises';
import express from 'express';
import { Attachments } from './attachments.js';
import { control } from './control.js';
import { ServiceError } from './errors.js';
import { Faults } from './faults.js';
import { Gate } from './gate.js';
import { Live } from './live.js';
import { Log, noteRequest } from './log.js';
import { identifier } from './login.js';
import { Metrics, failure, makeLogger, monitoring, routeOf } from './monitoring.js';
import { answerError, rest } from './rest/index.js';
import { openStore } from './store.js';
import { LoginThrottle } from './throttle.js';
import { keyring, verifier } from './userkeys.js';
import { views } from './views.js';

const longestClose = 10_000; // after the time that requests may take

const nobody = { users: [], groups: [], rooms: [] };

/**
 * Starts a service with the options from options.js. Resolves to its URL, `close()`, which waits
 * for running requests, and `reload()`, which reads the TLS files again.
 */
export async function startService(options) {
  const { host, tls, app, seed = nobody } = options;
  const logger = makeLogger(options.logLevel);
  const certificate = () => ({ cert: readFileSync(tls.cert), key: readFileSync(tls.key) });
  const httpServer = tls ? createTlsServer(certificate()) : createServer();
  httpServer.requestTimeout = 0; // the gate has its own limits, which allow slow uploads
  const log = new Log(options.control);
  const faults = new Faults();
  const store = await openStore({ ...options, seed });
  const attachments =
    new Attachments({ store, data: options.data, limit: options.attachmentLimit });
  const keys = { store, app, userSecret: options.userSecret };
  const verify = verifier(keys);
  const metrics = new Metrics({ connections: () => live.connections });
  const gate = new Gate({
    ...options.gate,
    refuse: (limit) => metrics.refused.inc({ limit }),
    observe: ({ request, response, address, seconds }) => {
      const { statusCode: status } = response;
      const labels = { method: request.method, route: routeOf(request), status };
      metrics.requests.observe(labels, seconds);
      logger.debug({ ...labels, seconds, address }, 'request');
    },
  });

  const site = express().disable('x-powered-by').disable('etag').set('trust proxy', gate.isTrusted);
  httpServer.on('request', site);
  const live = new Live({
    ...options,
    httpServer,
    store,
    log,
    identify: identifier({ store, verify, idLogin: options.idLogin,
      throttle: new LoginThrottle(options.loginFailures) }),
    report: reporter({ logger, metrics, gate }),
  }); // handles its path before `site` does
  if (options.control.isOn)
    faults.guard(httpServer, (request, response) => noteRequest(log, request, response));
  gate.guard(httpServer);

  const service = { app, seed, log, faults, store, live, attachments, verify, keyOf: keyring(keys),
    views: views({ store, live }) };
  site.use(
    monitoring({ gate, metrics, metricsSecret: options.metricsSecret, ping: () => live.ping() }));
  if (options.control.isOn) site.use('/_control', control(service, options.control));
  site.use(rest(service, options));
  site.use(() => {
    throw new ServiceError('unknownPath');
  });
  site.use(answerError(logger));

  const finish = async () => {
    const drained = gate.drain(options.drainSeconds);
    httpServer.close();
    await live.close(); // clients reconnect to another node, or when we are back
    httpServer.closeIdleConnections();
    if (!(await drained)) logger.warn('requests were still running');
    httpServer.closeAllConnections();
    attachments.close();
    await store.close();
  };
  const close = async () => {
    logger.info('ending');
    const late = setTimeout(options.drainSeconds * 1_000 + longestClose, 'late', { ref: false });
    // none of it was acknowledged
    if ((await Promise.race([finish(), late])) === 'late')
      logger.warn('not all is done: the database does not answer');
    metrics.stop();
    logger.info('ended');
  };
  const reload = () => {
    if (!tls) return;
    try {
      httpServer.setSecureContext(certificate());
      logger.info('the TLS files were read again');
    } catch (error) {
      logger.error({ error: error.message }, 'the TLS files cannot be used; the old ones stay');
    }
  };
  const listening = async () => {
    await live.start();
    httpServer.listen(options.port, host);
    await once(httpServer, 'listening');
  };
  await listening().catch(async (error) => {
    await close();
    throw error;
  });
  const name = host.includes(':') ? `[${host}]` : host;
  const url = `${tls ? 'https' : 'http'}://${name}:${httpServer.address().port}`;
  logger.info({ url }, 'listening');
  return { url, close, reload };
}

/** Counts and logs live events, without message texts and credentials. */
function reporter({ logger, metrics, gate }) {
  return {
    addressOf: gate.address,
    maySay: (id) => gate.allows(`user ${id}`),
    login(request, { id, error }) {
      metrics.logins.inc({ result: error ? error.name : 'ok' });
      if (error?.name === 'tooMany') metrics.refused.inc({ limit: 'logins' });
      const address = gate.address(request);
      if (error) logger.warn({ address, reason: error.name }, 'login refused');
      else logger.info({ address, user: id }, 'login');
    },
    message: (result) => metrics.messages.inc({ result }),
    loss: () => logger.warn('events of other nodes may be missing: all connections are cut'),
    failure: (error) => logger.error(failure(error), 'failure'),
  };
}
