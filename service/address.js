// Finds out who is at the other end of a connection: the peer itself or, behind trusted proxies,
// the client that they name.

import ipaddr from 'ipaddr.js';
import proxyaddr from 'proxy-addr';

export const isLoopback = (address) => address === 'localhost' || address === '::1' ||
  /^(::ffff:)?127\./.test(address ?? '');

/**
 * Whether a proxy forwarded the request, by the headers of RFC 7239 and RFC 9110 and the older
 * ones.
 */
export const isForwarded = ({ headers }) =>
  Object.keys(headers).some((name) => name === 'forwarded' || name === 'via' ||
    name === 'x-real-ip' || name.startsWith('x-forwarded-'));

/**
 * Returns a function that says whether an address is one of `proxies` (addresses, networks such as
 * 10.0.0.0/8, or "loopback"). Throws for anything else in the list.
 */
export const trust = (proxies) => proxyaddr.compile(proxies);

/** The client's address. X-Forwarded-For counts only if it comes from a proxy that `isTrusted`. */
export function clientAddress(request, isTrusted) {
  try {
    return ipaddr.process(proxyaddr(request, isTrusted)).toString();
  } catch {
    // the trusted proxy named something that is not an address
    return request.socket?.remoteAddress ?? '';
  }
}

/**
 * What counts as one client: an IPv4 address, or an IPv6 network of 64 bits, the least that one
 * customer gets (RFC 6177).
 */
export function clientNetwork(address) {
  if (!ipaddr.isValid(address)) return address;
  const parsed = ipaddr.process(address);
  return parsed.kind() === 'ipv4' ? parsed.toString()
    : parsed.parts.slice(0, 4).map((part) => part.toString(16)).join(':');
}
