// The REST interface: one file for each resource, with a table of paths → methods → handlers. A
// handler gets ({ params, query, body }) and returns the JSON value of the answer, or a promise of
// it. Returning nothing means {"success": true}.

import express from 'express';
import { ServiceError } from '../errors.js';
import { excerpt } from '../log.js';
import { failure } from '../monitoring.js';
import { authorize, visible } from '../policy.js';
import { requireSignature } from '../signature.js';
import { files, uploads } from './attachments.js';
import { friends } from './friends.js';
import { groups } from './groups.js';
import { passengers } from './passengers.js';
import { rooms } from './rooms.js';
import { system } from './system.js';
import { users } from './users.js';

export const resources = [users, friends, groups, rooms, passengers, system];

/**
 * The Express router of all REST paths. `service` has what the resources share: store, live, views,
 * attachments, verify.
 */
export function rest(service, { maxSignatureAge, bodyLimit, publicUrl }) {
  const router = express.Router({ caseSensitive: true });
  router.use(noteAnswer);
  router.use(files(service));
  router.use(requireSignature(service.verify, maxSignatureAge));
  router.use(uploads(service, { publicUrl }));
  router.use(express.json({ limit: bodyLimit,
    verify: (request, response, bytes) => noteBody(request, bytes) }));
  for (const resource of resources) {
    for (const [path, methods] of Object.entries(resource(service)))
      addRoute(router, path, methods, service.store);
  }
  return router;
}

function addRoute(router, path, methods, store) {
  const route = router.route(path);
  for (const [method, handle] of Object.entries(methods)) {
    route[method](async (request, response) => {
      await authorize(path, method, request, store);
      const answer = visible(path, request.user, await handle(request));
      response.json(answer === undefined ? { success: true } : answer);
    });
  }
  route.all(() => {
    throw new ServiceError('unknownMethod');
  });
}

function noteBody(request, bytes) {
  if (request.logEntry) request.logEntry.body = excerpt(bytes);
}

/** Express middleware: logs JSON answers. */
function noteAnswer(request, response, next) {
  const { json } = response;
  response.json = (value) => {
    if (request.logEntry) request.logEntry.answer = excerpt(JSON.stringify(value));
    return json.call(response, value);
  };
  next();
}

/** Express error middleware: answers every failure with {"errorCode", "errorMessage"}. */
// eslint-disable-next-line no-unused-vars -- Express tells error middleware by its four parameters
export const answerError = (logger) => (error, request, response, next) => {
  if (response.headersSent) return request.socket.destroy();
  const known = error instanceof ServiceError ? error : translate(error);
  if (known.status >= 500)
    logger.error({ ...failure(error), route: request.route?.path }, 'failure');
  response.status(known.status).json(known);
};

/** Turns the errors of Express and its body parser into ours. */
function translate(error) {
  if (error.type === 'entity.too.large') return new ServiceError('tooLarge');
  if (error.type !== undefined) return new ServiceError('malformedBody');
  if (error.status === 416) return new ServiceError('badRange');
  // for JSON.stringify
  if (error instanceof RangeError)
    return new ServiceError('invalidValue', 'The values are nested too deep.');
  if (error instanceof URIError) return new ServiceError('unknownPath');
  return new ServiceError('internal');
}
