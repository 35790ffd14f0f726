#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Async/Future.h"
#include "VexIMLib/Store/VXIMMessageStore.h"
#include "VexIMLib/Store/internal/Operations.h"
#include "VexIMLib/VXIMErrors.h"
#include "store/Damages.h"
#include "support/TemporaryFolder.h"

namespace vexim::testing {

using store::Arrival;
using store::Change;
using store::Merged;
using store::Operations;
using store::Outcome;

/// A store of alice's, and shortcuts that wait for each operation. They throw `vexim::Failure`.
class StoreTest : public ::testing::Test {
protected:
    static inline const VXIMConversationId bob{VXIMConversationKindFriend, "bob"};
    static inline const VXIMConversationId team{VXIMConversationKindGroup, "team"};
    static constexpr std::int64_t kNoon = 1'700'000'000'000;
    static constexpr std::int64_t kHour = 3'600'000;

    std::string path() const { return (folder / "alice.vexim").string(); }

    void open(VXIMMessageStoreOptions options = {}) {
        shut();
        if (options.path.empty()) options.path = path();
        if (options.userId.empty()) options.userId = "alice";
        if (options.service.empty()) options.service = "https://im.example";
        store = wait(call(&VXIMMessageStore::open, options));
        operations.emplace(store);
    }
    /// The code of the error that opening ends with; 0 when it opens.
    std::int64_t codeOfOpening(VXIMMessageStoreOptions options = {}) {
        return codeOf([&] { open(std::move(options)); });
    }
    void shut() {
        operations.reset();
        if (store) wait(call(&VXIMMessageStore::close, store));
        store = nullptr;
    }
    ~StoreTest() override { shut(); }

    /// The code in the store's domain that `body` fails with; 0 for none.
    template <class Body>
    static std::int64_t codeOf(Body body) {
        try {
            body();
            return 0;
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.error()->domain(), VXIMStoreErrorDomain);
            EXPECT_FALSE(failure.error()->localizedDescription().empty());
            return failure.error()->code();
        }
    }

    static Dictionary payload(const std::string& text, std::int64_t sentAt,
                              const std::string& from = {}, const std::string& key = {}) {
        Dictionary made{{"content", Dictionary{{"media", 0}, {"body", text}}}, {"ts", sentAt}};
        if (!from.empty()) made.set("from", Dictionary{{"id", from}, {"type", 0}});
        if (!key.empty()) made.set("key", key);
        return made;
    }
    std::vector<Merged> insert(std::vector<Arrival> arrivals) {
        using Result = std::optional<std::vector<Merged>>;
        return *wait(call([&](std::function<void(Result, ErrorPtr)> done) {
            operations->insert(arrivals, std::move(done));
        }));
    }
    Merged receive(const std::string& text, std::int64_t sentAt,
                   const VXIMConversationId& conversation = bob) {
        return insert({{.conversation = conversation, .payload = payload(text, sentAt, "bob")}})
            .front();
    }
    Merged echo(Dictionary sent, const VXIMConversationId& conversation = bob) {
        sent.set("from", Dictionary{{"id", "alice"}, {"type", 0}});
        return insert({{.conversation = conversation,
                        .payload = sent,
                        .direction = VXIMStoredMessageOutgoing}})
            .front();
    }
    VXIMStoredMessage write(const std::string& text, std::int64_t sentAt,
                            const std::string& key = {}, std::vector<std::string> files = {}) {
        return *wait(call(&Operations::addOutgoing, shared(), bob, payload(text, sentAt, {}, key),
                          std::move(files)));
    }
    VXIMStoredMessage change(std::int64_t id, Change what) {
        return *wait(call(&Operations::change, shared(), id, std::move(what)));
    }
    std::vector<VXIMStoredMessage> before(std::optional<VXIMStorePosition> position, int limit,
                                          const VXIMConversationId& id = bob) {
        return *wait(call(&VXIMMessageStore::messagesBefore, store, id, position, limit));
    }
    std::vector<VXIMStoredMessage> after(std::optional<VXIMStorePosition> position, int limit,
                                         const VXIMConversationId& id = bob) {
        return *wait(call(&VXIMMessageStore::messagesAfter, store, id, position, limit));
    }
    std::vector<VXIMStoredMessage> search(VXIMMessageSearch what) {
        return *wait(call(&VXIMMessageStore::search, store, what));
    }
    std::vector<VXIMConversation> conversations() {
        return *wait(call(&VXIMMessageStore::conversations, store));
    }
    std::shared_ptr<Operations> shared() { return {std::shared_ptr<void>(), &*operations}; }

    /// "one two": the texts, in their order.
    static std::string texts(const std::vector<VXIMStoredMessage>& messages) {
        std::string answer;
        for (const auto& each : messages) answer += (answer.empty() ? "" : " ") + each.text();
        return answer;
    }

    TemporaryFolder folder{"vexim-store"};
    std::shared_ptr<VXIMMessageStore> store;
    std::optional<Operations> operations;
};

}  // namespace vexim::testing
