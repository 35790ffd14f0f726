// For operators: a log of JSON lines on standard error, /health and /metrics.

import { setTimeout as sleep } from 'node:timers/promises';
import express from 'express';
import pino from 'pino';
import { Counter, Gauge, Histogram, Registry, collectDefaultMetrics } from 'prom-client';
import { isForwarded, isLoopback } from './address.js';
import { must } from './errors.js';
import { bears } from './secrets.js';

const pingMillis = 3_000; // health checks do not wait long either

/**
 * A logger for `level` and above. Each line is written before the call returns, so a crash loses
 * none.
 */
export const makeLogger = (level) =>
  pino({ level, base: undefined, timestamp: pino.stdTimeFunctions.isoTime,
    formatters: { level: (label) => ({ level: label }) } },
  pino.destination({ dest: 2, sync: true }));

/**
 * Where and how something failed, without the error's message: a database error contains the query
 * with all its values.
 */
export const failure = ({ name, code, stack = '' }) =>
  ({ error: name, code, at: stack.match(/^ +at .*$/gm)?.map((line) => line.trim()) });

export class Metrics {
  #registry = new Registry();

  /** `connections()` returns the number of live connections. */
  constructor({ connections }) {
    const registers = [this.#registry];
    const counter = (name, help, labelNames = []) =>
      new Counter({ name, help, labelNames, registers });
    collectDefaultMetrics({ register: this.#registry });
    new Gauge({ name: 'vexim_connections', help: 'Live connections', registers,
      collect: (function () { this.set(connections()); }) });
    this.logins = counter('vexim_logins_total', 'Logins by result', ['result']);
    this.messages = counter('vexim_messages_total', 'Messages by result', ['result']);
    this.refused = counter('vexim_rate_limited_total', 'What was turned away, by limit', ['limit']);
    this.requests = new Histogram({
      name: 'vexim_request_seconds',
      help: 'REST requests by method, route and status, with their duration',
      labelNames: ['method', 'route', 'status'],
      buckets: [0.005, 0.02, 0.1, 0.5, 2, 10, 60],
      registers,
    });
  }

  get type() {
    return this.#registry.contentType;
  }

  text = () => this.#registry.metrics();

  stop() {
    this.#registry.clear();
  }
}

/**
 * The pattern of the path, never the path itself, which contains ids or whatever a stranger asks
 * for.
 */
export function routeOf(request) {
  if (request.url.startsWith('/socket.io/')) return '/socket.io';
  return request.route?.path ?? 'none';
}

/** The paths /health and /metrics. `ping()` rejects when the database cannot be reached. */
export function monitoring({ gate, ping, metrics, metricsSecret }) {
  const router = express.Router();
  router.get('/health', async (request, response) => {
    let status = gate.isDraining ? 'draining' : 'ok';
    const late = sleep(pingMillis, undefined, { ref: false })
      .then(() => Promise.reject(new Error('no answer')));
    await Promise.race([ping(), late]).catch(() => (status = 'no database'));
    response.status(status === 'ok' ? 200 : 503).json({ status });
  });
  router.get('/metrics', async (request, response) => {
    const isLocal = isLoopback(request.socket.remoteAddress) && !isForwarded(request);
    must(metricsSecret === undefined ? isLocal : bears(request, metricsSecret), 'unknownPath');
    response.set('Content-Type', metrics.type).send(await metrics.text());
  });
  return router;
}
