// A message received through the C interface, compared with one received in C++. Both clients have
// logged in to the same server. CPU time of all threads. C++ comes first, because the C interface
// runs the main queue on its own thread.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "VexIMLib/C/vexim.h"
#include "VexIMLib/VexIMLib.h"
#include "live/LiveServer.h"
#include "networking/CPUTime.h"
#include "support/Selection.h"

namespace {

using vexim::MainQueue;
using vexim::bench::LiveServer;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "C interface benchmark: %s\n", what);
    std::_Exit(1);
}

class InCpp final : public VXIMClientDelegate, public std::enable_shared_from_this<InCpp> {
public:
    void logIn(std::uint16_t port) {
        auto configuration = VXIMClientConfiguration::defaultConfiguration();
        configuration->setAppId("app");
        configuration->setClientKey("key");
        configuration->setInstallationId("install");
        configuration->setSocketURL(vexim::URL::parse("http://127.0.0.1:" + std::to_string(port)));
        client_ = VXIMClient::clientWithConfiguration(configuration);
        client_->setDelegate(shared_from_this());
        vexim::NotificationCenter::defaultCenter().addObserver(
            shared_from_this(), VXIMClientDidReceiveMessageNotification, client_.get(),
            [this](const vexim::Notification&) { ++posted_; });
        bool isIn = false;
        client_->loginWithUserId("u1",
                                 [&](bool succeeded, const vexim::ErrorPtr&) { isIn = succeeded; });
        await([&] { return isIn; });
    }
    void receive() {
        heard_ = posted_ = 0;
        client_->sendMessageToFriend(VXIMMessage::messageWithText("flood"), "u2", {});
        await([&] { return posted_ == LiveServer::kFlood && heard_ == LiveServer::kFlood; });
    }
    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                           const std::shared_ptr<VXIMMessage>&,
                                           const std::shared_ptr<VXIMFriendInfo>&) override {
        ++heard_;
    }

private:
    static void await(const std::function<bool()>& predicate) {
        if (!MainQueue::shared().runUntil(predicate, std::chrono::minutes(2)))
            fail("the C++ client did not get through");
    }
    std::shared_ptr<VXIMClient> client_;
    int heard_ = 0;
    int posted_ = 0;
};

class InC {
public:
    explicit InC(std::uint16_t port)
        : client_(vexim_create(
              (R"({"appId":"app","clientKey":"key","installationId":"install","socketURL":"http://127.0.0.1:)" +
               std::to_string(port) + "\"}")
                  .c_str())) {
        vexim_send(client_, R"({"@op":"loginWithUserId","userId":"u1"})");
        await(R"({"@type":"event","name":"clientDidLogin")", 1);
    }
    ~InC() { vexim_free(client_); }
    InC(const InC&) = delete;
    InC& operator=(const InC&) = delete;

    void receive() {
        vexim_send(client_,
                   R"({"@op":"sendMessageToFriend","friendId":"u2","message":{"text":"flood"}})");
        await(R"({"@type":"event","name":"clientDidReceiveMessageFromFriend")", LiveServer::kFlood);
    }

private:
    void await(const char* beginning, int times) {
        while (times > 0) {
            const char* text = vexim_receive(client_, 60);
            if (text == nullptr) fail("the C client did not get through");
            times -= std::strncmp(text, beginning, std::strlen(beginning)) == 0;
        }
    }
    const vexim_client client_;
};

/// The best of several rounds, after one to warm up.
template <class Side>
double secondsOf(Side& side) {
    double best = std::numeric_limits<double>::max();
    for (int round = 0; round <= 10; ++round) {
        const double before = vexim::bench::cpuSeconds(RUSAGE_SELF);
        side.receive();
        if (round > 0) best = std::min(best, vexim::bench::cpuSeconds(RUSAGE_SELF) - before);
    }
    return best;
}

}  // namespace

int main() {
    constexpr const char* kRow = "C interface: a message received, against C++";
    vexim::bench::stayOnOneCore();
    const LiveServer server;
    const auto logInCpp = [&] {
        auto cpp = std::make_shared<InCpp>();
        cpp->logIn(server.port());
        return cpp;
    };
    const auto receiveInC = [&] { InC(server.port()).receive(); };
    const auto receiveInCpp = [&] { logInCpp()->receive(); };
    if (vexim::bench::Selection::handles(kRow, LiveServer::kFlood, receiveInC, receiveInCpp))
        return 0;
    const double inCpp = secondsOf(*logInCpp());
    InC c(server.port());
    const double scale = 1e6 / LiveServer::kFlood;
    // its limit is on instructions
    vexim::bench::printRatio(kRow, secondsOf(c) * scale, inCpp * scale, "us", std::nullopt);
    return 0;
}
