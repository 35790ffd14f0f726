// Records as rows of a database.

import { digest } from './passwords.js';

const asJson = ['attributes', 'fields', 'name', 'identity']; // columns
const batchSize = 200; // of rows

export const term = (...parts) => digest(JSON.stringify(parts));

export const chunks = (items) =>
  Array.from({ length: Math.ceil(items.length / batchSize) },
    (_, i) => items.slice(i * batchSize, (i + 1) * batchSize));

export const toRow = (record) =>
  Object.fromEntries(Object.entries(record).map(([key, value]) =>
    [key, asJson.includes(key) && value !== undefined ? JSON.stringify(value) : value]));

export const fromRow = (row) =>
  Object.fromEntries(Object.entries(row).map(([key, value]) =>
    [key, asJson.includes(key) && value !== null ? JSON.parse(value) : value]));
