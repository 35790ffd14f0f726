// A message received and sent through VXIMClient: message object, notification and delegate included. The peers are what one
// would write by hand with Beast and Boost.JSON, without any of these. CPU time of the whole process, its threads included.

#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "VexIMLib/VexIMLib.h"
#include "VexIMLib/internal/SocketIO/SocketIOClient.h"
#include "socketio/BeastClients.h"
#include "socketio/PeerServer.h"

namespace {

using namespace std::chrono_literals;
using namespace vexim;
using namespace vexim::bench;

constexpr long kMessages = 100'000;
constexpr int kRounds = 5;

double cpuMicros() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    const auto micros = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_usec);
    };
    return micros(usage.ru_utime) + micros(usage.ru_stime);
}

/// The smallest of some rounds: what disturbs only adds.
template <class Work>
double leastMicros(Work work) {
    double least = 1e18;
    for (int i = 0; i < kRounds; ++i) {
        const double before = cpuMicros();
        work();
        least = std::min(least, (cpuMicros() - before) / kMessages);
    }
    return least;
}

void wait(const std::function<bool()>& until) {
    if (MainQueue::shared().runUntil(until, 120s)) return;
    std::fprintf(stderr, "the benchmark hangs\n");
    std::_Exit(1);
}

struct Counter final : VXIMClientDelegate {
    long heard = 0;
    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&, const std::shared_ptr<VXIMMessage>&,
                                           const std::shared_ptr<VXIMFriendInfo>&) override {
        ++heard;
    }
    void clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>&, const std::shared_ptr<VXIMMessage>&,
                                          const std::shared_ptr<VXIMGroup>&) override {
        ++heard;
    }
};

/// A client whose connection asks the peer for what `parameters` say.
std::shared_ptr<VXIMClient> newClient(const PeerServer& server, const Dictionary& parameters) {
    auto configuration = VXIMClientConfiguration::defaultConfiguration();
    configuration->setSocketURL(URL::parse(server.url()));
    return create<VXIMClient>(configuration, [parameters](const std::optional<URL>& url, const Dictionary& options) {
        Dictionary changed = options;
        changed.set("connectParams", parameters);
        return SocketIOClient::create(url, changed);
    });
}

void receive(const PeerServer& server) {
    const auto delegate = std::make_shared<Counter>();
    long posted = 0;
    const auto observer = std::make_shared<int>();
    NotificationCenter::defaultCenter().addObserver(observer, VXIMClientDidReceiveMessageNotification, nullptr,
                                                    [&](const Notification&) { ++posted; });
    const auto client = newClient(server, {{"flood", kMessages}});
    client->setDelegate(delegate);
    client->loginWithAuthData({{"client", "u1"}}, {});
    wait([&] { return posted == kMessages && delegate->heard == kMessages; });
}

void send(VXIMClient& client) {
    const Dictionary payload = *parseJSON(kMessage).value.asDictionary();
    long sent = 0;
    for (long i = 0; i < kMessages; ++i) {
        client.sendMessageToGroup(VXIMMessage::initWithPayloadDictionary(payload), "g1", [&](bool, const ErrorPtr&) { ++sent; });
        if (i % 64 == 63) MainQueue::shared().drain();
    }
    wait([&] { return sent == kMessages; });
}

bool row(const char* name, double ours, const char* peerName, double peer, double limit) {
    const double ratio = ours / peer;
    std::printf("%-26s %9.3f us   %-34s %9.3f us   ratio %5.2f   limit %4.2f  %s\n", name, ours, peerName, peer, ratio, limit,
                ratio <= limit ? "within" : "OVER");
    return ratio <= limit;
}

}  // namespace

int main() {
    const PeerServer server;
    setenv("no_proxy", "*", 1);
    MainQueue::shared().drain();
    receive(server);  // everything is made that is made once

    const double byHand = leastMicros([&] { receiveWithAsyncReads(server.port(), kMessages); });
    const bool received =
        row("message received", leastMicros([&] { receive(server); }), "Beast async_read, JSON tree", byHand, 2.0);

    const auto client = newClient(server, {{"sink", 1}});
    client->loginWithAuthData({{"client", "u1"}}, {});
    wait([&] { return client->socketio() && client->socketio()->status() == SocketIOStatusConnected; });
    const double written = leastMicros([&] { emitEachFrame(server.port(), kMessages); });
    const bool sent = row("message sent", leastMicros([&] { send(*client); }), "Beast write for each frame", written, 2.0);
    std::fflush(stdout);
    return received && sent ? 0 : 1;
}
