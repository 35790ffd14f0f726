// Receiving: a message through VXIMClient (message object, delegate, notification), compared with a
// loop of Beast's async_read that parses each frame into a Boost.JSON tree. Sending: a message from
// its text to the wire, compared with a Beast write for each frame. That peer's text is ready
// beforehand, but it calls the system for each frame, and we for each turn. A second peer, which
// also makes and serialises a Boost.JSON tree, is shown for information. CPU time of all threads;
// the server is another process.

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/json.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/VexIMLib.h"
#include "live/LiveServer.h"
#include "networking/CPUTime.h"
#include "networking/PeakMemory.h"

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
using vexim::MainQueue;
using vexim::bench::LiveServer;

constexpr int kSends = 20'000;
constexpr const char* kFriend = "5f2b7c9e8a1d4e0012345678";
constexpr const char* kText = "Shall we meet at the station at seven? I will bring tickets.";

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "live benchmark: %s\n", what);
    std::_Exit(1);
}

class Ours final : public VXIMClientDelegate, public std::enable_shared_from_this<Ours> {
public:
    static std::shared_ptr<Ours> logIn(std::uint16_t port) {
        auto ours = std::make_shared<Ours>();
        auto configuration = VXIMClientConfiguration::defaultConfiguration();
        configuration->setAppId("app");
        configuration->setClientKey("key");
        configuration->setInstallationId("install");
        configuration->setSocketURL(vexim::URL::parse("http://127.0.0.1:" + std::to_string(port)));
        ours->client_ = VXIMClient::clientWithConfiguration(configuration);
        ours->client_->setDelegate(ours);
        vexim::NotificationCenter::defaultCenter().addObserver(
            ours, VXIMClientDidReceiveMessageNotification, ours->client_.get(),
            [self = ours.get()](const vexim::Notification&) { ++self->posted_; });
        bool isIn = false;
        ours->client_->loginWithUserId(
            "5f2b7c9e8a1d4e00deadbeef",
            [&](bool succeeded, const vexim::ErrorPtr&) { isIn = succeeded; });
        await([&] { return isIn; });
        return ours;
    }

    void receive() { receive(1, {}); }

    /// Receives this many floods, one after the other. The program handles each message for this
    /// long.
    void receive(int floods, std::chrono::microseconds handling) {
        heard_ = posted_ = 0;
        handling_ = handling;
        for (int i = 0; i < floods; ++i) say("flood");
        await([&] { return posted_ == floods * LiveServer::kFlood && heard_ == posted_; });
    }
    /// Whether a connection has ended.
    bool wasDisconnected() const { return wasDisconnected_; }

    void send() {
        posted_ = sent_ = 0;
        for (int i = 1; i <= kSends; ++i) {
            say(kText);
            if (i % 100 == 0) await([&] { return sent_ == i; });
        }
        say("end");
        await([&] { return posted_ == 1; });
    }

    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                           const std::shared_ptr<VXIMMessage>&,
                                           const std::shared_ptr<VXIMFriendInfo>&) override {
        ++heard_;
        if (handling_.count() == 0) return;
        const auto until = std::chrono::steady_clock::now() + handling_;
        while (std::chrono::steady_clock::now() < until) continue;
    }
    void clientDidDisconnect(const std::shared_ptr<VXIMClient>&) override {
        wasDisconnected_ = true;
    }

private:
    static void await(const std::function<bool()>& predicate) {
        if (!MainQueue::shared().runUntil(predicate, std::chrono::minutes(2)))
            fail("the client did not get through");
    }
    void say(const char* text) {
        client_->sendMessageToFriend(VXIMMessage::messageWithText(text), kFriend,
                                     [this](bool succeeded, const vexim::ErrorPtr&) {
                                         if (!succeeded) fail("a message was not sent");
                                         ++sent_;
                                     });
    }

    std::shared_ptr<VXIMClient> client_;
    int heard_ = 0;
    int posted_ = 0;
    int sent_ = 0;
    bool wasDisconnected_ = false;
    std::chrono::microseconds handling_{};
};

class Peer {
public:
    explicit Peer(std::uint16_t port) : stream_(context_) {
        beast::get_lowest_layer(stream_).connect({asio::ip::address_v4::loopback(), port});
        beast::get_lowest_layer(stream_).set_option(asio::ip::tcp::no_delay(true));
        stream_.handshake("127.0.0.1", "/peer");
        stream_.text(true);
    }

    void receive() {
        stream_.write(asio::buffer(std::string_view(R"(42/chat,["say","flood"])")));
        left_ = LiveServer::kFlood;
        read();
        context_.restart();
        context_.run();
    }

    void sendReadyText() {
        const std::string text = makeEvent();
        send([&] { return std::string_view(text); });
    }

    void sendTrees() {
        std::string text;
        send([&] { return std::string_view(text = makeEvent()); });
    }

private:
    static std::string makeEvent() {
        const boost::json::array event = {"say",
                                          {{"content", {{"media", 0}, {"body", kText}}},
                                           {"ts", 1700000000123},
                                           {"to", {{"id", kFriend}, {"type", 0}}}}};
        return "42/chat," + boost::json::serialize(event);
    }

    template <class MakeText>
    void send(MakeText makeText) {
        for (int i = 0; i < kSends; ++i) stream_.write(asio::buffer(makeText()));
        stream_.write(asio::buffer(std::string_view(R"(42/chat,["say","end"])")));
        left_ = 1;
        read();
        context_.restart();
        context_.run();
    }

    void read() {
        stream_.async_read(buffer_, [this](beast::error_code error, std::size_t) {
            if (error) fail("the peer lost its connection");
            const auto bytes = buffer_.cdata();
            const std::string_view text(static_cast<const char*>(bytes.data()), bytes.size());
            const auto json = text.substr(text.find('['));
            if (boost::json::parse({json.data(), json.size()}).as_array().size() != 2)
                fail("the peer read something else");
            buffer_.consume(buffer_.size());
            if (--left_ > 0) read();
        });
    }

    asio::io_context context_{1};
    beast::websocket::stream<asio::ip::tcp::socket> stream_;
    beast::flat_buffer buffer_;
    int left_ = 0;
};

}  // namespace

int main() {
    vexim::bench::stayOnOneCore();
    const LiveServer server;
    const auto ours = Ours::logIn(server.port());
    Peer peer(server.port());
    const auto compare = [](const char* name, double count, std::optional<double> limit, auto own,
                            auto other) {
        vexim::bench::compareCPU(name, 5, RUSAGE_SELF, RUSAGE_SELF, count, limit, own, other);
    };
    compare(
        "live: a message received", LiveServer::kFlood, 1.0, [&] { ours->receive(); },
        [&] { peer.receive(); });
    compare(
        "live: a message sent", kSends, std::nullopt, [&] { ours->send(); },
        [&] { peer.sendTrees(); });
    compare(
        "live: a message sent, peer with ready text", kSends, 2.0, [&] { ours->send(); },
        [&] { peer.sendReadyText(); });
    if (vexim::bench::Selection::asked()) return 0;
    // If a message is lost or comes twice, the wait fails.
    constexpr int kMillion = 1'000'000 / LiveServer::kFlood;
    vexim::bench::forgetPeakMemory();
    const long before = vexim::bench::peakMemory();
    ours->receive(kMillion, std::chrono::microseconds(5));
    vexim::bench::printAmount("live: a million messages, peak memory grew by",
                              static_cast<double>(vexim::bench::peakMemory() - before) / 1024,
                              "MiB", 16);
    if (ours->wasDisconnected()) fail("the connection ended under a flood");
    return 0;
}
