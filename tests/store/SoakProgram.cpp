// One of the two programs of scripts/soak: has a store, says numbered messages to the other one,
// and may be killed at any moment.
// soak_program URL USER PEER FILE RATE Standard input: "target N" (say as many, in all), "end"
// (close the store, write FILE.jsonl and leave). Standard output: "open", then now and then "SAID
// CONFIRMED HEARD".

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/Store/VXIMConversations.h"
#include "VexIMLib/VexIMLib.h"

namespace {

using namespace std::chrono_literals;

class Soak {
public:
    Soak(std::shared_ptr<VXIMClient> client, std::string user, const std::string& peer,
         std::string path, double rate)
        : client_(std::move(client)),
          user_(std::move(user)),
          peer_{VXIMConversationKindFriend, peer},
          path_(std::move(path)),
          gap_(static_cast<std::int64_t>(1e6 / rate)) {
        VXIMConversationsOptions options;
        options.path = path_;
        options.userId = user_;
        options.mostUnsent = 1'000'000;
        options.mostCaughtUp = 1'000'000;
        conversations_ = VXIMConversations::conversationsWithClient(client_, options);
        conversations_->open([this](bool opened, const vexim::ErrorPtr& error) {
            if (!opened) return fail(error);
            if (const auto damage = conversations_->store()->damage())
                std::fprintf(stderr, "damaged: %s\n", damage->setAsideAs.c_str());
            count();
            std::thread([this] { read(); }).detach();
        });
        conversations_->setTroubleHandler([](const vexim::ErrorPtr& error) {
            std::fprintf(stderr, "trouble: %s\n", error->localizedDescription().c_str());
        });
        logIn();
    }

private:
    void logIn() {
        if (client_->status() <= VXIMClientStatusOpening) client_->loginWithUserId(user_, nullptr);
        // after an orderly close by the service
        if (client_->status() == VXIMClientStatusPaused) client_->resume();
        vexim::MainQueue::shared().after(1s, [this] { logIn(); });
    }

    static void fail(const vexim::ErrorPtr& error) {
        std::fprintf(stderr, "soak_program: %s\n", error ? error->description().c_str() : "?");
        std::_Exit(1);
    }

    void read() {
        for (std::string line; std::getline(std::cin, line);) {
            vexim::MainQueue::shared().async([this, line] {
                if (line == "end") return end();
                target_ = std::atoll(line.substr(7).c_str());
                sayNext();
            });
        }
        std::_Exit(2);  // the script that controls it has ended
    }

    /// Reads the store from time to time. The first time it also finds out with which number to
    /// continue.
    void count() {
        conversations_->store()->messagesBefore(
            peer_, std::nullopt, 1'000'000,
            [this](const std::optional<std::vector<VXIMStoredMessage>>& messages,
                   const vexim::ErrorPtr& error) {
                if (!messages) return fail(error);
                std::int64_t confirmed = 0;
                std::int64_t heard = 0;
                for (const auto& message : *messages) {
                    if (message.direction == VXIMStoredMessageIncoming) {
                        ++heard;
                        continue;
                    }
                    confirmed += message.state == VXIMStoredMessageConfirmed;
                    said_ = std::max(said_, static_cast<std::int64_t>(std::atoll(
                                                message.text().c_str() + user_.size() + 1)));
                    if (message.state == VXIMStoredMessageFailed)
                        conversations_->retry(message.localId, nullptr);
                }
                if (!isCounted_) std::puts("open");
                isCounted_ = true;
                std::printf("%lld %lld %lld\n", static_cast<long long>(said_),
                            static_cast<long long>(confirmed), static_cast<long long>(heard));
                std::fflush(stdout);
                sayNext();
                vexim::MainQueue::shared().after(
                    200ms + std::chrono::microseconds(20 * messages->size()), [this] { count(); });
            });
    }

    void sayNext() {
        if (!isCounted_ || isSaying_ || said_ >= target_) return;
        isSaying_ = true;
        conversations_->sendText(user_ + " " + std::to_string(said_ + 1), peer_,
                                 [this](const auto& stored, const vexim::ErrorPtr& error) {
                                     if (!stored) return fail(error);
                                     ++said_;
                                     vexim::MainQueue::shared().after(gap_, [this] {
                                         isSaying_ = false;
                                         sayNext();
                                     });
                                 });
    }

    void end() {
        conversations_->store()->exportJSONLines(
            path_ + ".jsonl", std::nullopt,
            [this](const auto& exported, const vexim::ErrorPtr& error) {
                if (!exported) return fail(error);
                conversations_->store()->close(
                    [](bool, const auto&) { vexim::MainQueue::shared().quit(); });
            });
    }

    const std::shared_ptr<VXIMClient> client_;
    const std::string user_;
    const VXIMConversationId peer_;
    const std::string path_;
    const std::chrono::microseconds gap_;
    std::shared_ptr<VXIMConversations> conversations_;
    std::int64_t said_ = 0;
    std::int64_t target_ = 0;
    bool isCounted_ = false;
    bool isSaying_ = false;
};

}  // namespace

int main(int count, char** arguments) {
    if (count != 6) return 2;
    auto client =
        VXIMClient::clientWithAppId("demo-app", "demo-key", std::string("soak-") + arguments[2]);
    client->config()->setSocketURL(vexim::URL::parse(arguments[1]));
    client->config()->setReconnectWait(1);
    client->config()->dictionary().set("reconnectWaitMax", 1);
    const Soak soak(client, arguments[2], arguments[3], arguments[4], std::atof(arguments[5]));
    vexim::MainQueue::shared().run();
}
