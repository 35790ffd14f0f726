// The official JavaScript client, emitting: prints the CPU microseconds of each emit.
//   node emit.mjs PORT COUNT JSON
import { createRequire } from "node:module";
const require = createRequire(new URL("../../tests/interop/package.json", import.meta.url));
const { io } = require("socket.io-client");

const [port, count, text] = [process.argv[2], Number(process.argv[3]), process.argv[4]];
const message = JSON.parse(text);
const socket = io(`http://127.0.0.1:${port}/chat`, { transports: ["websocket"], reconnection: false });
socket.on("connect", async () => {
  const round = async (times) => {
    for (let done = 0; done < times; ) {
      for (let i = 0; i < 500 && done < times; ++i, ++done) socket.emit("say", message);
      while (socket.io.engine.transport.ws._socket?.writableLength > 0) await new Promise((resolve) => setImmediate(resolve));
      await new Promise((resolve) => setImmediate(resolve));
    }
  };
  await round(count / 4); // warm
  const before = process.cpuUsage();
  await round(count);
  const { user, system } = process.cpuUsage(before);
  console.log((user + system) / count);
  process.exit(0);
});
