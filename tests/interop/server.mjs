// One of the official Socket.IO servers, as a peer for tests.
//
//   node server.mjs '{"version": "4.8", "tls": {"cert": PEM, "key": PEM}, "options": {…}}'
//
// Prints {"port": n} once it listens, then a JSON line for each thing that tests wait for. Each
// line of its standard input is a JSON command. It ends when its standard input closes.
import { createRequire } from "node:module";
import { createServer as createHttp } from "node:http";
import { createServer as createHttps } from "node:https";
import { createInterface } from "node:readline";

const require = createRequire(import.meta.url);
const config = JSON.parse(process.argv[2] ?? "{}");
const module = require(`socket.io-${config.version}`);
const isOld = config.version.startsWith("2.");

const say = (what) => process.stdout.write(JSON.stringify(what) + "\n");

const http = config.tls ? createHttps(config.tls) : createHttp();
const connections = new Set();
http.on("connection", (socket) => {
  connections.add(socket);
  socket.on("close", () => connections.delete(socket));
});
const options = config.options ?? {};
const io = isOld ? module(http, options) : new module.Server(http, options);

const counted = []; // over all connections

const serve = (nsp) => {
  if (config.deny) {
    nsp.use((socket, next) => {
      const error = new Error("denied");
      error.data = { code: 42 };
      next(error);
    });
  }
  nsp.on("connection", (socket) => {
    const { query, auth, headers } = socket.handshake;
    const { name: transport } = socket.conn.transport;
    const seen = { query, auth, cookie: headers.cookie, extra: headers["x-extra"], transport };
    if (config.verbose) say({ connected: nsp.name, ...seen });
    socket.emit("login", { success: true, id: query.auth ?? null });
    socket.on("say", (...args) => {
      const answer = typeof args[args.length - 1] === "function" ? args.pop() : null;
      if (answer) answer(...args);
      else socket.emit("message", ...args);
    });
    socket.on("silent", () => {}); // asked for an answer, it gives none
    socket.on("ask", () => {
      socket.emit("question", 7, (...reply) => socket.emit("message", "replied", ...reply));
    });
    socket.on("flood", (count, text) => {
      for (let i = 0; i < count; ++i) socket.emit("message", i, text);
    });
    socket.on("count", (n, answer) => {
      counted.push(n);
      socket.emit("message", n);
      answer(n);
    });
    socket.on("counted", (answer) => answer(counted));
    socket.on("kick", (closes) => socket.disconnect(closes));
    socket.on("transport", () => socket.emit("message", socket.conn.transport.name));
    socket.on("disconnect", (reason) => config.verbose && say({ disconnected: nsp.name, reason }));
  });
};
serve(io.of("/"));
serve(io.of("/chat"));

createInterface({ input: process.stdin })
  .on("line", (line) => {
    const command = JSON.parse(line);
    if (command.cut) {
      for (const socket of connections) socket.destroy();
      say({ cut: true });
    }
  })
  .on("close", () => process.exit(0));

http.listen(0, "127.0.0.1", () => say({ port: http.address().port }));
