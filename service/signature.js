// A signature proves that the sender knows the application's client key without sending it:
//   signature := md5(seconds key) ',' seconds      md5 as 32 lower-case hexadecimal digits
// Example for the key "demo-key": a704c7042525d4783d58df80cd0d7c20,1700000000

import { createHash, timingSafeEqual } from 'node:crypto';
import { must } from './errors.js';

const pattern = /^([0-9a-f]{32}),([0-9]{1,12})$/;

/** The signature of `clientKey` at `seconds` since 1970. */
export function sign(clientKey, seconds = Math.round(Date.now() / 1000)) {
  return `${createHash('md5').update(`${seconds}${clientKey}`).digest('hex')},${seconds}`;
}

/**
 * Throws unless `app` is the application and `signature` was made with its key. Returns the time of
 * the signature in seconds.
 */
export function checkSignature({ appId, clientKey }, app, signature) {
  must(typeof signature === 'string' && signature !== '', 'unsigned');
  must(app === appId && clientKey !== undefined, 'unknownApp');
  const match = pattern.exec(signature);
  must(match, 'badSignature');
  const seconds = Number(match[2]);
  must(timingSafeEqual(Buffer.from(signature), Buffer.from(sign(clientKey, match[2]))),
    'badSignature');
  return seconds;
}

/**
 * Express middleware: refuses requests unless `verify(app id, signature)` accepts the signature and
 * its time differs by at most `maxAgeSeconds` from now. Notes whose key it was.
 */
export function requireSignature(verify, maxAgeSeconds) {
  return async (request, response, next) => {
    const { seconds, user } = await verify(request.get('X-VX-AppId'),
      request.get('X-VX-Request-Sign'));
    request.user = user;
    must(Math.abs(Date.now() / 1000 - seconds) <= maxAgeSeconds, 'oldSignature');
    next();
  };
}
