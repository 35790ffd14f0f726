// The live part: one namespace of a Socket.IO server. Here, and nowhere else, the lines 2.x, 3.x and 4.x differ.
//   in:  the connect parameter "auth", the event "say"
//   out: "login", "message", "yourself", "sys", "online", "offline"

import { createRequire } from 'node:module';
import { setImmediate } from 'node:timers/promises';
import { ServiceError } from './errors.js';
import { excerpt } from './log.js';
import { address } from './messages.js';

const require = createRequire(import.meta.url);
export const lines = { 2: 'socket.io-2', 3: 'socket.io-3', 4: 'socket.io-4' };

export class Live {
  #links = new Set(); // every Engine.IO connection, logged in or not
  #connections = new Map(); // id of a user or passenger → its open sockets
  #turns = new Set(); // what connections have begun to do
  #store;
  #identify;
  #report;
  #log;
  #io;

  /**
   * `line` is 2, 3 or 4; `engine` goes to the Socket.IO server as it is ("pingInterval", "transports" …). `identify` is login.js's;
   * `report` hears of each `login(request, {id, error})`, `message(result)` and `failure(error)`, and knows `addressOf(request)`.
   */
  constructor({ httpServer, store, identify, report, log, line, namespace, engine }) {
    this.#store = store;
    this.#identify = identify;
    this.#report = report;
    this.#log = log;
    this.#io = require(lines[line])(httpServer, { serveClient: false, ...engine });
    this.#io.engine.on('connection', (connection) => this.#watch(connection));
    this.#io.of(namespace).on('connection', (socket) => this.#join(socket));
  }

  /** How many connections this user has; 0 is offline. */
  async sessions(id) {
    return this.#connections.get(id)?.size ?? 0;
  }

  /** Sends an event to every connection of each of `ids` and returns how many those are; who is not connected misses it. */
  async send(ids, event, ...items) {
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
  async sendToAll(event, ...items) {
    await this.send(this.#connections.keys(), event, ...items);
  }

  /** Cuts the connections of one user, or all there are, as a broken network would: no farewell. Returns how many. */
  async drop(id) {
    return this.#onLinks(id, cut);
  }

  /** Stops reading and writing on the connections, or goes on with it: heartbeats then stay away though the link stands. */
  async stall(id) {
    return this.#onLinks(id, (link) => link.transport.socket?._socket.pause().cork());
  }

  async unstall(id) {
    return this.#onLinks(id, (link) => link.transport.socket?._socket.resume().uncork());
  }

  /** Cuts everything and forgets who was here, without telling anybody; what was under way has then been done. */
  async reset() {
    this.#connections.clear();
    await this.drop();
    while (this.#turns.size > 0) await Promise.all(this.#turns);
  }

  /** How many connections there are, logged in or not. */
  get connections() {
    return this.#links.size;
  }

  /** Closes the connections, as going away does: clients come again. Resolves when all that they brought is done. */
  async close() {
    this.#io.close();
    while (this.#turns.size > 0) await Promise.all(this.#turns);
  }

  #onLinks(id, act) {
    const links = id === undefined ? [...this.#links] : [...(this.#connections.get(id) ?? [])].map((socket) => socket.conn);
    links.forEach(act);
    return links.length;
  }

  /** What a connection brings is done one after the other, from its login to its end. */
  #join(socket) {
    let id; // of who has logged in
    let hasFailed = false;
    const fail = (error) => {
      hasFailed = true;
      this.#report.failure(error);
      cut(socket.conn); // so that the client learns that something is lost
    };
    const queue = () => {
      let last = Promise.resolve();
      return (act) => {
        const turn = last.then(setImmediate).then(act).catch(fail); // others come in between, even when the database answers at once
        last = turn;
        this.#turns.add(turn);
        turn.then(() => this.#turns.delete(turn));
      };
    };
    const [ask, deliver] = [queue(), queue()]; // while one message is being kept, the next may already be looked at
    ask(async () => {
      id = await this.#login(socket);
    });
    const tell = (act) => deliver(() => (hasFailed ? undefined : act()));
    socket.on('say', (payload) => ask(() => id !== undefined && !hasFailed && this.#say(id, payload, tell)));
    socket.on('disconnect', () => ask(() => deliver(() => this.#leave(socket, id))));
  }

  /** Resolves to the id of who it is. A failed login leaves the connection open: the client decides what to do with it. */
  async #login(socket) {
    const { auth } = socket.handshake.query;
    const answer = (result) => {
      socket.emit('login', result);
      this.#log.add('login', { auth, ...result });
    };
    try {
      const id = await this.#identify(auth, this.#report.addressOf(socket.request));
      this.#report.login(socket.request, { id });
      const sockets = this.#connections.get(id) ?? new Set();
      this.#connections.set(id, sockets.add(socket));
      answer({ success: true, id });
      if (sockets.size === 1) await this.#announce('online', id);
      return id;
    } catch (error) {
      if (!(error instanceof ServiceError)) throw error;
      this.#report.login(socket.request, { error });
      return answer({ success: false, error: error.toJSON() });
    }
  }

  async #leave(socket, id) {
    if (id === undefined) return this.#log.add('leave', {});
    const sockets = this.#connections.get(id);
    if (!sockets?.delete(socket)) return undefined;
    this.#log.add('leave', { id });
    if (sockets.size > 0) return undefined;
    this.#connections.delete(id);
    return this.#announce('offline', id);
  }

  async #announce(event, id) {
    await this.send(await this.#store.friends(id), event, id);
  }

  /** What cannot be delivered is dropped: the client asks for no answer. The log tells why. `tell` takes turns. */
  async #say(id, payload, tell) {
    const entry = this.#log.add('say', { id, payload });
    try {
      const { message, conversation, readers } = await address(this.#store, id, payload);
      const kept = conversation ? this.#store.remember(conversation, message) : Promise.resolve();
      kept.catch(() => undefined); // `tell` hears of it
      tell(async () => {
        await kept;
        const others = readers.filter((reader) => reader !== id);
        await this.send(others, 'message', message);
        await this.send([id], 'yourself', message);
        this.#report.message('delivered');
      });
    } catch (error) {
      if (!(error instanceof ServiceError)) throw error;
      this.#report.message('refused');
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
