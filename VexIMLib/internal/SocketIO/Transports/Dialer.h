#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

#include "VexIMLib/internal/Platform/Threads/HostResolver.h"

namespace vexim {

/// Looks up a host and connects to the first of its addresses that answers. After 3 seconds it
/// tries the next one. Network thread only.
class Dialer : public std::enable_shared_from_this<Dialer> {
public:
    using Socket = boost::asio::ip::tcp::socket;
    enum class Fault : std::uint8_t { None, NotFound, NotConnected };
    /// Without a fault `socket` is connected, does not block and may be moved from. Otherwise `why`
    /// is a sentence.
    using Handler = std::function<void(Fault fault, Socket& socket, std::string why)>;

    explicit Dialer(boost::asio::io_context& context) : socket_(context), timer_(context) {}

    /// Calls `handler` once, after this has returned. After `cancel()` it is not called.
    void dial(HostResolver& resolver, const std::string& host, std::uint16_t port, Handler handler);
    void cancel();

private:
    void didResolve(std::vector<std::string> addresses);
    void connectNext();
    bool isTrying(std::size_t attempt) const;
    void awaitEnd(const boost::asio::ip::tcp& protocol);
    void didEnd(const boost::system::error_code& failed);
    void finish(Fault fault, std::string why = {});

    std::uint16_t port_ = 0;
    Handler handler_;  // empty when it has been called or cancelled
    std::unique_ptr<HostResolver::Lookup> lookup_;
    std::vector<std::string> addresses_;
    std::size_t next_ = 0;  // the next address to try
    boost::system::error_code lastError_;
    Socket socket_;
    boost::asio::steady_timer timer_;
};

}  // namespace vexim
