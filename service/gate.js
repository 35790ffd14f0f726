// Comes before the HTTP server, so it sees REST, polling and WebSocket handshakes alike: who asks,
// how often and how slowly, and what is still running when the service shuts down.

import { RateLimiterMemory } from 'rate-limiter-flexible';
import { clientAddress, clientNetwork, trust } from './address.js';
import { wrap } from './faults.js';

const bodyMillis = 60_000; // time for a body to arrive; for an upload, the longest pause
const isUpload = (url) => url.startsWith('/attachment');

export class Gate {
  #isTrusted;
  #rate;
  #connections;
  #running = new Set(); // requests other than polls, which wait on purpose
  #perNetwork = new Map();
  #isDraining = false;
  #whenIdle = () => {};

  /**
   * `requestRate` limits requests per second, `connections` open connections, both of one client; 0
   * means no limit. Calls `observe({ request, response, address, seconds })` when a request has
   * ended, and `refuse(reason)` when one is turned away.
   */
  constructor({ trustProxy, requestRate, connections, observe, refuse }) {
    this.#isTrusted = trust(trustProxy);
    // a burst at the start is fine
    this.#rate = requestRate > 0 &&
      new RateLimiterMemory({ points: requestRate * 10, duration: 10 });
    this.#connections = connections;
    this.observe = observe;
    this.refuse = refuse;
  }

  get isTrusted() {
    return this.#isTrusted;
  }

  get isDraining() {
    return this.#isDraining;
  }

  /** Noted when the request arrived, because its socket may be gone later. */
  address = (request) => (request.clientAddress ??= clientAddress(request, this.#isTrusted));

  /** Puts itself before all present listeners of `httpServer`. */
  guard(httpServer) {
    if (this.#connections > 0) httpServer.on('connection', (socket) => this.#count(socket));
    wrap(httpServer, 'request',
      (request, response, proceed) => this.#pass(request, response, proceed));
    if (httpServer.listenerCount('upgrade') === 0) return;
    wrap(httpServer, 'upgrade', async (request, socket, proceed) => {
      this.address(request);
      const gone = () => {};
      socket.on('error', gone); // until somebody else listens
      if (await this.#mayPass(request)) proceed();
      else socket.end('HTTP/1.1 429 Too Many Requests\r\nConnection: close\r\n' +
        'Retry-After: 10\r\nContent-Length: 0\r\n\r\n');
      socket.off('error', gone);
    });
  }

  /**
   * From now on each answer closes its connection. Resolves to true when nothing is running any
   * more, or to false after `seconds`.
   */
  drain(seconds) {
    this.#isDraining = true;
    if (this.#running.size === 0) return Promise.resolve(true);
    return new Promise((resolve) => {
      const timer = setTimeout(() => resolve(false), seconds * 1000);
      this.#whenIdle = () => {
        clearTimeout(timer);
        resolve(true);
      };
    });
  }

  async #pass(request, response, proceed) {
    const started = process.hrtime.bigint();
    const address = this.address(request);
    const isPoll = request.url.startsWith('/socket.io/');
    if (!isPoll) this.#running.add(request);
    if (this.#isDraining) response.setHeader('Connection', 'close');
    response.on('close', () => {
      this.observe({ request, response, address,
        seconds: Number(process.hrtime.bigint() - started) / 1e9 });
      if (this.#running.delete(request) && this.#running.size === 0) this.#whenIdle();
    });
    if (!isPoll) limitTime(request);
    if (this.#rate && !(await this.#mayPass(request))) {
      response.writeHead(429,
        { 'Content-Type': 'application/json', 'Retry-After': '10', Connection: 'close' });
      return response.end(JSON.stringify({ errorCode: 1007,
        errorMessage: 'Too many requests. Try again in 10 seconds.' }));
    }
    return proceed();
  }

  #mayPass(request) {
    return this.allows(clientNetwork(this.address(request)));
  }

  /**
   * Counts one more action of `who`: a client's request or a user's message. Resolves to false if
   * that is one too many.
   */
  async allows(who) {
    if (!this.#rate) return true;
    try {
      await this.#rate.consume(who);
      return true;
    } catch {
      this.refuse('requests');
      return false;
    }
  }

  /** The proxy itself limits its connections. */
  #count(socket) {
    if (this.#isTrusted(socket.remoteAddress ?? '', 0)) return;
    const network = clientNetwork(socket.remoteAddress ?? '');
    const count = (this.#perNetwork.get(network) ?? 0) + 1;
    if (count > this.#connections) {
      this.refuse('connections');
      socket.destroy();
      return;
    }
    this.#perNetwork.set(network, count);
    socket.once('close', () => {
      const left = this.#perNetwork.get(network) - 1;
      if (left > 0) this.#perNetwork.set(network, left);
      else this.#perNetwork.delete(network);
    });
  }
}

/**
 * Ends a request whose body does not arrive. An upload may take any time as long as data keeps
 * arriving.
 */
function limitTime(request) {
  const giveUp = () => request.complete || request.socket.destroy();
  if (isUpload(request.url)) return request.setTimeout(bodyMillis, giveUp);
  const timer = setTimeout(giveUp, bodyMillis);
  return request.once('close', () => clearTimeout(timer));
}
