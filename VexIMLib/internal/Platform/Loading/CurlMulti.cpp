// `curl_multi_socket_all` is deprecated, but nothing else makes libcurl check a transfer that has
// no socket.
#define CURL_DISABLE_DEPRECATION

#include "VexIMLib/internal/Platform/Loading/CurlMulti.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include <boost/asio/post.hpp>

namespace vexim {

namespace asio = boost::asio;

struct CurlMulti::Socket {
    Socket(asio::io_context& context, curl_socket_t socket)
        : number(socket),
          copy(::fcntl(socket, F_DUPFD_CLOEXEC, 0)),
          descriptor(context, copy < 0 ? socket : copy) {}
    ~Socket() { stopWatching(); }
    void stopWatching() {
        // Do not rely on asio's close to unregister the descriptor: libcurl's copy keeps the
        // connection open.
        if (descriptor.is_open()) descriptor.release();
        if (const int mine = std::exchange(copy, -1); mine >= 0) ::close(mine);
    }
    const curl_socket_t number;
    // If libcurl closes a descriptor without telling us, another thread may soon get the same
    // number. So the loop watches a copy that only we close, if the process has a descriptor left.
    int copy;
    asio::posix::stream_descriptor descriptor;
    bool wantsRead = false;
    bool wantsWrite = false;
    // a wait is running; it stays when libcurl loses interest, for the next request on an idle
    // connection
    bool readWaits = false;
    bool writeWaits = false;
    bool closed = false;
};

namespace {

constexpr std::chrono::milliseconds kConnectingCheck{250};

bool isConnected(int descriptor) {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    return ::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) == 0;
}

/// libcurl closes the sockets of its name lookups, and those that are not connected, without
/// calling `onCloseSocket`.
bool isClosedSilently(int descriptor) {
    sockaddr_storage peer{};
    socklen_t size = sizeof peer;
    return ::getpeername(descriptor, reinterpret_cast<sockaddr*>(&peer), &size) != 0 ||
           peer.ss_family == AF_UNIX;
}

}  // namespace

CurlMulti::CurlMulti(asio::io_context& context, Limits limits)
    : context_(context),
      multi_(curl_multi_init()),
      timer_(context),
      connecting_(context) {
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &CurlMulti::onSocket);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &CurlMulti::onTimer);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
    if (limits.idleConnections)
        curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, *limits.idleConnections);
    if (limits.connectionsPerHost)
        curl_multi_setopt(multi_, CURLMOPT_MAX_HOST_CONNECTIONS, *limits.connectionsPerHost);
}

CurlMulti::~CurlMulti() {
    *isAlive_ = false;
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, nullptr);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, nullptr);
    curl_multi_cleanup(multi_);
    while (!sockets_.empty()) forget(sockets_.begin()->first);
}

void CurlMulti::prepare(CURL* easy, Exchange& exchange) {
    exchange.multi_ = this;
    curl_easy_setopt(easy, CURLOPT_PRIVATE, &exchange);
    curl_easy_setopt(easy, CURLOPT_CLOSESOCKETFUNCTION, &CurlMulti::onCloseSocket);
    curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
    curl_easy_setopt(easy, CURLOPT_OPENSOCKETFUNCTION, &CurlMulti::onOpenSocket);
    curl_easy_setopt(easy, CURLOPT_OPENSOCKETDATA, &exchange);
    curl_easy_setopt(easy, CURLOPT_RESOLVER_START_FUNCTION, &CurlMulti::onLookup);
    curl_easy_setopt(easy, CURLOPT_RESOLVER_START_DATA, &exchange);
}

void CurlMulti::add(CURL* easy) { curl_multi_add_handle(multi_, easy); }

void CurlMulti::remove(CURL* easy) { curl_multi_remove_handle(multi_, easy); }

int CurlMulti::onSocket(CURL*, curl_socket_t socket, int what, void* self, void*) {
    static_cast<CurlMulti*>(self)->watch(socket, what);
    return 0;
}

int CurlMulti::onTimer(CURLM*, long timeoutMillis, void* self) {
    static_cast<CurlMulti*>(self)->scheduleTimeout(std::chrono::milliseconds(timeoutMillis));
    return 0;
}

curl_socket_t CurlMulti::onOpenSocket(void* exchange, curlsocktype, curl_sockaddr* address) {
    auto& connecting = *static_cast<Exchange*>(exchange);
    connecting.hasBegunToConnect_ = true;
    const int socket =
        ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
    connecting.multi_->forget(socket);  // the old use of this number
    return socket;
}

int CurlMulti::onLookup(void*, void*, void* exchange) {
    static_cast<Exchange*>(exchange)->hasBegunToConnect_ = true;
    return 0;
}

int CurlMulti::onCloseSocket(void* self, curl_socket_t socket) {
    // Unregister the number before the system gives it to another connection.
    static_cast<CurlMulti*>(self)->forget(socket);
    return ::close(socket);
}

void CurlMulti::forget(curl_socket_t socket) {
    const auto found = sockets_.find(socket);
    if (found == sockets_.end()) return;
    found->second->closed = true;
    found->second->stopWatching();
    sockets_.erase(found);
}

void CurlMulti::watch(curl_socket_t socket, int what) {
    auto found = sockets_.find(socket);
    if (found == sockets_.end()) {
        if (what == CURL_POLL_REMOVE) return;
        found = sockets_.emplace(socket, std::make_shared<Socket>(context_, socket)).first;
        if (!isConnected(socket)) checkConnecting();
    }
    // This is the last call for this socket.
    if (what == CURL_POLL_REMOVE && isClosedSilently(found->second->descriptor.native_handle()))
        return forget(socket);
    Socket& watched = *found->second;
    watched.wantsRead = what == CURL_POLL_IN || what == CURL_POLL_INOUT;
    watched.wantsWrite = what == CURL_POLL_OUT || what == CURL_POLL_INOUT;
    wait(found->second);
}

void CurlMulti::wait(const std::shared_ptr<Socket>& socket) {
    using Descriptor = asio::posix::descriptor_base;
    const auto waitFor = [this, &socket](Descriptor::wait_type kind, bool Socket::*wants,
                                         bool Socket::*waits, int event) {
        if (!(*socket.*wants) || *socket.*waits) return;
        *socket.*waits = true;
        socket->descriptor.async_wait(kind, [this, socket = socket, wants, waits,
                                             event](const boost::system::error_code& error) {
            *socket.*waits = false;
            if (socket->closed || !(*socket.*wants)) return;
            callSocketAction(socket->number, error ? CURL_CSELECT_ERR : event);
            if (!socket->closed) wait(socket);
        });
    };
    waitFor(Descriptor::wait_read, &Socket::wantsRead, &Socket::readWaits, CURL_CSELECT_IN);
    waitFor(Descriptor::wait_write, &Socket::wantsWrite, &Socket::writeWaits, CURL_CSELECT_OUT);
}

/// libcurl gives each of several addresses a limited time, but sets no timer for it. It gives up a
/// silent address, and tries the next one, only when something makes it check the connection.
void CurlMulti::checkConnecting() {
    if (std::exchange(checksConnecting_, true)) return;
    connecting_.expires_after(kConnectingCheck);
    connecting_.async_wait([this, isAlive = isAlive_](const boost::system::error_code& error) {
        if (error || !*isAlive) return;
        checksConnecting_ = false;
        const bool isConnecting = std::any_of(sockets_.begin(), sockets_.end(), [](auto& each) {
            return each.second->wantsWrite && !isConnected(each.first);
        });
        // one call gives up an address, and a second call tries the next address
        if (!std::exchange(wasConnecting_, isConnecting) && !isConnecting) return;
        checkConnecting();
        int running = 0;
        curl_multi_socket_all(multi_, &running);
        reportEnded();
    });
}

void CurlMulti::scheduleTimeout(std::chrono::milliseconds timeout) {
    if (timeout.count() < 0) {
        deadline_ = Clock::time_point::max();
    } else if (timeout.count() == 0) {
        callTimeoutSoon();
    } else {
        deadline_ = Clock::now() + timeout;
        if (deadline_ < armedFor_) armTimer();
    }
}

void CurlMulti::armTimer() {
    armedFor_ = deadline_;
    timer_.expires_at(armedFor_);
    timer_.async_wait([this, isAlive = isAlive_](const boost::system::error_code& error) {
        if (error || !*isAlive) return;  // armed again for an earlier time
        armedFor_ = Clock::time_point::max();
        if (deadline_ == Clock::time_point::max()) return;
        if (deadline_ > Clock::now()) return armTimer();
        deadline_ = Clock::time_point::max();
        callSocketAction(CURL_SOCKET_TIMEOUT, 0);
    });
}

void CurlMulti::callTimeoutSoon() {
    // This is called from inside libcurl, so we cannot call libcurl right now.
    if (timeoutCallPosted_) return;
    timeoutCallPosted_ = true;
    asio::post(context_, [this, isAlive = isAlive_] {
        if (!*isAlive) return;
        timeoutCallPosted_ = false;
        callSocketAction(CURL_SOCKET_TIMEOUT, 0);
    });
}

void CurlMulti::callSocketAction(curl_socket_t socket, int events) {
    int running = 0;
    curl_multi_socket_action(multi_, socket, events, &running);
    reportEnded();
}

void CurlMulti::reportEnded() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        CURL* const easy = message->easy_handle;
        const CURLcode result = message->data.result;
        char* exchange = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, &exchange);
        curl_multi_remove_handle(multi_, easy);
        if (exchange) static_cast<Exchange*>(static_cast<void*>(exchange))->transferEnded(result);
    }
}

}  // namespace vexim
