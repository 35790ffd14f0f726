// The live part: one namespace of a Socket.IO server. Here, and nowhere else, the lines 2.x, 3.x and 4.x differ.
//   in:  the connect parameter "auth", the event "say"
//   out: "login", "message", "yourself", "sys", "online", "offline"

import { createRequire } from 'node:module';
import { ServiceError } from './errors.js';
import { excerpt } from './log.js';
import { identify } from './login.js';
import { address } from './messages.js';

const require = createRequire(import.meta.url);
export const lines = { 2: 'socket.io-2', 3: 'socket.io-3', 4: 'socket.io-4' };

export class Live {
  #links = new Set(); // every Engine.IO connection, logged in or not
  #connections = new Map(); // id of a user or passenger → its open sockets
  #store;
  #app;
  #log;
  #io;

  /** `line` is 2, 3 or 4; `engine` goes to the Socket.IO server as it is ("pingInterval", "transports" …). */
  constructor({ httpServer, store, app, log, line, namespace, engine }) {
    this.#store = store;
    this.#app = app;
    this.#log = log;
    this.#io = require(lines[line])(httpServer, { serveClient: false, ...engine });
    this.#io.engine.on('connection', (connection) => this.#watch(connection));
    this.#io.of(namespace).on('connection', (socket) => this.#join(socket));
  }

  /** How many connections this user has; 0 is offline. */
  sessions(id) {
    return this.#connections.get(id)?.size ?? 0;
  }

  /** Sends an event to every connection of each of `ids` and returns how many those are; who is not connected misses it. */
  send(ids, event, ...items) {
    let count = 0;
    for (const id of ids) {
      for (const socket of this.#connections.get(id) ?? []) {
        socket.emit(event, ...items);
        this.#log.add('event', { id, event, items });
        count += 1;
      }
    }
    return count;
  }

  /** Sends an event to everybody who is logged in. */
  sendToAll(event, ...items) {
    this.send(this.#connections.keys(), event, ...items);
  }

  /** Cuts the connections of one user, or all there are, as a broken network would: no farewell. Returns how many. */
  drop(id) {
    return this.#onLinks(id, cut);
  }

  /** Stops reading and writing on the connections, or goes on with it: heartbeats then stay away though the link stands. */
  stall(id) {
    return this.#onLinks(id, (link) => link.transport.socket?._socket.pause().cork());
  }

  unstall(id) {
    return this.#onLinks(id, (link) => link.transport.socket?._socket.resume().uncork());
  }

  /** Cuts everything and forgets who was here, without telling anybody. */
  reset() {
    this.#connections.clear();
    this.drop();
  }

  close() {
    this.#io.close();
  }

  #onLinks(id, act) {
    const links = id === undefined ? [...this.#links] : [...(this.#connections.get(id) ?? [])].map((socket) => socket.conn);
    links.forEach(act);
    return links.length;
  }

  /** A failed login leaves the connection open: the client decides what to do with it. */
  #join(socket) {
    const { auth } = socket.handshake.query;
    const answer = (result) => {
      socket.emit('login', result);
      this.#log.add('login', { auth, ...result });
    };
    try {
      const person = identify(this.#store, this.#app, auth);
      answer({ success: true, id: person.id });
      this.#open(socket, person);
    } catch (error) {
      if (!(error instanceof ServiceError)) throw error;
      answer({ success: false, error: error.toJSON() });
      socket.on('disconnect', () => this.#log.add('leave', {}));
    }
  }

  #open(socket, person) {
    const sockets = this.#connections.get(person.id) ?? new Set();
    sockets.add(socket);
    this.#connections.set(person.id, sockets);
    if (sockets.size === 1) this.#announce('online', person);
    socket.on('say', (payload) => this.#say(person, payload));
    socket.on('disconnect', () => this.#leave(socket, person));
  }

  #leave(socket, person) {
    const sockets = this.#connections.get(person.id);
    if (!sockets?.delete(socket)) return;
    this.#log.add('leave', { id: person.id });
    if (sockets.size > 0) return;
    this.#connections.delete(person.id);
    this.#announce('offline', person);
  }

  #announce(event, person) {
    this.send(person.friends?.keys() ?? [], event, person.id);
  }

  /** What cannot be delivered is dropped: the client asks for no answer. The log tells why. */
  #say(sender, payload) {
    const entry = this.#log.add('say', { id: sender.id, payload });
    try {
      const { message, conversation, readers } = address(this.#store, sender, payload);
      if (conversation) this.#store.remember(conversation, message);
      this.send(
        readers.filter((id) => id !== sender.id),
        'message',
        message,
      );
      this.send([sender.id], 'yourself', message);
    } catch (error) {
      if (!(error instanceof ServiceError)) throw error;
      entry.refused = error.toJSON();
    }
  }

  /** Notes what comes over the wire, below namespaces and events. */
  #watch(connection) {
    this.#links.add(connection);
    connection.on('close', () => this.#links.delete(connection));
    const { url, headers } = connection.request;
    const sid = connection.id;
    this.#log.add('open', { sid, url, headers });
    connection.on('data', (data) => this.#log.add('packet', { sid, data: excerpt(data) }));
    connection.on('close', (reason) => this.#log.add('close', { sid, reason }));
  }
}

/** Ends an Engine.IO connection below its protocol. */
function cut(connection) {
  const webSocket = connection.transport.socket; // polling has none
  if (webSocket) return webSocket.terminate();
  connection.transport.req?.socket.destroy();
  return connection.close(true);
}
