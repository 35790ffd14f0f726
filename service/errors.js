// Every error that the service answers: its name, its "errorCode", the HTTP status over REST and the default text.
// A failed login carries the same codes in its "login" event.

export const table = {
  malformedBody: [1001, 400, 'The body is not a JSON object or array.'],
  invalidValue: [1002, 400, 'A value is missing or has the wrong type.'],
  tooLarge: [1003, 413, 'The body is too large.'],
  unknownPath: [1004, 404, 'There is no such path.'],
  unknownMethod: [1005, 405, 'This path does not allow that method.'],
  limitReached: [1006, 403, 'The service keeps no more of these.'],
  tooMany: [1007, 429, 'Too many attempts. Try again in ten minutes.'],
  unsigned: [1101, 401, 'The request is not signed.'],
  badSignature: [1102, 401, 'The signature does not match.'],
  oldSignature: [1103, 401, 'The signature is too old or its time is in the future.'],
  unknownApp: [1104, 403, 'There is no such application.'],
  wrongCredentials: [1105, 401, 'The credentials match no user.'],
  notAllowed: [1106, 403, 'This user may not do that.'],
  unknownUser: [1201, 404, 'There is no such user.'],
  notFriends: [1202, 404, 'These two users are not friends.'],
  unknownGroup: [1301, 404, 'There is no such group.'],
  unknownRoom: [1401, 404, 'There is no such room.'],
  notMember: [1501, 403, 'The sender is not a member.'],
  unknownPassenger: [1601, 404, 'There is no such passenger.'],
  unknownAttribute: [1701, 404, 'There is no such attribute.'],
  unknownFile: [1801, 404, 'There is no such file.'],
  badRange: [1802, 416, 'The range is outside the file.'],
  internal: [1901, 500, 'The service failed.'],
};

/** An error that the client is told about. */
export class ServiceError extends Error {
  constructor(name, detail) {
    const [code, status, text] = table[name];
    super(detail ?? text);
    this.name = name;
    this.code = code;
    this.status = status;
  }

  /** The form in which it goes over the wire. */
  toJSON() {
    return { errorCode: this.code, errorMessage: this.message };
  }
}

/** Throws the error called `name` unless `condition` holds. */
export function must(condition, name, detail) {
  if (!condition) throw new ServiceError(name, detail);
}
