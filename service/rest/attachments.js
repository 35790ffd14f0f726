// /attachment and /files: uploads and what they left. They speak to the request itself, because bodies are streamed.

import express from 'express';
import { must } from '../errors.js';

/** POST /attachment answers [URL], and for a picture [URL, URL of its thumbnail]. */
export function uploads({ attachments }) {
  return express.Router().post('/attachment', async (request, response) => {
    const names = await attachments.receive(request);
    response.json(names.map((name) => `${request.protocol}://${request.get('host')}/files/${name}`));
  });
}

/** GET /files/NAME, whole or in ranges. Not signed: who knows the name may read. */
export function files({ attachments }) {
  return express.Router().get('/files/:name', async (request, response) => {
    const file = await attachments.find(request.params.name);
    must(file, 'unknownFile');
    const headers = { 'Content-Type': file.type, 'X-Content-Type-Options': 'nosniff' };
    response.sendFile(file.name, { root: attachments.directory, headers });
  });
}
