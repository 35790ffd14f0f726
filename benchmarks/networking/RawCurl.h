#pragma once

#include <curl/curl.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

namespace vexim::bench {

/// libcurl's multi interface on asio, as lean as possible: a new handle for each request,
/// connections reused, everything on one thread, the answer appended to a string and discarded.
class RawCurl {
public:
    RawCurl(std::string url, const std::string& authorityPEM);
    ~RawCurl();
    RawCurl(const RawCurl&) = delete;
    RawCurl& operator=(const RawCurl&) = delete;

    /// Makes `count` requests, `inFlight` at a time; true when every one was answered with 200.
    bool run(int count, int inFlight);

private:
    struct Socket;
    struct Transfer;

    void start();
    void watch(curl_socket_t socket, int what);
    void wait(const std::shared_ptr<Socket>& socket, bool forWriting);
    void schedule(long timeoutMillis);
    void act(curl_socket_t socket, int events);

    const std::string url_;
    const std::string authorityPEM_;
    boost::asio::io_context context_;
    boost::asio::steady_timer timer_;
    CURLM* const multi_;
    std::unordered_map<curl_socket_t, std::shared_ptr<Socket>> sockets_;
    bool kickPosted_ = false;
    int toStart_ = 0;
    int running_ = 0;
    bool allWell_ = true;
};

}  // namespace vexim::bench
