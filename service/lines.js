// The major versions of Socket.IO servers that we can run, and their packages.

export const lines = { 2: 'socket.io-2', 3: 'socket.io-3', 4: 'socket.io-4' };
