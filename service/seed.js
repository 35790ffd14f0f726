// The data that the service has at its start and after a reset.

/** Two friends who share a group and a room. */
export const seed = {
  users: [
    {
      id: 'alice',
      username: 'alice',
      password: 'alice-secret',
      phone: '+15550100001',
      smsCode: '100001',
      oauth: { provider: 'example', uid: 'alice@example', token: 'alice-token' },
      attributes: { nick: 'Alice', city: 'Lisbon', age: 31 },
      friends: ['bob'],
    },
    {
      id: 'bob',
      username: 'bob',
      password: 'bob-secret',
      phone: '+15550100002',
      smsCode: '100002',
      oauth: { provider: 'example', uid: 'bob@example', token: 'bob-token' },
      attributes: { nick: 'Bob', city: 'Oslo', age: 29 },
      friends: ['alice'],
    },
  ],
  groups: [{ id: 'demo-group', owner: 'alice', members: ['alice', 'bob'],
    attributes: { name: 'Demo group' } }],
  rooms: [{ id: 'demo-room', name: 'Demo room', members: ['alice', 'bob'], attributes: {} }],
};
