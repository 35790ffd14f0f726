// The errors of the service. Names, codes, HTTP statuses and default texts stand in interface.json.
// A failed login has the same codes in its "login" event.

import { errors } from './interface.js';

/** An error that is sent to the client. */
export class ServiceError extends Error {
  constructor(name, detail) {
    const { code, status, text } = errors[name];
    super(detail ?? text);
    this.name = name;
    this.code = code;
    this.status = status;
  }

  /** Its JSON form. */
  toJSON() {
    return { errorCode: this.code, errorMessage: this.message };
  }
}

/** Throws the error called `name` unless `condition` holds. */
export function must(condition, name, detail) {
  if (!condition) throw new ServiceError(name, detail);
}
