// The official JavaScript client: prints the CPU microseconds of each message.
//   node client.mjs emit|receive URL COUNT JSON     with the authority's certificate in PEER_CA
import { createRequire } from "node:module";
const require = createRequire(new URL("../../tests/interop/package.json", import.meta.url));
const { io } = require("socket.io-client");

const [what, url, count, text] = [process.argv[2], process.argv[3], Number(process.argv[4]),
  process.argv[5]];
const warm = count / 4;
const socket = io(`${url}/chat`, {
  transports: ["websocket"],
  reconnection: false,
  ca: process.env.PEER_CA || undefined,
  query: what === "receive" ? { flood: warm + count } : { sink: 1 },
});

let before;
const report = () => {
  const { user, system } = process.cpuUsage(before);
  console.log((user + system) / count);
  process.exit(0);
};

const emit = async (times) => {
  const message = JSON.parse(text);
  for (let done = 0; done < times; ) {
    for (let i = 0; i < 500 && done < times; ++i, ++done) socket.emit("say", message);
    while (socket.io.engine.transport.ws._socket?.writableLength > 0)
      await new Promise((resolve) => setImmediate(resolve));
    await new Promise((resolve) => setImmediate(resolve));
  }
};

if (what === "receive") {
  let seen = 0;
  let sum = 0;
  socket.on("message", (message) => {
    sum += message.ts;
    if (++seen === warm) before = process.cpuUsage();
    if (seen === warm + count) report();
  });
} else {
  socket.on("connect", async () => {
    await emit(warm);
    before = process.cpuUsage();
    await emit(count);
    report();
  });
}
socket.on("connect_error", (error) => {
  console.error(error.message);
  process.exit(1);
});
