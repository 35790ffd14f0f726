#include "VexIMLib/internal/SocketIO/Transports/Dialer.h"

#include <utility>

namespace vexim {
namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

// How long to try one of several addresses before the next.
constexpr std::chrono::seconds kPerAddress{3};

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
    if (error) {
        lastError_ = error;
        return connectNext();
    }
    // False for a callback that was already queued when another address was tried.
    const auto isWanted = [self = shared_from_this(), attempt = next_] {
        return self->handler_ && self->next_ == attempt;
    };
    if (next_ < addresses_.size()) {
        timer_.expires_after(kPerAddress);
        timer_.async_wait([self = shared_from_this(), isWanted](error_code cancelled) {
            if (cancelled || !isWanted()) return;
            self->lastError_ = asio::error::timed_out;
            self->connectNext();
        });
    }
    socket_.async_connect(tcp::endpoint(address, port_),
                          [self = shared_from_this(), isWanted](error_code failed) {
                              if (!isWanted()) return;
                              if (!failed) return self->finish(Fault::None);
                              self->lastError_ = failed;
                              self->connectNext();
                          });
}

void Dialer::finish(Fault fault, std::string why) {
    timer_.cancel();
    if (const auto handler = std::exchange(handler_, nullptr))
        handler(fault, socket_, std::move(why));
}

}  // namespace vexim
