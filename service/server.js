#!/usr/bin/env node
// The command line: options in, one line with the address out, a clean end on SIGTERM.

import { UsageError, readOptions, usage } from './options.js';

function fail(error, help = usage) {
  console.error(error instanceof UsageError ? `${error.message}\n${help}` : error.message);
  process.exit(2);
}

function read(argv) {
  try {
    const options = readOptions(argv);
    if (options.rest?.length > 0 && options.rest[0] !== 'admin') throw new UsageError(`unknown word: ${options.rest[0]}`);
    return options;
  } catch (error) {
    return fail(error);
  }
}

const options = read(process.argv.slice(2));
if (options.help) {
  console.log(usage);
  process.exit(0);
}

if (options.rest[0] === 'admin') {
  const { admin, usage: adminUsage } = await import('./admin.js');
  await admin(options.rest.slice(1), options).catch((error) => fail(error, adminUsage));
  process.exit(0);
}

const { failure, makeLogger } = await import('./monitoring.js'); // "admin", and whoever made a mistake, do without
const { startService } = await import('./service.js');
const service = await startService(options.service).catch((error) => fail(error));

let ending = false;
async function end() {
  if (ending) return;
  ending = true;
  process.stdin.destroy();
  await service.close();
  process.exit(0);
}
process.on('uncaughtException', (error) => {
  makeLogger('error').error(failure(error), 'crash'); // Node would print the message, and with it what users wrote
  process.exit(1);
});
process.on('SIGTERM', end);
process.on('SIGINT', end);
process.on('SIGHUP', service.reload);
if (options.exitWithParent) process.stdin.resume().on('end', end).on('error', end);

console.log(`listening on ${service.url}`);
