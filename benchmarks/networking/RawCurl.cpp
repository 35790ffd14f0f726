#include "networking/RawCurl.h"

#include <unistd.h>

#include <boost/asio/post.hpp>
#include <chrono>
#include <utility>

namespace vexim::bench {

namespace asio = boost::asio;

struct RawCurl::Socket {
    Socket(asio::io_context& context, curl_socket_t socket) : descriptor(context, socket) {}
    asio::posix::stream_descriptor descriptor;
    int wants = 0;
    bool waits[2] = {false, false};
    bool closed = false;
};

struct RawCurl::Transfer {
    std::string body;
    curl_slist* headers = nullptr;
};

RawCurl::RawCurl(std::string url, const std::string& authorityPEM)
    : url_(std::move(url)),
      authorityPEM_(authorityPEM),
      timer_(context_),
      multi_(curl_multi_init()) {
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(
        multi_, CURLMOPT_SOCKETFUNCTION,
        +[](CURL*, curl_socket_t socket, int what, void* self, void*) {
            static_cast<RawCurl*>(self)->watch(socket, what);
            return 0;
        });
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
    curl_multi_setopt(
        multi_, CURLMOPT_TIMERFUNCTION, +[](CURLM*, long timeoutMillis, void* self) {
            static_cast<RawCurl*>(self)->schedule(timeoutMillis);
            return 0;
        });
    curl_multi_setopt(multi_, CURLMOPT_MAXCONNECTS, 64L);
}

RawCurl::~RawCurl() { curl_multi_cleanup(multi_); }

bool RawCurl::run(int count, int inFlight) {
    toStart_ = count;
    while (toStart_ > 0 && running_ < inFlight) start();
    context_.restart();
    while (running_ > 0) context_.run_one();
    return allWell_;
}

void RawCurl::start() {
    --toStart_;
    ++running_;
    auto* const transfer = new Transfer;
    for (const char* line :
         {"User-Agent: com.example.chat/42 iOS/17.1", "Content-Type: application/json",
          "X-VX-AppId: app-1", "X-VX-Request-Sign: e8991b63f68a1799f9d206a8c4608ff3,1700000000"}) {
        transfer->headers = curl_slist_append(transfer->headers, line);
    }
    CURL* const easy = curl_easy_init();
    curl_easy_setopt(easy, CURLOPT_URL, url_.c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, transfer->headers);
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
    curl_blob authority{const_cast<char*>(authorityPEM_.data()), authorityPEM_.size(),
                        CURL_BLOB_NOCOPY};
    curl_easy_setopt(easy, CURLOPT_CAINFO_BLOB, &authority);
    curl_easy_setopt(easy, CURLOPT_PRIVATE, transfer);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, transfer);
    curl_easy_setopt(
        easy, CURLOPT_WRITEFUNCTION,
        +[](char* bytes, std::size_t size, std::size_t count, void* target) {
            static_cast<Transfer*>(target)->body.append(bytes, size * count);
            return size * count;
        });
    curl_easy_setopt(easy, CURLOPT_CLOSESOCKETDATA, this);
    curl_easy_setopt(
        easy, CURLOPT_CLOSESOCKETFUNCTION, +[](void* self, curl_socket_t socket) {
            auto& sockets = static_cast<RawCurl*>(self)->sockets_;
            if (const auto found = sockets.find(socket); found != sockets.end()) {
                found->second->closed = true;
                found->second->descriptor.release();
                sockets.erase(found);
            }
            return ::close(socket);
        });
    curl_multi_add_handle(multi_, easy);
}

void RawCurl::watch(curl_socket_t socket, int what) {
    auto found = sockets_.find(socket);
    if (found == sockets_.end()) {
        if (what == CURL_POLL_REMOVE) return;
        found = sockets_.emplace(socket, std::make_shared<Socket>(context_, socket)).first;
    }
    found->second->wants = what == CURL_POLL_REMOVE ? 0 : what;
    wait(found->second, false);
    wait(found->second, true);
}

void RawCurl::wait(const std::shared_ptr<Socket>& socket, bool forWriting) {
    const int interest = forWriting ? CURL_POLL_OUT : CURL_POLL_IN;
    if (socket->closed || !(socket->wants & interest) || socket->waits[forWriting]) return;
    socket->waits[forWriting] = true;
    const auto kind = forWriting ? asio::posix::descriptor_base::wait_write
                                 : asio::posix::descriptor_base::wait_read;
    socket->descriptor.async_wait(kind, [this, socket, forWriting,
                                         interest](const boost::system::error_code&) {
        socket->waits[forWriting] = false;
        if (socket->closed || !(socket->wants & interest)) return;
        act(socket->descriptor.native_handle(), forWriting ? CURL_CSELECT_OUT : CURL_CSELECT_IN);
        wait(socket, forWriting);
    });
}

void RawCurl::schedule(long timeoutMillis) {
    // without timeouts, because nothing here takes long
    if (timeoutMillis != 0 || kickPosted_) return;
    kickPosted_ = true;
    asio::post(context_, [this] {
        kickPosted_ = false;
        act(CURL_SOCKET_TIMEOUT, 0);
    });
}

void RawCurl::act(curl_socket_t socket, int events) {
    int running = 0;
    curl_multi_socket_action(multi_, socket, events, &running);
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        CURL* const easy = message->easy_handle;
        long status = 0;
        curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
        allWell_ = allWell_ && message->data.result == CURLE_OK && status == 200;
        Transfer* transfer = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
        curl_multi_remove_handle(multi_, easy);
        curl_slist_free_all(transfer->headers);
        curl_easy_cleanup(easy);
        delete transfer;
        --running_;
        if (toStart_ > 0) start();
    }
}

}  // namespace vexim::bench
