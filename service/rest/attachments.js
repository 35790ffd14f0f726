// /attachment and /files: uploads and downloads. They use the request itself, because bodies are
// streamed.

import express from 'express';
import { must } from '../errors.js';
import { paths } from '../interface.js';

/** POST /attachment answers [URL], and for a picture [URL, URL of its thumbnail]. */
export function uploads({ attachments }, { publicUrl }) {
  return express.Router().post(paths.attachment, async (request, response) => {
    const names = await attachments.receive(request);
    const origin = publicUrl ?? `${request.protocol}://${request.get('host')}`;
    response.json(names.map((name) => `${origin}/files/${name}`));
  });
}

/** GET /files/NAME, whole or in ranges. Not signed: whoever knows the name may read the file. */
export function files({ attachments }) {
  return express.Router().get(paths.file, async (request, response) => {
    const file = await attachments.find(request.params.name);
    must(file, 'unknownFile');
    // An uploaded page must not run scripts in this origin.
    const guards = { 'X-Content-Type-Options': 'nosniff',
      'Content-Security-Policy': "sandbox; default-src 'none'" };
    const headers = { 'Content-Type': file.type, ...guards };
    response.sendFile(file.name, { root: attachments.directory, headers });
  });
}
