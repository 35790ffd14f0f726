// Uploaded files, streamed from the form into a folder. A file gets its name only once all of it is
// on disk, so every file with a name is complete. Nodes that share a database share this folder,
// too.

import busboy from 'busboy';
import { execFile } from 'node:child_process';
import { randomBytes } from 'node:crypto';
import { once } from 'node:events';
import { createWriteStream, mkdirSync, mkdtempSync, readdirSync, rmSync } from 'node:fs';
import { open, rename, rm, stat } from 'node:fs/promises';
import { tmpdir } from 'node:os';
import { extname, join } from 'node:path';
import { pipeline } from 'node:stream/promises';
import { promisify } from 'node:util';
import { ServiceError, must } from './errors.js';
import { sentences } from './interface.js';

const formOverhead = 65_536; // boundaries, part headers and small fields around the file
const thumbnailEdge = 256; // pixels
const thumbnailLimits = ['--cpu=5', `--as=${2 ** 30}`]; // seconds, bytes
// Only formats whose decoders can be trusted with files from strangers.
const thumbnailRun = { timeout: 60_000, killSignal: 'SIGKILL',
  env: { ...process.env, VIPS_BLOCK_UNTRUSTED: '1', VIPS_CONCURRENCY: '1' } };
const runFile = promisify(execFile);

export class Attachments {
  #store;
  #directory;
  #isTemporary;
  #limit;
  #shrinking = Promise.resolve();

  /**
   * `limit` is the size of the largest file that is accepted, in bytes. Without a `data` folder the
   * files are deleted when the service ends.
   */
  constructor({ store, data, limit }) {
    this.#store = store;
    this.#limit = limit;
    this.#isTemporary = data === undefined;
    this.#directory = data === undefined ? mkdtempSync(join(tmpdir(), 'vexim-service-'))
      : join(data, 'attachments');
    mkdirSync(this.#directory, { recursive: true, mode: 0o700 });
  }

  get directory() {
    return this.#directory;
  }

  /** Resolves to the file `name` as {"name", "type", "size"}, or to nothing if there is none. */
  find = (name) => this.#store.file(name);

  /**
   * Stores the file in the field "attachment" of a multipart request and, for a picture, a
   * thumbnail. Resolves to their names.
   */
  async receive(request) {
    must(!(request.headers['content-length'] > this.#limit + formOverhead), 'tooLarge');
    const file = await this.#save(request);
    const thumbnail = file.type.startsWith('image/') && (await this.#shrink(file));
    return thumbnail ? [file.name, thumbnail.name] : [file.name];
  }

  /** Removes all files, but not their records in the store. */
  clear() {
    for (const name of readdirSync(this.#directory))
      rmSync(join(this.#directory, name), { force: true });
  }

  close() {
    if (this.#isTemporary) rmSync(this.#directory, { recursive: true, force: true });
  }

  /** Ends as soon as the result is clear, even before the whole body has arrived. */
  async #save(request) {
    const form = openForm(request.headers, this.#limit);
    let saved;
    let fault; // the error of the form, if it is malformed
    const broken = new Promise((resolve, reject) => {
      form.on('file', (field, content, info) => {
        if (field !== 'attachment' || saved) return content.resume();
        if (request.logEntry)
          request.logEntry.file = { field, name: info.filename, type: info.mimeType };
        saved = this.#write(content, info);
        saved.catch(reject);
      });
      form.on('error', (error) => reject((fault = error)));
    });
    request.once('close',
      () => request.complete || form.destroy(new Error('The sender has gone.')));
    request.pipe(form);
    try {
      await Promise.race([once(form, 'close'), broken]);
      must(saved, 'invalidValue', sentences.noFile);
      return await saved;
    } catch (error) {
      request.unpipe(form);
      // otherwise the connection is reset while the client still sends, and the answer is lost
      request.resume();
      // remove the rest of it before the answer is sent
      const file = await saved?.catch(() => undefined);
      if (file) await this.#remove(file.name);
      throw fault ?? form.errored ? new ServiceError('malformedBody', sentences.brokenForm) : error;
    }
  }

  async #write(content, { filename = '', mimeType }) {
    const name = randomBytes(16).toString('hex') + safeExtension(filename);
    const path = join(this.#directory, `${name}.part`);
    const target = createWriteStream(path, { flags: 'wx' });
    try {
      await pipeline(content, target);
      must(target.bytesWritten <= this.#limit, 'tooLarge'); // the parser stops at one byte more
      return await this.#keep(name, mimeType, target.bytesWritten);
    } catch (error) {
      // it may still be about to create the file
      if (!target.closed) await new Promise((resolve) => target.once('close', resolve));
      await rm(path, { force: true });
      throw error;
    }
  }

  /**
   * A PNG that fits into a small square, or nothing if the picture cannot be read. A separate
   * program reads the file, because it comes from a stranger: one picture at a time, with limited
   * time and memory.
   */
  #shrink(file) {
    const shrunk = this.#shrinking.then(async () => {
      const name = randomBytes(16).toString('hex');
      const [from, made, path] =
        [file.name, `${name}.part.png`, `${name}.png`].map((one) => join(this.#directory, one));
      try {
        await runFile('prlimit', [...thumbnailLimits, '--', 'vipsthumbnail',
          `--size=${thumbnailEdge}x${thumbnailEdge}>`, `--output=${made}`, from], thumbnailRun);
        await rename(made, `${path}.part`);
        return await this.#keep(`${name}.png`, 'image/png', (await stat(`${path}.part`)).size);
      } catch {
        for (const left of [made, `${path}.part`]) await rm(left, { force: true });
        return undefined;
      }
    });
    this.#shrinking = shrunk;
    return shrunk;
  }

  async #remove(name) {
    await this.#store.removeFile(name);
    await rm(join(this.#directory, name), { force: true });
  }

  /**
   * Renames the finished `name`.part to `name` once its content is on disk, and records it in the
   * store once the name is on disk, too.
   */
  async #keep(name, type, size) {
    const path = join(this.#directory, name);
    await flush(`${path}.part`);
    await rename(`${path}.part`, path);
    await flush(this.#directory);
    return this.#store.addFile({ name, type, size });
  }
}

async function flush(path) {
  const handle = await open(path);
  try {
    await handle.sync();
  } finally {
    await handle.close();
  }
}

function openForm(headers, fileSize) {
  try {
    return busboy({ headers, limits: { fileSize: fileSize + 1, files: 4, fields: 16, parts: 20 } });
  } catch {
    throw new ServiceError('malformedBody', sentences.notMultipart);
  }
}

const safeExtension = (filename) =>
  /^\.[a-z0-9]{1,10}$/.exec(extname(filename).toLowerCase())?.[0] ?? '';
