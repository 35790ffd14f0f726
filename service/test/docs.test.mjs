// Replays every example of docs/service.md, in order, against the service, and compares the answers with the documented ones.
// What differs from run to run (times, made-up ids, addresses) is compared by its form, and carried over into later requests.
// "node test/docs.test.mjs --record" writes the answers of such a run into the page instead.

import assert from 'node:assert/strict';
import { readFileSync, writeFileSync } from 'node:fs';
import { test } from 'node:test';
import { table } from '../errors.js';
import { resources } from '../rest/index.js';
import { sign } from '../signature.js';
import { auth, connect, start } from './support.mjs';

const page = new URL('../../docs/service.md', import.meta.url);
const picture = Buffer.from('iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mNk+M9QDwADhgGAWjR9awAAAABJRU5ErkJggg==', 'base64');
const examplePattern = /^```(http|live)\n([^]*?)\n```$/gm;
const varying = /\b[grp][0-9a-f]{16}\b|https?:\/\/[^/"]+\/files\/[0-9a-f]{32}|\b1[0-9]{12}\b/g; // an id, a file's address, a time

const form = (text) => text.replace(varying, (word) => (word.startsWith('http') ? 'URL' : /^[grp]/.test(word) ? 'ID' : 'TIME'));

/** JSON as the page shows it: on one line if that is bearable, else an entry a line. */
function print(value, indent = '') {
  if (typeof value !== 'object' || value === null) return JSON.stringify(value);
  const [open, close] = Array.isArray(value) ? '[]' : '{}';
  const entries = (inner) => Object.entries(value).map(([key, item]) => (open === '[' ? '' : `${JSON.stringify(key)}: `) + print(item, inner));
  const flat = open + entries('').join(', ') + close;
  if (indent.length + flat.length <= 120 && !flat.includes('\n')) return flat;
  const inner = `${indent}  `;
  return `${open}\n${inner}${entries(inner).join(`,\n${inner}`)}\n${indent}${close}`;
}

/** Runs examples against one service; each example comes back with the answers that it got. */
class Replay {
  #connections = new Map();
  #actual = new Map(); // documented word → the one that stands for it in this run

  constructor(service, line) {
    this.service = service;
    this.line = line;
  }

  run(kind, example) {
    return kind === 'http' ? this.#http(example) : this.#live(example);
  }

  close() {
    for (const connection of this.#connections.values()) connection.close();
  }

  async #http(example) {
    const [given, documented] = example.split('\n\n');
    const request = this.#current(given);
    const [, method, path, , body] = /^([A-Z]+) (\S+)(\n([^]*))?$/.exec(request);
    const headers = body?.startsWith('Range:') ? { Range: body.slice('Range: '.length) } : {};
    const response = await this.service.call(method, path, this.#body(body), headers);
    const type = response.headers.get('content-type');
    const answer = type.startsWith('application/json') ? print(response.body) : `(${response.headers.get('content-length')} bytes of ${type})`;
    return this.#learn(`${request}\n\n`, documented, `${response.status}\n${answer}`);
  }

  #body(text) {
    if (text === undefined || text.startsWith('Range:')) return undefined;
    const file = /^\(form field "(.*)": the file (\S+), (\S+)\)$/.exec(text);
    if (!file) return JSON.parse(text);
    const data = new FormData();
    data.append(file[1], new Blob([picture], { type: file[3] }), file[2]);
    return data;
  }

  /** Lines: NAME connects {credentials}, NAME disconnects, NAME > EVENT JSON, NAME < EVENT JSON; a JSON may go on in indented lines. */
  async #live(example) {
    const seen = [];
    for (const given of example.split(/\n(?=\S+ (?:connects|disconnects|[<>]))/)) {
      const step = this.#current(given);
      const [, name, action, event, json] = /^(\S+) (connects|disconnects|[<>]) ?([a-z]*) ?([^]*)$/.exec(step);
      const value = json === '' ? undefined : JSON.parse(json);
      const connection = this.#connections.get(name);
      if (action === 'connects') this.#connections.set(name, connect(this.service, this.line, auth(value)));
      if (action === 'disconnects') connection.close();
      if (action === '>') connection.socket.emit(event, value);
      seen.push(action === '<' ? this.#learn(`${name} < ${event} `, json, print(await connection.next(event))) : step);
    }
    return seen.join('\n');
  }

  #current = (text) => text.replace(varying, (word) => this.#actual.get(word) ?? word);

  #learn(prefix, documented = '', actual) {
    const words = actual.match(varying) ?? [];
    (documented.match(varying) ?? []).forEach((word, place) => words[place] && this.#actual.set(word, words[place]));
    return prefix + actual;
  }
}

async function replayPage(line, compare) {
  const service = await start('--socketio', line);
  const replay = new Replay(service, line);
  let text = '';
  let end = 0;
  const source = readFileSync(page, 'utf8');
  try {
    for (const match of source.matchAll(examplePattern)) {
      const answered = await replay.run(match[1], match[2]);
      compare?.(answered, match[2]);
      text += `${source.slice(end, match.index)}\`\`\`${match[1]}\n${answered}\n\`\`\``;
      end = match.index + match[0].length;
    }
  } finally {
    replay.close();
    await service.stop();
  }
  return text + source.slice(end);
}

if (process.argv.includes('--record')) {
  writeFileSync(page, await replayPage('4'));
} else {
  for (const line of ['2', '3', '4']) {
    test(`every example happens as documented, over socket.io ${line}.x`, { timeout: 60_000 }, () =>
      replayPage(line, (answered, documented) => assert.equal(form(answered), form(documented))));
  }

  test('every path is documented with every method', () => {
    const requests = [...readFileSync(page, 'utf8').matchAll(/^```http\n([A-Z]+) ([^\s?]+)/gm)].map(([, method, path]) => [method, path]);
    const paths = resources.flatMap((resource) => Object.entries(resource({ store: {}, views: {} })));
    for (const [path, methods] of [...paths, ['/attachment', { post: 0 }], ['/files/:name', { get: 0 }]]) {
      const pattern = new RegExp(`^(https?://[^/]+)?${path.replace(/:[a-z]+/g, '[^/]+')}$`);
      for (const method of Object.keys(methods)) {
        assert.ok(requests.some(([verb, target]) => verb === method.toUpperCase() && pattern.test(target)), `${method} ${path}`);
      }
    }
  });

  test('the documented signature is one, and the table of errors is whole', () => {
    const text = readFileSync(page, 'utf8');
    assert.ok(text.includes(sign('demo-key', 1700000000)));
    for (const [code, status, meaning] of Object.values(table)) assert.ok(text.includes(`| ${code} | ${status} | ${meaning} |`), meaning);
  });
}
