// Secrets that others show us, and those that no log may hold.

import { createHash, timingSafeEqual } from 'node:crypto';

const digest = (text) => createHash('sha256').update(text).digest();

/** Whether both are the same text, in a time that does not depend on where they differ. */
export const sameSecret = (one, other) => typeof one === 'string' && typeof other === 'string' && timingSafeEqual(digest(one), digest(other));

/** Whether the request carries "Authorization: Bearer SECRET" (RFC 6750). */
export const bears = (request, secret) => sameSecret(/^Bearer (.+)$/i.exec(request.headers.authorization ?? '')?.[1], secret);

const masked = '(masked)';
const secretNames = new Set(['auth', 'password', 'oauth', 'sign', 'smscode', 'authorization', 'cookie', 'x-vx-request-sign', 'x-vx-session-token']);

/** `value` without secrets: members that are named like one, and the connect parameter "auth" within texts (URLs, packets). */
export function mask(value) {
  if (typeof value === 'string') return value.replace(/\bauth=.*$/s, `auth=${masked}`);
  if (Array.isArray(value)) return value.map(mask);
  if (typeof value !== 'object' || value === null) return value;
  return Object.fromEntries(Object.entries(value).map(([name, item]) => [name, secretNames.has(name.toLowerCase()) ? masked : mask(item)]));
}
