#pragma once

// For the few sources that have their own sockets on the network thread. All others include
// NetworkThread.h.
#include <boost/asio/io_context.hpp>

#include "VexIMLib/internal/Platform/Threads/NetworkThread.h"

namespace vexim {

class NetworkThreadAsio {
public:
    /// The network thread's loop. Exactly one thread runs it, so handlers need no strand; it is
    /// never destroyed.
    static boost::asio::io_context& ioContext();
};

}  // namespace vexim
