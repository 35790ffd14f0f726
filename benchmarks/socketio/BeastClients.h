#pragma once

#include <cstdint>

namespace vexim::bench {

// What one would write by hand with Beast, Boost.JSON and no regard for the protocol above the frames. Each connects to the
// peer server and joins.

/// One async_read a frame, each parsed into a Boost.JSON tree.
void receiveWithAsyncReads(std::uint16_t port, long count);
/// Synchronous reads through a 64 KiB buffer, each parsed into a Boost.JSON tree.
void receiveWithBufferedReads(std::uint16_t port, long count);
/// Boost.JSON to text, framed and masked by hand into one buffer that is written when it is full.
void emitCoalesced(std::uint16_t port, long count);
/// One Beast write a frame.
void emitEachFrame(std::uint16_t port, long count);
/// Connects, joins and closes.
void connectAndClose(std::uint16_t port);

}  // namespace vexim::bench
