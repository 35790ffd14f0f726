#!/usr/bin/env node
// The command line: flags in, one line with the address out, a clean end on SIGTERM.

import { readFileSync } from 'node:fs';
import { parseArgs } from 'node:util';
import { lines } from './live.js';
import { startService } from './service.js';

const usage = `usage: node server.js [--socketio 2|3|4] [--host 127.0.0.1] [--port 0] [--tls CERT KEY] [--app ID] [--key KEY]
    [--nsp /chat] [--signature-age SECONDS] [--body-limit BYTES] [--attachment-limit BYTES]
    [--ping-interval MS] [--ping-timeout MS]
    [--transports websocket,polling] [--exit-with-parent]`;

const flags = {
  socketio: { type: 'string', default: '4' },
  host: { type: 'string', default: '127.0.0.1' },
  port: { type: 'string', default: '0' },
  tls: { type: 'string' }, // the certificate; its key follows as the only positional argument
  app: { type: 'string', default: 'demo-app' },
  key: { type: 'string', default: 'demo-key' },
  nsp: { type: 'string', default: '/chat' },
  'signature-age': { type: 'string', default: '600' },
  'body-limit': { type: 'string', default: '1048576' },
  'attachment-limit': { type: 'string', default: '4294967296' },
  'ping-interval': { type: 'string', default: '25000' },
  'ping-timeout': { type: 'string', default: '20000' },
  transports: { type: 'string', default: 'websocket,polling' },
  'exit-with-parent': { type: 'boolean', default: false },
  help: { type: 'boolean', short: 'h', default: false },
};

function fail(message) {
  console.error(`${message}\n${usage}`);
  process.exit(2);
}

function readFlags() {
  try {
    const { values, positionals } = parseArgs({ options: flags, allowPositionals: true });
    if (positionals.length !== (values.tls === undefined ? 0 : 1)) throw new Error('--tls takes a certificate and its key');
    if (!(values.socketio in lines)) throw new Error('--socketio is 2, 3 or 4');
    const number = (name) => {
      if (!/^[0-9]{1,15}$/.test(values[name])) throw new Error(`--${name} takes a number`);
      return Number(values[name]);
    };
    return {
      help: values.help,
      exitWithParent: values['exit-with-parent'],
      service: {
        host: values.host,
        port: number('port'),
        tls: values.tls && { cert: readFileSync(values.tls), key: readFileSync(positionals[0]) },
        app: { appId: values.app, clientKey: values.key },
        line: values.socketio,
        namespace: values.nsp,
        engine: {
          pingInterval: number('ping-interval'),
          pingTimeout: number('ping-timeout'),
          transports: values.transports.split(','),
        },
        maxSignatureAge: number('signature-age'),
        bodyLimit: number('body-limit'),
        attachmentLimit: number('attachment-limit'),
      },
    };
  } catch (error) {
    return fail(error.message);
  }
}

const options = readFlags();
if (options.help) {
  console.log(usage);
  process.exit(0);
}

const service = await startService(options.service).catch((error) => fail(error.message));

let ending = false;
function end() {
  if (ending) return;
  ending = true;
  service.close();
  setTimeout(() => process.exit(0), 1000).unref(); // a peer that will not go does not hold us
  process.stdin.destroy();
}
process.on('SIGTERM', end);
process.on('SIGINT', end);
if (options.exitWithParent) process.stdin.resume().on('end', end).on('error', end);

console.log(`listening on ${service.url}`);
