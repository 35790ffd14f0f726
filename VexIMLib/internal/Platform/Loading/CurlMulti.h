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
    /// What stands behind an easy handle, as its CURLOPT_PRIVATE.
    class Exchange {
    public:
        virtual ~Exchange() = default;
        /// The transfer is over; the handle is no longer part of the multi. May add and remove
        /// handles.
        virtual void transferEnded(CURLcode result) = 0;

    protected:
        /// Whether a connection is being made for it (or was), so that it does not wait for another
        /// one's.
        bool hasBegunToConnect() const noexcept { return hasBegunToConnect_; }

    private:
        friend class CurlMulti;
        CurlMulti* multi_ = nullptr;
        bool hasBegunToConnect_ = false;
    };

    /// What the pool may hold; nullopt leaves it to libcurl, which keeps four idle connections for
    /// each running transfer.
    struct Limits {
        std::optional<long> idleConnections;
        std::optional<long> connectionsPerHost;  // nullopt: none
    };

    CurlMulti(boost::asio::io_context& context, Limits limits);
    CurlMulti(const CurlMulti&) = delete;
    CurlMulti& operator=(const CurlMulti&) = delete;
    /// Closes the idle connections. No handle may be in it any more, and none of its calls under
    /// way. It waits for nothing when all handles had CURLOPT_QUICK_EXIT; else it may wait for a
    /// name lookup.
    ~CurlMulti();

    /// Sets, on an easy handle, what this class needs there. `exchange` stands behind it until the
    /// transfer has ended.
    void prepare(CURL* easy, Exchange& exchange);
    /// Starts the transfer that the handle describes.
    void add(CURL* easy);
    /// Takes a handle out, cutting its transfer off if it runs. Not from inside one of libcurl's
    /// callbacks.
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
    void scheduleTimeout(std::chrono::milliseconds timeout);
    void armTimer();
    void kickSoon();
    void act(curl_socket_t socket, int events);
    void reportEnded();

    boost::asio::io_context& context_;
    CURLM* const multi_;
    std::unordered_map<curl_socket_t, std::shared_ptr<Socket>> sockets_;

    // Re-arming a timer at each of libcurl's many requests would cost more than the rest of a short
    // transfer. So the timer stands where it stood unless it would fire too late, and a zero
    // timeout is a post.
    boost::asio::steady_timer timer_;
    Clock::time_point deadline_ = Clock::time_point::max();  // when libcurl wants to be called
    Clock::time_point armedFor_ = Clock::time_point::max();  // when the timer will fire
    bool kickPosted_ = false;

    // What has been posted looks here first.
    const std::shared_ptr<bool> isAlive_ = std::make_shared<bool>(true);
};

}  // namespace vexim
