#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Store/VXIMConversations.h"
#include "VexIMLib/Testing/FakeService.h"
#include "VexIMLib/Testing/ManualClock.h"
#include "VexIMLib/VexIMLib.h"
#include "VexIMLib/internal/Client/VXIMClientImpl.h"
#include "client/FakeSocket.h"
#include "support/Completions.h"
#include "support/Eventually.h"
#include "support/TemporaryFolder.h"

namespace vexim::testing {

inline const VXIMConversationId kBob{VXIMConversationKindFriend, "bob"};
inline const VXIMConversationId kGroup{VXIMConversationKindGroup, "demo-group"};
inline const VXIMConversationId kRoom{VXIMConversationKindRoom, "demo-room"};

inline Dictionary payloadOf(const std::string& from, const std::string& text, std::int64_t millis,
                            const std::string& to = "bob", const std::string& key = "") {
    Dictionary payload{{"content", Dictionary{{"media", 0}, {"body", text}}},
                       {"ts", millis},
                       {"to", Dictionary{{"id", to}, {"type", 0}}},
                       {"from", Dictionary{{"id", from}, {"type", 0}}}};
    if (!key.empty()) payload.set("key", key);
    return payload;
}

/// Alice's program with a store, over a connection whose server is the test. REST requests go to a
/// real service in this process; the test sets its history with Bob.
class ConversationsTest : public ::testing::Test {
protected:
    ConversationsTest() {
        service.answer(
            "GET", "/ctx/:id/friends/:other/chats",
            [this](const FakeService::Request& request) { return historyPage(request.query); });
    }
    ~ConversationsTest() override {
        end();
        vxim_configuration = nullptr;
    }

    /// Runs the main queue until `predicate` is true, and advances the clock by `step` every two
    /// real milliseconds. The store's thread works in real time, so the clock must not run too
    /// fast.
    [[nodiscard]] bool reaches(const std::function<bool()>& predicate) {
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!MainQueue::shared().runUntil(predicate, std::chrono::milliseconds(2))) {
            if (std::chrono::steady_clock::now() > giveUp) return false;
            clock.advance(step);
        }
        return true;
    }

    /// The program starts, and has not opened its store.
    void create(VXIMConversationsOptions options = {}) {
        if (options.path.empty()) options.path = folder / "alice.db";
        options.userId = "alice";
        options.echoTimeout = echoTimeout;
        client = VXIMClient::Impl::make(service.configuration(),
                                        [this](const auto& url, const auto& socketOptions) {
                                            socket = vexim::create<FakeSocket>(url, socketOptions);
                                            return socket;
                                        });
        conversations = VXIMConversations::conversationsWithClient(client, options);
        conversations->setCaughtUpHandler(
            [this](const VXIMCaughtUp& caughtUp) { reports.push_back(caughtUp); });
        conversations->setTroubleHandler(
            [this](const ErrorPtr& error) { troubles.push_back(error->localizedDescription()); });
    }
    /// The program starts.
    void start(VXIMConversationsOptions options = {}) {
        create(std::move(options));
        ErrorPtr why;
        bool isOpen = false;
        conversations->open(
            once([&](bool opened, const ErrorPtr& error) { isOpen = opened, why = error; }));
        ASSERT_TRUE(reaches([&] { return isOpen || why; }));
        ASSERT_FALSE(why) << why->description();
    }
    /// The program ends. It closes its store, but does not log out.
    void end() {
        if (!conversations) return;
        const auto store = conversations->store();
        conversations = nullptr;
        client = nullptr;
        socket = nullptr;
        bool isClosed = !store;
        if (store) store->close(once([&](bool, const ErrorPtr&) { isClosed = true; }));
        ASSERT_TRUE(reaches([&] { return isClosed; }));
    }
    void logIn(const std::string& user = "alice") {
        client->loginWithUserId(user, nullptr);
        ASSERT_TRUE(reaches([&] { return client->status() == VXIMClientStatusOpening; }));
        comeBack(user);
    }
    /// The connection opens, and the service accepts the login.
    void comeBack(const std::string& user = "alice") {
        socket->accept();
        socket->send("login", {Dictionary{{"success", true}, {"id", user}}});
        ASSERT_TRUE(reaches([&] { return client->status() == VXIMClientStatusOpened; }));
    }
    void cut() {
        socket->drop();
        ASSERT_TRUE(reaches([&] { return client->status() == VXIMClientStatusPaused; }));
    }
    void reconnect() {
        socket->attemptReconnect();
        comeBack();
    }
    void startAndLogIn(VXIMConversationsOptions options = {}) {
        start(std::move(options));
        logIn();
        ASSERT_TRUE(reaches([&] { return !reports.empty(); }));
    }

    /// Queues a text and waits until it is written.
    std::int64_t send(const std::string& text, const VXIMConversationId& conversation = kBob) {
        return send(VXIMMessage::messageWithText(text), conversation);
    }
    std::int64_t send(const std::shared_ptr<VXIMMessage>& message,
                      const VXIMConversationId& conversation = kBob) {
        std::optional<std::int64_t> localId;
        conversations->send(
            message, conversation, nullptr,
            once([&](const std::optional<VXIMStoredMessage>& stored, const ErrorPtr& error) {
                localId = stored ? stored->localId : -1;
                if (error) troubles.push_back(error->localizedDescription());
            }));
        // the clock stands still, so no pause ends meanwhile
        EXPECT_TRUE(eventually([&] { return localId.has_value(); }));
        return localId.value_or(-1);
    }

    /// The payloads that the connection has taken, of this and former connections.
    std::vector<Dictionary> said() const {
        std::vector<Dictionary> payloads;
        for (const auto& [event, items] : socket->emitted)
            payloads.push_back(*items.get(0).asDictionary());
        return payloads;
    }
    /// Their texts, in order: "one two".
    std::string saidTexts() const {
        std::string texts;
        for (const auto& payload : said())
            texts += (texts.empty() ? "" : " ") + payload.get("content").get("body").description();
        return texts;
    }
    [[nodiscard]] bool says(const std::string& texts) {
        return reaches([&] { return saidTexts() == texts; });
    }
    /// The service sends an own message back, perhaps changed.
    void echo(Dictionary payload, const std::function<void(Dictionary&)>& change = {}) {
        payload.set("from", Dictionary{{"id", "alice"}, {"type", payload.get("to").get("type")}});
        if (change) change(payload);
        socket->send("yourself", {payload});
    }

    /// What the store has of a conversation, oldest first: "one:confirmed two:failed", incoming
    /// ones as "<text".
    std::string stored(const VXIMConversationId& conversation = kBob) {
        std::optional<std::string> line;
        conversations->store()->messagesBefore(
            conversation, std::nullopt, 10'000,
            once([&](const std::optional<std::vector<VXIMStoredMessage>>& messages,
                     const ErrorPtr&) {
                line = "";
                for (const auto& message : messages.value_or(std::vector<VXIMStoredMessage>()))
                    *line += describe(message);
            }));
        EXPECT_TRUE(reaches([&] { return line.has_value(); }));
        return line->empty() ? "nothing" : line->substr(1);
    }
    [[nodiscard]] bool becomes(const std::string& wanted,
                               const VXIMConversationId& conversation = kBob) {
        std::string now;
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while ((now = stored(conversation)) != wanted &&
               std::chrono::steady_clock::now() < giveUp) {
            int turns = 0;
            (void)reaches([&] { return ++turns > 4; });
        }
        if (now != wanted) ADD_FAILURE() << "stored: " << now << "\nwanted: " << wanted;
        return now == wanted;
    }
    std::int64_t nowMillis() const { return static_cast<std::int64_t>(clock.wallTime() * 1000); }
    void setHistory(std::vector<Dictionary> messages) {
        const std::lock_guard lock(mutex);
        served = std::move(messages);
    }

    /// Answers the next requests for a history with `answer` instead.
    void answerHistories(const FakeService::Answer& answer, std::size_t times) {
        const std::lock_guard lock(mutex);
        answers.assign(times, answer);
    }

    ManualClock clock;
    std::chrono::milliseconds step{250};
    FakeService service;
    TemporaryFolder folder;
    std::shared_ptr<FakeSocket> socket;
    std::shared_ptr<VXIMClient> client;
    std::shared_ptr<VXIMConversations> conversations;
    std::vector<VXIMCaughtUp> reports;
    std::vector<std::string> troubles;
    std::chrono::seconds echoTimeout = std::chrono::hours(1'000);

private:
    static std::string describe(const VXIMStoredMessage& message) {
        if (message.direction == VXIMStoredMessageIncoming) return " <" + message.text();
        static const char* const names[] = {"queued", "sending", "sent", "confirmed", "failed"};
        return " " + (message.mediaType == VXIMMessageMediaTypeText ? message.text() : "file") +
               ":" + names[message.state];
    }
    static std::int64_t number(const std::string& query, const std::string& name) {
        return std::stoll(query.substr(query.find(name + "=") + name.size() + 1));
    }
    FakeService::Answer historyPage(const std::string& query) {
        const std::lock_guard lock(mutex);
        if (!answers.empty()) {
            const auto answer = answers.back();
            answers.pop_back();
            return answer;
        }
        auto sorted = served;
        std::ranges::stable_sort(sorted, {}, [](const Dictionary& payload) {
            return payload.get("ts").longLongValue();
        });
        Array page;
        for (auto message = sorted.rbegin(); message != sorted.rend(); ++message) {
            if (message->get("ts").longLongValue() >= number(query, "ts")) continue;
            if (static_cast<std::int64_t>(page.size()) >= number(query, "limit")) break;
            page.append(*message);
        }
        return {.body = page};
    }

    std::mutex mutex;
    std::vector<Dictionary> served;
    std::vector<FakeService::Answer> answers;
};

}  // namespace vexim::testing
