// Compares secrets, and keeps them out of the log.

import { createHash, timingSafeEqual } from 'node:crypto';

const digest = (text) => createHash('sha256').update(text).digest();

/** Whether both texts are equal. The time that it takes does not depend on where they differ. */
export const sameSecret = (one, other) => typeof one === 'string' && typeof other === 'string' &&
  timingSafeEqual(digest(one), digest(other));

/** Whether the request has the header "Authorization: Bearer SECRET" (RFC 6750). */
export const bears = (request, secret) =>
  sameSecret(/^Bearer (.+)$/i.exec(request.headers.authorization ?? '')?.[1], secret);

const masked = '(masked)';
const secretNames = new Set(['auth', 'password', 'oauth', 'sign', 'smscode', 'authorization',
  'cookie', 'x-vx-request-sign', 'x-vx-session-token']);

/**
 * `value` without secrets: members with such names, and the connect parameter "auth" inside texts
 * (URLs, packets).
 */
export function mask(value) {
  if (typeof value === 'string') return value.replace(/\bauth=.*$/s, `auth=${masked}`);
  if (Array.isArray(value)) return value.map(mask);
  if (typeof value !== 'object' || value === null) return value;
  return Object.fromEntries(Object.entries(value)
    .map(([name, item]) => [name, secretNames.has(name.toLowerCase()) ? masked : mask(item)]));
}
