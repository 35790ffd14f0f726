#pragma once

#include "socketio/PeerServer.h"

namespace vexim::bench {

// What one would write by hand with Beast and Boost.JSON, without the protocol above the frames.
// Each connects to the server, over TLS if the server uses it, and joins.

/// One async_read a frame, each parsed into a Boost.JSON tree.
void receiveWithAsyncReads(const PeerServer& server, long count);
/// Synchronous reads through a 64 KiB buffer, each parsed into a Boost.JSON tree.
void receiveWithBufferedReads(const PeerServer& server, long count);
/// Boost.JSON to text, framed and masked by hand into one buffer that is written when it is full.
void emitCoalesced(const PeerServer& server, long count);
/// Connects, joins and closes.
void connectAndClose(const PeerServer& server);

}  // namespace vexim::bench
