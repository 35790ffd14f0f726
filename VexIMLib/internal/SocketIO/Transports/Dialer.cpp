#include "VexIMLib/internal/SocketIO/Transports/Dialer.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace vexim {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

// How long to try one of several addresses before the next.
constexpr std::chrono::seconds kPerAddress{3};

/// Begins to connect, without waiting.
error_code beginConnecting(tcp::socket& socket, const tcp::endpoint& endpoint) {
    error_code error;
    socket.open(endpoint.protocol(), error);
    if (error) return error;
    // Programs that the application starts do not inherit the connection.
    ::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
    socket.non_blocking(true, error);
    if (!error &&
        ::connect(socket.native_handle(), endpoint.data(),
                  static_cast<socklen_t>(endpoint.size())) != 0 &&
        errno != EINPROGRESS && errno != EINTR)
        error.assign(errno, asio::error::get_system_category());
    return error;
}

/// Whether the attempt has ended, with success or without.
bool hasEnded(tcp::socket& socket) {
    pollfd state{socket.native_handle(), POLLOUT, 0};
    return ::poll(&state, 1, 0) == 1;
}

error_code resultOf(tcp::socket& socket) {
    int failure = 0;
    socklen_t length = sizeof failure;
    if (::getsockopt(socket.native_handle(), SOL_SOCKET, SO_ERROR, &failure, &length) != 0)
        failure = errno;
    return {failure, asio::error::get_system_category()};
}

/// After one wait for room to write, asio watches for room until the socket is closed. Then each
/// wait for input would be reported twice. So remove the socket from the loop and add it again.
error_code watchAnew(tcp::socket& socket, const tcp& protocol) {
    error_code error;
    const auto descriptor = socket.release(error);
    if (error) return error;
    socket.assign(protocol, descriptor, error);
    if (error) {
        ::close(descriptor);
        return error;
    }
    socket.non_blocking(true, error);
    return error;
}

}  // namespace

void Dialer::dial(HostResolver& resolver, const std::string& host, std::uint16_t port,
                  Handler handler) {
    port_ = port;
    handler_ = std::move(handler);
    lookup_ = resolver.resolve(
        host, [weak = weak_from_this()](std::vector<std::string> addresses, const ErrorPtr&) {
            if (const auto self = weak.lock()) self->didResolve(std::move(addresses));
        });
}

void Dialer::cancel() {
    handler_ = nullptr;
    lookup_.reset();
    timer_.cancel();
    error_code ignored;
    socket_.close(ignored);
}

void Dialer::didResolve(std::vector<std::string> addresses) {
    if (!handler_) return;
    if (addresses.empty()) return finish(Fault::NotFound, "The host could not be found.");
    addresses_ = std::move(addresses);
    connectNext();
}

void Dialer::connectNext() {
    error_code error;
    socket_.close(error);
    if (next_ == addresses_.size())
        return finish(Fault::NotConnected, "Could not connect: " + lastError_.message() + ".");
    const auto address = asio::ip::make_address(addresses_[next_++], error);
    const tcp::endpoint endpoint(address, port_);
    if (!error) error = beginConnecting(socket_, endpoint);
    if (error) {
        lastError_ = error;
        return connectNext();
    }
    if (hasEnded(socket_)) return didEnd(resultOf(socket_));  // usual on the same machine
    if (next_ < addresses_.size()) {
        timer_.expires_after(kPerAddress);
        timer_.async_wait([self = shared_from_this(), attempt = next_](error_code cancelled) {
            if (cancelled || !self->isTrying(attempt)) return;
            self->lastError_ = asio::error::timed_out;
            self->connectNext();
        });
    }
    awaitEnd(endpoint.protocol());
}

/// False for a callback that was queued before another address was tried.
bool Dialer::isTrying(std::size_t attempt) const { return handler_ && next_ == attempt; }

void Dialer::awaitEnd(const tcp& protocol) {
    socket_.async_wait(tcp::socket::wait_write,
                       [self = shared_from_this(), attempt = next_, protocol](error_code failed) {
                           if (!self->isTrying(attempt)) return;
                           if (!failed && !hasEnded(self->socket_)) return self->awaitEnd(protocol);
                           if (!failed) failed = resultOf(self->socket_);
                           self->didEnd(failed ? failed : watchAnew(self->socket_, protocol));
                       });
}

void Dialer::didEnd(const error_code& failed) {
    if (!failed) return finish(Fault::None);
    lastError_ = failed;
    connectNext();
}

void Dialer::finish(Fault fault, std::string why) {
    timer_.cancel();
    if (const auto handler = std::exchange(handler_, nullptr))
        handler(fault, socket_, std::move(why));
}

}  // namespace vexim
