// The live part: one namespace of a Socket.IO server. Only here do lines 2.x, 3.x and 4.x differ.
//   in:  the connect parameter "auth", the event "say"
//   out: "login", "message", "yourself", "sys", "online", "offline"

import { createRequire } from 'node:module';
import { setImmediate, setTimeout } from 'node:timers/promises';
import { Bus } from './bus.js';
import { ServiceError } from './errors.js';
import { lines } from './lines.js';
import { excerpt } from './log.js';
import { address } from './messages.js';
import { Presence } from './presence.js';

const require = createRequire(import.meta.url);

const retryMillis = 1_000;
const longestClose = 5_000;

export class Live {
  #links = new Set(); // all Engine.IO connections, logged in or not
  #known = new WeakSet(); // those that have logged in
  #connections = new Map(); // id of a user or passenger → its open sockets
  #turns = new Set(); // what connections are doing
  #store;
  #identify;
  #report;
  #log;
  #io;
  #presence;
  #bus; // none if there is only one node
  #isClosing = false;

  /**
   * `line` is 2, 3 or 4. `engine` has options that the Socket.IO server gets unchanged
   * ("pingInterval", "transports" …). `identify` comes from login.js. `report` has the functions
   * `login(request, {id, error})`, `message(result)`, `loss()` and `failure(error)`, which are
   * called for each, as well as `addressOf(request)` and `maySay(who)`, which says whether somebody
   * may send more.
   */
  constructor({ httpServer, store, identify, report, log, line, namespace, engine, database }) {
    this.#store = store;
    this.#identify = identify;
    this.#report = report;
    this.#log = log;
    this.#io = require(lines[line])(httpServer, { serveClient: false, ...engine });
    this.#io.engine.on('connection', (connection) => this.#watch(connection));
    this.#io.of(namespace).on('connection', (socket) => this.#join(socket));
    const onLost = () => {
      this.#report.loss();
      this.#handlers.drop(); // clients come back and read what they have missed in the history
    };
    this.#presence = new Presence({ db: store.db,
      announceEnd: (id, friends) => this.send(friends, 'offline', id), onLost });
    const { node } = this.#presence;
    if (database && line === '4')
      this.#bus = new Bus({ io: this.#io, namespace, db: store.db, url: database, node,
        handlers: this.#handlers, onLoss: onLost });
  }

  /** Await this before anybody connects. */
  async start() {
    await this.#bus?.start();
    await this.#presence.start({ alone: this.#bus === undefined });
  }

  /** How many connections this user has; 0 means offline. */
  sessions(id) {
    return this.#presence.sessions(id);
  }

  /**
   * Rejects if nobody can log in: the database does not answer, or nothing arrives from the other
   * nodes.
   */
  async ping() {
    await this.#store.ping();
    this.#mustHear();
  }

  /**
   * Sends an event to every connection of each of `ids`; those who are not connected miss it.
   * Resolves to the number of connections at this node.
   */
  async send(ids, event, ...items) {
    const sent = this.#deliver(ids, event, items);
    if (ids.length > 0) await this.#bus?.publish('send', [ids, event, items]);
    return sent;
  }

  /** Sends an event to everybody who has logged in. */
  async sendToAll(event, ...items) {
    this.#deliver([...this.#connections.keys()], event, items);
    await this.#bus?.publish('sendToAll', [event, items]);
  }

  /**
   * Cuts the connections of one user, or all, as a broken network would: without a goodbye.
   * Resolves to the number of connections at this node.
   */
  drop = (id) => this.#everywhere('drop', id);

  /**
   * Stops reading and writing on the connections, or starts again: meanwhile there are no
   * heartbeats although the connection is up.
   */
  stall = (id) => this.#everywhere('stall', id);
  unstall = (id) => this.#everywhere('unstall', id);

  /**
   * Cuts all connections and forgets who was here, without telling anybody. Resolves when
   * everything that had begun is done.
   */
  async reset() {
    await this.#bus?.ask('reset');
    await this.#forget();
    await this.#presence.clear();
  }

  /** The number of connections, logged in or not. */
  get connections() {
    return this.#links.size;
  }

  /**
   * Closes the connections for a shutdown: clients will reconnect. Resolves when everything that
   * they have sent is done.
   */
  async close() {
    this.#isClosing = true;
    this.#io.close();
    await this.#idle();
    // without a database, the other nodes notice that our heartbeat is missing
    await this.#presence.stop().catch(() => undefined);
    // a connection may hang
    await Promise.race([this.#bus?.close(), setTimeout(longestClose, undefined, { ref: false })]);
  }

  /** What nodes ask each other to do. */
  #handlers = {
    send: ([ids, event, items]) => this.#deliver(ids, event, items),
    sendToAll: ([event, items]) => this.#deliver([...this.#connections.keys()], event, items),
    drop: (id) => this.#onLinks(id ?? undefined, cut),
    stall: (id) =>
      this.#onLinks(id ?? undefined, (link) => link.transport.socket?._socket.pause().cork()),
    unstall: (id) =>
      this.#onLinks(id ?? undefined, (link) => link.transport.socket?._socket.resume().uncork()),
    reset: () => this.#forget(),
  };

  async #everywhere(kind, id) {
    const count = this.#handlers[kind](id);
    await this.#bus?.publish(kind, id ?? null);
    return count;
  }

  async #forget() {
    this.#connections.clear();
    this.#handlers.drop();
    await this.#idle();
  }

  get #hears() {
    return this.#bus?.hears ?? true;
  }

  #mustHear() {
    if (!this.#hears) throw new Error('This node does not hear the others.');
  }

  async #idle() {
    while (this.#turns.size > 0) await Promise.all(this.#turns);
  }

  #deliver(ids, event, items) {
    if (!this.#hears) return 0; // otherwise clients would not know that they have missed something
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

  #onLinks(id, act) {
    const links = id === undefined ? [...this.#links]
      : [...(this.#connections.get(id) ?? [])].map((socket) => socket.conn);
    links.forEach(act);
    return links.length;
  }

  /** Handles what a connection sends one by one, from its login to its end. */
  #join(socket) {
    let id; // who has logged in
    let hasFailed = false;
    const fail = (error) => {
      hasFailed = true;
      this.#report.failure(error);
      cut(socket.conn); // so that the client learns that something is lost
    };
    const queue = () => {
      let last = Promise.resolve();
      return (act) => {
        // so that others get their turn even if the database answers at once
        const turn = last.then(setImmediate).then(act).catch(fail);
        last = turn;
        this.#turns.add(turn);
        turn.then(() => this.#turns.delete(turn));
      };
    };
    // while one message is being stored, the next one can be checked
    const [ask, deliver] = [queue(), queue()];
    ask(async () => {
      id = await this.#login(socket);
    });
    const tell = (act) => deliver(() => (hasFailed ? undefined : act()));
    socket.on('say',
      (payload) => ask(() => id !== undefined && !hasFailed && this.#say(id, payload, tell)));
    socket.on('disconnect', () => ask(() => deliver(() => this.#leave(socket, id))));
  }

  /**
   * Resolves to the id of the user. After a failed login the connection stays open; the client
   * decides what to do with it.
   */
  async #login(socket) {
    const { auth } = socket.handshake.query;
    const answer = (result) => {
      socket.emit('login', result);
      this.#log.add('login', { auth, ...result });
    };
    let id;
    try {
      id = await this.#identify(auth, this.#report.addressOf(socket.request));
      this.#mustHear();
      this.#known.add(socket.conn);
      this.#connections.set(id, (this.#connections.get(id) ?? new Set()).add(socket));
      const isFirst = await this.#presence.enter(socket.id, id);
      this.#report.login(socket.request, { id });
      answer({ success: true, id });
      if (isFirst) await this.send(await this.#store.friends(id), 'online', id);
      return id;
    } catch (error) {
      if (!(error instanceof ServiceError)) {
        cut(socket.conn); // first, because the rest may wait for the database
        // it may be logged in already, with only the announcement lost
        if (id !== undefined) await this.#leave(socket, id);
        throw error;
      }
      this.#report.login(socket.request, { error });
      return answer({ success: false, error: error.toJSON() });
    }
  }

  async #leave(socket, id) {
    if (id === undefined) return this.#log.add('leave', {});
    const sockets = this.#connections.get(id);
    if (!sockets?.delete(socket)) return undefined;
    if (sockets.size === 0) this.#connections.delete(id);
    this.#log.add('leave', { id });
    return this.#whenItCan(() => this.#presence.leave(socket.id, id));
  }

  /** Repeats what must be done until the database answers. */
  async #whenItCan(act) {
    for (;;) {
      try {
        return await act();
      } catch (error) {
        // the other nodes will notice that our heartbeat is missing
        if (this.#isClosing) return undefined;
        this.#report.failure(error);
        await setTimeout(retryMillis);
      }
    }
  }

  /**
   * Drops what cannot be delivered, because the client expects no answer; the log says why. `tell`
   * runs things in turn.
   */
  async #say(id, payload, tell) {
    if (!(await this.#report.maySay(id))) throw new Error('This user says too much.');
    this.#mustHear();
    const entry = this.#log.add('say', { id, payload });
    try {
      const { message, conversation, readers } = await address(this.#store, id, payload);
      const kept = conversation ? this.#store.remember(conversation, message) : Promise.resolve();
      kept.catch(() => undefined); // `tell` gets the error
      tell(async () => {
        await kept;
        const others = readers.filter((reader) => reader !== id);
        await Promise.all([this.send(others, 'message', message),
          this.#bus?.publish('send', [[id], 'yourself', [message]])]);
        // last: if we are killed before it, the sender does not believe that the others got the
        // message
        this.#deliver([id], 'yourself', [message]);
        this.#report.message('delivered');
      });
    } catch (error) {
      if (!(error instanceof ServiceError)) throw error;
      this.#report.message('refused');
      entry.refused = error.toJSON();
    }
  }

  /** Logs the packets, below namespaces and events. */
  #watch(connection) {
    this.#links.add(connection);
    connection.on('close', () => this.#links.delete(connection));
    const { url, headers } = connection.request;
    const sid = connection.id;
    this.#log.add('open', { sid, url, headers });
    connection.on('data', async (data) => {
      this.#log.add('packet', { sid, data: excerpt(data) });
      if (!this.#known.has(connection) && !(await this.#report.maySay(`nobody ${sid}`)))
        cut(connection);
    });
    connection.on('close', (reason) => this.#log.add('close', { sid, reason }));
  }
}

/** Cuts the transport of an Engine.IO connection, without its closing packets. */
function cut(connection) {
  const webSocket = connection.transport.socket; // polling has none
  if (webSocket) return webSocket.terminate();
  connection.transport.req?.socket.destroy();
  return connection.close(true);
}
