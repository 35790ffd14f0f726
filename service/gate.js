// Stands in front of the HTTP server, so that REST, polling and the WebSocket handshake are all met: who asks, how often,
// how slowly, and what is still running when the service is to end.

import { RateLimiterMemory } from 'rate-limiter-flexible';
import { clientAddress, clientNetwork, trust } from './address.js';
import { wrap } from './faults.js';

const bodyMillis = 60_000; // for a body to arrive; for an upload, to go on arriving
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
   * `requestRate` is requests a second and `connections` open ones, of one client; 0 is no limit. `observe({ request, response, address, seconds })`
   * hears of every request once it has ended, `refuse(reason)` of every one that is turned away.
   */
  constructor({ trustProxy, requestRate, connections, observe, refuse }) {
    this.#isTrusted = trust(trustProxy);
    this.#rate = requestRate > 0 && new RateLimiterMemory({ points: requestRate * 10, duration: 10 }); // a client starts with a burst
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

  /** Noted when the request came: later its socket may be gone. */
  address = (request) => (request.clientAddress ??= clientAddress(request, this.#isTrusted));

  /** Puts itself before all listeners that `httpServer` has by now. */
  guard(httpServer) {
    if (this.#connections > 0) httpServer.on('connection', (socket) => this.#count(socket));
    wrap(httpServer, 'request', (request, response, proceed) => this.#pass(request, response, proceed));
    if (httpServer.listenerCount('upgrade') === 0) return;
    wrap(httpServer, 'upgrade', async (request, socket, proceed) => {
      this.address(request);
      const gone = () => {};
      socket.on('error', gone); // until somebody else listens
      if (await this.#mayPass(request)) proceed();
      else socket.end('HTTP/1.1 429 Too Many Requests\r\nConnection: close\r\nRetry-After: 10\r\nContent-Length: 0\r\n\r\n');
      socket.off('error', gone);
    });
  }

  /** From now on answers end their connections. Resolves when nothing runs any more, to true, or after `seconds`, to false. */
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
      this.observe({ request, response, address, seconds: Number(process.hrtime.bigint() - started) / 1e9 });
      if (this.#running.delete(request) && this.#running.size === 0) this.#whenIdle();
    });
    if (!isPoll) limitTime(request);
    if (this.#rate && !(await this.#mayPass(request))) {
      response.writeHead(429, { 'Content-Type': 'application/json', 'Retry-After': '10', Connection: 'close' });
      return response.end(JSON.stringify({ errorCode: 1007, errorMessage: 'Too many requests. Try again in 10 seconds.' }));
    }
    return proceed();
  }

  #mayPass(request) {
    return this.allows(clientNetwork(this.address(request)));
  }

  /** Counts one thing more that `who` does: a client's request, a user's message. Resolves to false when that is one too many. */
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

  /** A proxy's connections are for the proxy to limit. */
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

/** Ends a request whose body does not come. An upload may take as long as it likes while something arrives. */
function limitTime(request) {
  const giveUp = () => request.complete || request.socket.destroy();
  if (isUpload(request.url)) return request.setTimeout(bodyMillis, giveUp);
  const timer = setTimeout(giveUp, bodyMillis);
  return request.once('close', () => clearTimeout(timer));
}
