import assert from 'node:assert/strict';
import { randomBytes } from 'node:crypto';
import { mkdtempSync, readdirSync, rmSync } from 'node:fs';
import { request } from 'node:http';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { after, before, describe, test } from 'node:test';
import { deflateSync } from 'node:zlib';
import { sign } from '../signature.js';
import { start } from './support.mjs';

const limit = 200_000;

describe('attachments', { timeout: 60_000 }, () => {
  let service;
  const temporary = mkdtempSync(join(tmpdir(), 'files-test-'));
  before(async () => {
    process.env.TMPDIR = temporary; // where the service makes its directory
    service = await start('--attachment-limit', String(limit));
  });
  after(async () => {
    await service.stop();
    const left = readdirSync(temporary);
    rmSync(temporary, { recursive: true });
    assert.deepEqual(left, [], 'the service leaves no directory behind');
  });
  const kept = () => readdirSync(join(temporary, readdirSync(temporary)[0]));
  const upload = (bytes, name, type, field = 'attachment') => {
    const form = new FormData();
    form.append('note', 'a field before the file');
    form.append(field, new Blob([bytes], { type }), name);
    return service.call('POST', '/attachment', form);
  };
  const download = async (url, headers = {}) => {
    const response = await fetch(url, { headers });
    const bytes = Buffer.from(await response.arrayBuffer());
    return { status: response.status, type: response.headers.get('content-type'), bytes };
  };

  test('a file comes back byte for byte, whole and in ranges', async () => {
    for (const size of [0, 1, 65_536, limit]) {
      const bytes = randomBytes(size);
      const { status, body } = await upload(bytes, 'clip.MP3', 'audio/mpeg');
      assert.equal(status, 200);
      assert.match(body[0], /\/files\/[0-9a-f]{32}\.mp3$/);
      assert.deepEqual(await download(body[0]), { status: 200, type: 'audio/mpeg', bytes });
      if (size > 1000) {
        const part = { status: 206, type: 'audio/mpeg', bytes: bytes.subarray(1000) };
        assert.deepEqual(await download(body[0], { Range: 'bytes=1000-' }), part);
        assert.equal((await download(body[0], { Range: `bytes=${size}-` })).status, 416);
      }
    }
  });

  test('a picture gets a small one beside it, unless it cannot be read', async () => {
    const cases = [
      ['a large one', png(800, 400), [256, 128]],
      ['a small one stays as it is', png(10, 20), [10, 20]],
      ['not a picture', Buffer.from('not a picture')],
      ['one that promises more than there is', png(40_000, 40_000, 10)],
      ['one that would run a program', Buffer.from(
        'push graphic-context\nimage over 0,0 0,0 "|id"\npop graphic-context')],
    ];
    const uploads = cases.map(([, bytes]) => upload(bytes, 'a.png', 'image/png'));
    const answers = await Promise.all(uploads);
    for (const [i, [why, , size]] of cases.entries()) {
      const { status, body } = answers[i];
      assert.deepEqual([status, body.length], [200, size ? 2 : 1], why);
      if (!size) continue;
      const { bytes } = await download(body[1]);
      assert.deepEqual([bytes.readUInt32BE(16), bytes.readUInt32BE(20)], size, why);
    }
    assert.deepEqual(kept().filter((name) => name.includes('.part')), []);
  });

  test('what is refused leaves no file', async () => {
    const files = kept();
    const post = (...sent) => service.call('POST', '/attachment', ...sent);
    const nine = Buffer.alloc(9);
    const cases = [
      ['one byte too many', () => upload(Buffer.alloc(limit + 1), 'a', 'a/b'), 413, 1003],
      ['far too many', () => upload(Buffer.alloc(limit * 20), 'a', 'a/b'), 413, 1003],
      ['another field', () => upload(nine, 'a', 'a/b', 'file'), 400, 1002],
      ['a name that no header may have', () => upload(nine, 'a\0.png', 'a/b'), 400, 1001],
      ['no form', () => post({ a: 1 }), 400, 1001],
      ['a form that ends early', () => post(cutForm, formType), 400, 1001],
    ];
    for (const [why, send, status, code] of cases) {
      const { status: got, body } = await send();
      assert.deepEqual([got, body.errorCode], [status, code], why);
    }
    assert.deepEqual(kept(), files);
  });

  test('an upload that breaks off leaves no file', async () => {
    const files = kept();
    const signed = { 'X-VX-AppId': 'demo-app', 'X-VX-Request-Sign': sign('demo-key') };
    const headers = { ...signed, ...formType, 'Content-Length': 100_000 };
    const upload = request(`${service.url}/attachment`, { method: 'POST', headers });
    upload.on('error', () => {});
    upload.write(cutForm);
    while (kept().length === files.length) await new Promise(setImmediate);
    upload.destroy();
    while (kept().length > files.length) await new Promise(setImmediate);
    assert.deepEqual(kept(), files);
  });

  test('a name that was never given, or that leaves the folder, finds nothing', async () => {
    for (const name of ['0.png', '..%2f..%2fetc%2fpasswd'])
      assert.equal((await download(`${service.url}/files/${name}`)).status, 404, name);
  });
});

const formType = { 'Content-Type': 'multipart/form-data; boundary=b' };
const disposition = 'Content-Disposition: form-data; name="attachment"; filename="a"';
const cutForm = `--b\r\n${disposition}\r\nContent-Type: a/b\r\n\r\nhalf a fi`;

/** A grey picture (RFC 2083) with only the first `rows` rows. */
function png(width, height, rows = height) {
  const number = (value) => Buffer.from([24, 16, 8, 0].map((shift) => value >>> shift));
  const shift = (sum) => (sum >>> 1) ^ (sum & 1 ? 0xedb88320 : 0);
  const shifted = (sum) => [...Array(8)].reduce(shift, sum);
  const chunk = (type, data) => {
    const content = Buffer.concat([Buffer.from(type), data]);
    const crc = ~content.reduce((sum, byte) => shifted(sum ^ byte), -1);
    return Buffer.concat([number(data.length), content, number(crc)]);
  };
  const header = Buffer.concat([number(width), number(height), Buffer.from([8, 0, 0, 0, 0])]);
  const data = deflateSync(Buffer.alloc(rows * (width + 1)));
  const begin = Buffer.from('89504e470d0a1a0a', 'hex');
  const end = chunk('IEND', Buffer.alloc(0));
  return Buffer.concat([begin, chunk('IHDR', header), chunk('IDAT', data), end]);
}
