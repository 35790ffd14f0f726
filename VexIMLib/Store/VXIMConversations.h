#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Store/VXIMMessageStore.h"
#include "VexIMLib/VXIMCompletions.h"

class VXIMClient;
class VXIMMessage;

/// What `VXIMConversations` keeps where, and how long it tries.
struct VXIMConversationsOptions {
    /// As `VXIMMessageStoreOptions::path`: a file, or a folder with a file for each user of each
    /// service.
    std::string path = {};
    /// Whose messages these are. Empty: the user that logs in first, and the store opens then.
    std::string userId = {};

    // Limits of what waits to be sent: a message beyond `mostUnsent` is not taken; one that has
    // waited for `longestWait` fails.
    std::int32_t mostUnsent = 10'000;
    std::chrono::hours longestWait{7 * 24};
    /// How long the service may take to send a message back until it is asked for it.
    std::chrono::seconds echoTimeout{15};

    // How far back a conversation is read after a login, at most; what is older is marked as a gap.
    std::int32_t mostCaughtUp = 2'000;
    std::chrono::hours farthestCaughtUp{30 * 24};
};

/// What a login or a reconnect has brought.
struct VXIMCaughtUp {
    /// messages of others that came while this program was not connected
    std::int64_t missedCount = 0;
    /// conversations in which some can no longer be had; `VXIMMessageStore::gaps` has them
    std::int64_t gapCount = 0;
    /// what could not be read; nullptr: nothing
    vexim::ErrorPtr error;
};

/// A client with a memory: a message store, an outbox that survives, and catching up.
///
///     auto client = VXIMClient::clientWithAppId("app", "key", "installation");
///     auto conversations = VXIMConversations::conversationsWithClient(client, {.path = folder,
///     .userId = "alice"}); conversations->open([](bool opened, vexim::ErrorPtr error) { … });
///     client->loginWithUserId("alice", …);
///     conversations->sendText("hello", {VXIMConversationKindFriend, "bob"}, nullptr);
///
/// What is sent is written first, and goes out when it can: now, after a reconnect, after the next
/// login, or when the program runs the next time. Each conversation keeps its order. A message is
/// Queued, Sending, Sent when the connection has taken it, and Confirmed when the service has sent
/// it back or has it in the history. A failure that may pass (no connection, a service that is
/// down) holds it and those behind it in its conversation, and it is tried again; any other makes
/// it Failed, with the error.
///
/// After each accepted login the histories are read back to what is known. What other devices of
/// the user sent is there, too.
///
/// The client stays the application's: log in, log out, pause, and set a delegate as without this
/// class. Main thread only; all completions and handlers run on the main queue. Releasing it ends
/// the observing; what waits is sent by the next one.
class VEXIM_EXPORT VXIMConversations final {
public:
    /// Nothing happens before `open`. nullptr as the client raises NSInvalidArgumentException.
    static std::shared_ptr<VXIMConversations> conversationsWithClient(
        std::shared_ptr<VXIMClient> client, VXIMConversationsOptions options);
    ~VXIMConversations();
    VXIMConversations(const VXIMConversations&) = delete;
    VXIMConversations& operator=(const VXIMConversations&) = delete;

    /// Opens the store; may be called before or after the login. `completion` runs when it is open:
    /// without a user id in the options not before the first accepted login. Errors: those of
    /// `VXIMMessageStore::open`; it may then be called again.
    void open(VXIMBooleanCompletion completion);
    /// The open store, to list, page, search and observe; nullptr before it is open.
    std::shared_ptr<VXIMMessageStore> store() const;
    /// The client that it was made with.
    const std::shared_ptr<VXIMClient>& client() const;

    /// Queues a message; a file is copied first. `completion` gets it as stored; from then on it is
    /// not lost. Errors: those of the store, OutboxFull, Closed before the store is open.
    /// `progress` hears the upload, as long as this program runs. A message without the id of a
    /// friend, a group or a room raises NSInvalidArgumentException.
    void send(std::shared_ptr<VXIMMessage> message, VXIMConversationId conversation,
              VXIMProgress progress, VXIMStoredMessageCompletion completion);
    /// A text; as `send`.
    void sendText(std::string text, VXIMConversationId conversation,
                  VXIMStoredMessageCompletion completion);
    /// Sends a failed message again, at its old place; one that waits after a failure is tried at
    /// once. NotFound for any other.
    void retry(std::int64_t localId, VXIMBooleanCompletion completion);
    /// Takes back a message that is not confirmed. What the service has by then it keeps, and its
    /// echo brings it back.
    void cancel(std::int64_t localId, VXIMBooleanCompletion completion);

    /// Reads from the service what is missing in one of `VXIMMessageStore::gaps`, up to 100
    /// messages from its newer end: as when the user scrolls back to it. The gap becomes shorter,
    /// or goes with its last message. `completion` gets how many were stored. Errors: those of the
    /// request and of the store, Closed before the store is open. A room has no history: its gaps
    /// stay, and the number is 0.
    void readGap(VXIMConversationId conversation, VXIMStoredGap gap,
                 VXIMCountCompletion completion);

    /// Runs after each login and reconnect, when the histories have been read.
    void setCaughtUpHandler(std::function<void(const VXIMCaughtUp&)> handler);
    /// Hears what no completion tells: the store did not take a change (it is tried again), or
    /// another user has logged in (OtherOwner), of whom nothing is stored here.
    void setTroubleHandler(std::function<void(const vexim::ErrorPtr&)> handler);

private:
    struct Impl;
    explicit VXIMConversations(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}
    const std::shared_ptr<Impl> impl_;
};
