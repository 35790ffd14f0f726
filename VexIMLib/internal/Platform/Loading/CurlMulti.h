#pragma once

#include <curl/curl.h>

#include <chrono>
#include <memory>
#include <optional>
#include <unordered_map>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>

namespace vexim {

/// libcurl's multi interface on an asio loop, driven by its socket and timer callbacks. One pool of
/// connections. Everything happens on the loop's thread.
class CurlMulti {
public:
    /// The owner of an easy handle, set as its CURLOPT_PRIVATE.
    class Exchange {
    public:
        virtual ~Exchange() = default;
        /// Called when the transfer has ended and the handle is no longer part of the multi. It may
        /// add and remove handles.
        virtual void transferEnded(CURLcode result) = 0;

    protected:
        /// Whether a connection is or was being made for it, so it does not wait for another
        /// exchange's connection.
        bool hasBegunToConnect() const noexcept { return hasBegunToConnect_; }

    private:
        friend class CurlMulti;
        CurlMulti* multi_ = nullptr;
        bool hasBegunToConnect_ = false;
    };

    /// The size of the connection pool; nullopt means libcurl's default, four idle connections for
    /// each running transfer.
    struct Limits {
        std::optional<long> idleConnections;
        std::optional<long> connectionsPerHost;  // nullopt: none
    };

    CurlMulti(boost::asio::io_context& context, Limits limits);
    CurlMulti(const CurlMulti&) = delete;
    CurlMulti& operator=(const CurlMulti&) = delete;
    /// Closes the idle connections. It must hold no handles, and none of its calls may be running.
    /// It does not wait if all handles had CURLOPT_QUICK_EXIT; otherwise it may wait for a name
    /// lookup.
    ~CurlMulti();

    /// Sets the options on an easy handle that this class needs. `exchange` must live until the
    /// transfer has ended.
    void prepare(CURL* easy, Exchange& exchange);
    /// Starts the handle's transfer.
    void add(CURL* easy);
    /// Removes a handle and aborts its transfer. Do not call it inside a libcurl callback.
    void remove(CURL* easy);

private:
    using Clock = std::chrono::steady_clock;
    struct Socket;

    static int onSocket(CURL* easy, curl_socket_t socket, int what, void* self, void* watched);
    static int onTimer(CURLM* multi, long timeoutMillis, void* self);
    static curl_socket_t onOpenSocket(void* exchange, curlsocktype purpose, curl_sockaddr* address);
    static int onLookup(void* resolver, void* reserved, void* exchange);
    static int onCloseSocket(void* self, curl_socket_t socket);

    void watch(curl_socket_t socket, int what);
    void forget(curl_socket_t socket);
    void wait(const std::shared_ptr<Socket>& socket);
    void checkConnecting();
    void scheduleTimeout(std::chrono::milliseconds timeout);
    void armTimer();
    void callTimeoutSoon();
    void callSocketAction(curl_socket_t socket, int events);
    void reportEnded();

    boost::asio::io_context& context_;
    CURLM* const multi_;
    std::unordered_map<curl_socket_t, std::shared_ptr<Socket>> sockets_;

    // libcurl changes its timeout very often. Setting a timer each time would cost more than the
    // rest of a short transfer. So we set it only if it would fire too late, and use post for a
    // timeout of zero.
    boost::asio::steady_timer timer_;
    Clock::time_point deadline_ = Clock::time_point::max();  // when libcurl wants to be called
    Clock::time_point armedFor_ = Clock::time_point::max();  // when the timer will fire
    bool timeoutCallPosted_ = false;

    boost::asio::steady_timer connecting_;
    bool checksConnecting_ = false;
    bool wasConnecting_ = false;

    // Posted functions check this first.
    const std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

}  // namespace vexim
