// The live part: one namespace of a Socket.IO server. Here, and nowhere else, the lines 2.x, 3.x and 4.x differ.
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
  #links = new Set(); // every Engine.IO connection, logged in or not
  #known = new WeakSet(); // those who logged in
  #connections = new Map(); // id of a user or passenger → its open sockets
  #turns = new Set(); // what connections have begun to do
  #store;
  #identify;
  #report;
  #log;
  #io;
  #presence;
  #bus; // none where there is one node only
  #isClosing = false;

  /**
   * `line` is 2, 3 or 4; `engine` goes to the Socket.IO server as it is ("pingInterval", "transports" …). `identify` is login.js's;
   * `report` hears of each `login(request, {id, error})`, `message(result)`, `loss()` and `failure(error)`, and knows `addressOf(request)` and whether somebody `maySay(who)` more.
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
      this.#handlers.drop(); // clients come back, and read in the history what they have missed
    };
    this.#presence = new Presence({ db: store.db, announceEnd: (id, friends) => this.send(friends, 'offline', id), onLost });
    const { node } = this.#presence;
    if (database && line === '4') this.#bus = new Bus({ io: this.#io, namespace, db: store.db, url: database, node, handlers: this.#handlers, onLoss: onLost });
  }

  /** Must have resolved before anybody connects. */
  async start() {
    await this.#bus?.start();
    await this.#presence.start({ alone: this.#bus === undefined });
  }

  /** How many connections this user has; 0 is offline. */
  sessions(id) {
    return this.#presence.sessions(id);
  }

  /** Rejects when nobody can come in: the database does not answer, or nothing that other nodes send arrives here. */
  async ping() {
    await this.#store.ping();
    this.#mustHear();
  }

  /** Sends an event to every connection of each of `ids`; who is not connected misses it. Resolves to how many are at this node. */
  async send(ids, event, ...items) {
    const sent = this.#deliver(ids, event, items);
    if (ids.length > 0) await this.#bus?.publish('send', [ids, event, items]);
    return sent;
  }

  /** Sends an event to everybody who is logged in. */
  async sendToAll(event, ...items) {
    this.#deliver([...this.#connections.keys()], event, items);
    await this.#bus?.publish('sendToAll', [event, items]);
  }

  /** Cuts the connections of one user, or all there are, as a broken network would: no farewell. Resolves to how many are at this node. */
  drop = (id) => this.#everywhere('drop', id);

  /** Stops reading and writing on the connections, or goes on with it: heartbeats then stay away though the link stands. */
  stall = (id) => this.#everywhere('stall', id);
  unstall = (id) => this.#everywhere('unstall', id);

  /** Cuts everything and forgets who was here, without telling anybody; what was under way has then been done. */
  async reset() {
    await this.#bus?.ask('reset');
    await this.#forget();
    await this.#presence.clear();
  }

  /** How many connections there are, logged in or not. */
  get connections() {
    return this.#links.size;
  }

  /** Closes the connections, as going away does: clients come again. Resolves when all that they brought is done. */
  async close() {
    this.#isClosing = true;
    this.#io.close();
    await this.#idle();
    await this.#presence.stop().catch(() => undefined); // without a database, other nodes miss our beat
    await Promise.race([this.#bus?.close(), setTimeout(longestClose, undefined, { ref: false })]); // a connection may hang
  }

  /** What nodes ask of each other. */
  #handlers = {
    send: ([ids, event, items]) => this.#deliver(ids, event, items),
    sendToAll: ([event, items]) => this.#deliver([...this.#connections.keys()], event, items),
    drop: (id) => this.#onLinks(id ?? undefined, cut),
    stall: (id) => this.#onLinks(id ?? undefined, (link) => link.transport.socket?._socket.pause().cork()),
    unstall: (id) => this.#onLinks(id ?? undefined, (link) => link.transport.socket?._socket.resume().uncork()),
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
    if (!this.#hears) return 0; // or they would take what they miss for older than what they know
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
        cut(socket.conn); // before the rest, which may wait for the database
        if (id !== undefined) await this.#leave(socket, id); // it may have come in, and only the news of it be lost
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

  /** Does what must be done, also when the database is away for a while. */
  async #whenItCan(act) {
    for (;;) {
      try {
        return await act();
      } catch (error) {
        if (this.#isClosing) return undefined; // the other nodes will miss our beat
        this.#report.failure(error);
        await setTimeout(retryMillis);
      }
    }
  }

  /** What cannot be delivered is dropped: the client asks for no answer. The log tells why. `tell` takes turns. */
  async #say(id, payload, tell) {
    if (!(await this.#report.maySay(id))) throw new Error('This user says too much.');
    this.#mustHear();
    const entry = this.#log.add('say', { id, payload });
    try {
      const { message, conversation, readers } = await address(this.#store, id, payload);
      const kept = conversation ? this.#store.remember(conversation, message) : Promise.resolve();
      kept.catch(() => undefined); // `tell` hears of it
      tell(async () => {
        await kept;
        const others = readers.filter((reader) => reader !== id);
        await Promise.all([this.send(others, 'message', message), this.#bus?.publish('send', [[id], 'yourself', [message]])]);
        this.#deliver([id], 'yourself', [message]); // last: were we killed before, nobody else would miss what the sender takes for sent
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
    connection.on('data', async (data) => {
      this.#log.add('packet', { sid, data: excerpt(data) });
      if (!this.#known.has(connection) && !(await this.#report.maySay(`nobody ${sid}`))) cut(connection);
    });
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
