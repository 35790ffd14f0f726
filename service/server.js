#!/usr/bin/env node
// The command line: reads the options, prints one line with the address, and shuts down cleanly on
// SIGTERM.

import { UsageError, readOptions, usage } from './options.js';

function fail(error, help = usage) {
  console.error(error instanceof UsageError ? `${error.message}\n${help}` : error.message);
  process.exit(2);
}

function read(argv) {
  try {
    const options = readOptions(argv);
    if (options.rest?.length > 0 && options.rest[0] !== 'admin')
      throw new UsageError(`unknown word: ${options.rest[0]}`);
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

// loaded late: "admin" and wrong options do not need it
const { failure, makeLogger } = await import('./monitoring.js');
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
  // Node would print the message, which may contain users' texts
  makeLogger('error').error(failure(error), 'crash');
  process.exit(1);
});
process.on('SIGTERM', end);
process.on('SIGINT', end);
process.on('SIGHUP', service.reload);
if (options.exitWithParent) process.stdin.resume().on('end', end).on('error', end);

console.log(`listening on ${service.url}`);
