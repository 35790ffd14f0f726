// Who is at the other end of a connection: the peer itself, or, behind proxies that we trust, the client that they name.

import ipaddr from 'ipaddr.js';
import proxyaddr from 'proxy-addr';

export const isLoopback = (address) => address === 'localhost' || address === '::1' || /^(::ffff:)?127\./.test(address ?? '');

/** Whether a proxy passed the request on: RFC 7239, RFC 9110 and what was there before them. */
export const isForwarded = ({ headers }) =>
  Object.keys(headers).some((name) => name === 'forwarded' || name === 'via' || name === 'x-real-ip' || name.startsWith('x-forwarded-'));

/** A function of an address: is it one of `proxies` (addresses, networks as 10.0.0.0/8, "loopback")? Throws for what is none of these. */
export const trust = (proxies) => proxyaddr.compile(proxies);

/** The client's address, where `isTrusted` says which proxies' X-Forwarded-For is believed. */
export function clientAddress(request, isTrusted) {
  try {
    return ipaddr.process(proxyaddr(request, isTrusted)).toString();
  } catch {
    return request.socket?.remoteAddress ?? ''; // a trusted proxy names something that is no address
  }
}

/** What counts as one client: an IPv4 address, or an IPv6 network of 64 bits, which is what one customer is given (RFC 6177). */
export function clientNetwork(address) {
  if (!ipaddr.isValid(address)) return address;
  const parsed = ipaddr.process(address);
  return parsed.kind() === 'ipv4' ? parsed.toString() : parsed.parts.slice(0, 4).map((part) => part.toString(16)).join(':');
}
