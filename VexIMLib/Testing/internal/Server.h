#pragma once

#include <boost/asio/io_context.hpp>
#include <cstdint>
#include <memory>

#include "VexIMLib/Testing/internal/Service.h"

namespace vexim::testing::fake {

/// HTTP/1.1 and WebSockets on a loopback port, for a service. Used on the loop's thread only.
class Server {
public:
    Server(boost::asio::io_context& context, Service& service);
    ~Server();
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

    /// Listens on `port` (0: a free one) and returns it. Throws boost::system::system_error if it
    /// is in use.
    std::uint16_t listen(std::uint16_t port);
    bool isListening() const;
    /// Closes all connections. Only their cancelled operations still run.
    void cut();
    /// Stops listening and closes all connections.
    void close();

private:
    struct Impl;
    const std::shared_ptr<Impl> impl_;
};

}  // namespace vexim::testing::fake
