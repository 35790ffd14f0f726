// Faults for tests. They come before the HTTP server, so REST, the Socket.IO handshake and polling
// can all fail.

import { STATUS_CODES } from 'node:http';
import { setTimeout as sleep } from 'node:timers/promises';
import { must } from './errors.js';
import { excerpt } from './log.js';
import { count, isObject } from './values.js';

const protectedPath = '/_control';

/**
 * A fault names the requests that it affects by { method, path } (path: the start of the URL; both
 * are optional), how often { times: 1, skip: 0 }, and what happens, in this order:
 *   delayMs            wait first
 *   drop               true: cut the connection without reading the body
 *   dropAfterReceived  cut it once so many bytes of the body are here, or all
 *   status, headers, body (text or JSON value) or bodyBase64
 *                      answer this; with early: true without reading the request's body
 *   dropAfterSent      cut it once so many bytes of the answer's body, made up or real, have gone
 * If the fault has no answer, the service answers the request.
 */
export class Faults {
  #faults = [];

  add({ method, path = '/', times = 1, skip = 0, ...effect }) {
    must(typeof path === 'string' && Number.isInteger(times) && Number.isInteger(skip),
      'invalidValue');
    must(effect.headers === undefined || isObject(effect.headers), 'invalidValue');
    this.#faults.push({ method, path, times, skip, ...effect });
  }

  get pending() {
    return this.#faults;
  }

  clear() {
    this.#faults = [];
  }

  /**
   * Puts itself before all present listeners of `httpServer`. Calls `note(request)` for every
   * request.
   */
  guard(httpServer, note) {
    // If the client leaves early, reading fails, but nobody is there to be told.
    wrap(httpServer, 'request', (request, response, proceed) => {
      if (request.url.startsWith(protectedPath)) return proceed();
      note(request, response);
      const fault = this.#take(request);
      if (!fault) return proceed();
      const { socket } = request;
      return answer(fault, request, response, proceed).catch(() => socket.destroy());
    });
    // Without the WebSocket transport nobody listens. Node then treats a handshake as a request,
    // which is refused at once.
    if (httpServer.listenerCount('upgrade') === 0) return;
    wrap(httpServer, 'upgrade', (request, socket, proceed) => {
      const fault = this.#take(request);
      return fault ? refuse(fault, socket, proceed) : proceed();
    });
  }

  #take({ method, url }) {
    const fault = this.#faults.find((one) => (one.method ?? method) === method &&
      url.startsWith(one.path));
    if (!fault) return undefined;
    if (fault.skip > 0) {
      fault.skip -= 1;
      return undefined;
    }
    fault.times -= 1;
    if (fault.times <= 0) this.#faults.splice(this.#faults.indexOf(fault), 1);
    return fault;
  }
}

/** Puts `before(request, channel, proceed)` before all present listeners of `event`. */
export function wrap(httpServer, event, before) {
  const listeners = httpServer.listeners(event);
  httpServer.removeAllListeners(event);
  httpServer.on(event, (request, channel, ...rest) => {
    before(request, channel,
      () => listeners.forEach((listener) => listener.call(httpServer, request, channel, ...rest)));
  });
}

async function answer(fault, request, response, proceed) {
  const { socket } = request; // the request loses it once it has been read
  if (fault.delayMs) await sleep(fault.delayMs);
  if (fault.drop) return socket.destroy();
  if (fault.dropAfterReceived !== undefined) {
    await readBody(request, fault.dropAfterReceived);
    return socket.destroy();
  }
  if (fault.dropAfterSent !== undefined) cutAfter(response, fault.dropAfterSent);
  if (fault.status === undefined && bodyOf(fault) === undefined) return proceed();
  if (!fault.early) await readBody(request);
  const body = bodyOf(fault) ?? Buffer.alloc(0);
  response.writeHead(fault.status ?? 200,
    { 'Content-Type': 'application/json', 'Content-Length': body.length, ...fault.headers });
  return response.end(body);
}

/** The same for a WebSocket handshake, which has no response object yet. */
async function refuse(fault, socket, proceed) {
  socket.on('error', () => {}); // the client may leave while we wait
  if (fault.delayMs) await sleep(fault.delayMs);
  if (fault.drop) return socket.destroy();
  if (fault.status === undefined) return proceed();
  const body = bodyOf(fault) ?? Buffer.alloc(0);
  const headers = { Connection: 'close', 'Content-Length': body.length, ...fault.headers };
  const lines = Object.entries(headers).map(([name, value]) => `${name}: ${value}\r\n`);
  socket.write(
    `HTTP/1.1 ${fault.status} ${STATUS_CODES[fault.status] ?? ''}\r\n${lines.join('')}\r\n`);
  return socket.end(body);
}

function bodyOf({ body, bodyBase64 }) {
  if (bodyBase64 !== undefined) return Buffer.from(bodyBase64, 'base64');
  if (body === undefined) return undefined;
  return Buffer.from(typeof body === 'string' ? body : JSON.stringify(body));
}

/** Reads the body, or its first `most` bytes, and notes its beginning. */
async function readBody(request, most = Infinity) {
  const chunks = [];
  let received = 0;
  if (most > 0) {
    for await (const chunk of request) {
      if (received < 65_536) chunks.push(chunk);
      received += chunk.length;
      if (received >= most) break;
    }
  }
  request.logEntry.body = excerpt(Buffer.concat(chunks));
}

/** Sends `most` bytes of the body, then closes the connection. */
function cutAfter(response, most) {
  let left = most;
  let isCut = false;
  const { write, end } = response;
  response.write = (chunk, encoding) => {
    const bytes = Buffer.from(chunk, encoding);
    if (bytes.length <= left) {
      left -= bytes.length;
      return write.call(response, bytes);
    }
    response.flushHeaders();
    if (left > 0) write.call(response, bytes.subarray(0, left));
    response.socket.destroySoon();
    left = 0;
    isCut = true;
    return false;
  };
  response.end = (chunk, encoding) => {
    if (chunk?.length > 0) response.write(chunk, encoding);
    return isCut ? response : end.call(response);
  };
}
