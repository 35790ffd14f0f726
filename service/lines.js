// The lines of Socket.IO servers that we can run, and the packages that hold them.

export const lines = { 2: 'socket.io-2', 3: 'socket.io-3', 4: 'socket.io-4' };
