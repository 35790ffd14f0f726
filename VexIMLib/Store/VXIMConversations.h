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

/// Where `VXIMConversations` stores its messages, and how long it keeps trying.
struct VXIMConversationsOptions {
    /// Like `VXIMMessageStoreOptions::path`: a file, or a folder with one file for each user of
    /// each service.
    std::string path = {};
    /// The user whose messages these are. If empty, it is the first user who logs in, and the store
    /// opens at that login.
    std::string userId = {};

    // Limits of the outbox: it holds `mostUnsent` messages and refuses more; a message that has
    // waited for `longestWait` fails.
    std::int32_t mostUnsent = 10'000;
    std::chrono::hours longestWait{7 * 24};
    /// How long to wait for the service to send a message back, before asking the service for it.
    std::chrono::seconds echoTimeout{15};

    // How far back a conversation is read after a login, in messages and in time. What is older is
    // recorded as a gap.
    std::int32_t mostCaughtUp = 2'000;
    std::chrono::hours farthestCaughtUp{30 * 24};
};

/// What catching up after a login or a reconnect has found.
struct VXIMCaughtUp {
    /// messages from others that arrived while this program was not connected
    std::int64_t missedCount = 0;
    /// conversations with messages that the service no longer has; see `VXIMMessageStore::gaps`
    std::int64_t gapCount = 0;
    /// why something could not be read; nullptr if all went well
    vexim::ErrorPtr error;
};

/// Adds a message store to a client, an outbox that survives restarts, and catching up after a
/// login.
///
///     auto client = VXIMClient::clientWithAppId("app", "key", "installation");
///     auto conversations = VXIMConversations::conversationsWithClient(
///         client, {.path = folder, .userId = "alice"});
///     conversations->open([](bool opened, vexim::ErrorPtr error) { … });
///     client->loginWithUserId("alice", …);
///     conversations->sendText("hello", {VXIMConversationKindFriend, "bob"}, nullptr);
///
/// A message is stored before it is sent. It goes out as soon as possible: now, after a reconnect,
/// after the next login, or when the program runs the next time. Each conversation keeps its order.
/// A message is Queued, then Sending, then Sent once the connection has accepted it, and Confirmed
/// once the service has sent it back or has it in the history. After a temporary failure (no
/// connection, a service that is down) it is tried again; until then it and the later ones of its
/// conversation wait. Any other failure makes it Failed, with the error.
///
/// After each accepted login the new part of each history is read. This includes what the user's
/// other devices have sent.
///
/// The client still belongs to the application: log in, log out, pause, and set a delegate as you
/// would without this class. Main thread only; all completions and handlers run on the main queue.
/// Releasing this object stops its work; the next one sends what still waits. A completion may be
/// empty.
class VEXIM_EXPORT VXIMConversations final {
public:
    /// Makes the object; `open` starts it. A nullptr client raises NSInvalidArgumentException.
    static std::shared_ptr<VXIMConversations> conversationsWithClient(
        std::shared_ptr<VXIMClient> client, VXIMConversationsOptions options);
    ~VXIMConversations();
    VXIMConversations(const VXIMConversations&) = delete;
    VXIMConversations& operator=(const VXIMConversations&) = delete;

    /// Opens the store, before or after the login. `completion` runs when it is open. Without a
    /// user id in the options that is after the first accepted login. Errors: those of
    /// `VXIMMessageStore::open`, in `VXIMStoreErrorDomain`. After an error you may call it again.
    void open(VXIMBooleanCompletion completion);
    /// The store, for listing, paging, searching and observing; nullptr until it is open.
    std::shared_ptr<VXIMMessageStore> store() const;
    /// The client that this object was made with.
    const std::shared_ptr<VXIMClient>& client() const;

    /// Queues a message, and copies its attachment file first. `completion` gets the stored
    /// message; from then on it cannot be lost. Errors in `VXIMStoreErrorDomain`: those of the
    /// store, OutboxFull (23), and Closed (2) if the store is not open yet. `progress` reports the
    /// upload, while this program runs. A conversation without the id of a friend, a group or a
    /// room raises NSInvalidArgumentException, and so does a nullptr message.
    void send(std::shared_ptr<VXIMMessage> message, VXIMConversationId conversation,
              VXIMProgress progress, VXIMStoredMessageCompletion completion);
    /// Queues a text, like `send`.
    void sendText(std::string text, VXIMConversationId conversation,
                  VXIMStoredMessageCompletion completion);
    /// Sends a failed message again, at its old place. If it is waiting after a failure, it is
    /// tried at once. Any other message gives NotFound (10).
    void retry(std::int64_t localId, VXIMBooleanCompletion completion);
    /// Removes a message that is not confirmed yet. If the service already has it, it keeps it, and
    /// the message comes back with the service's echo. Any other message gives NotFound (10).
    void cancel(std::int64_t localId, VXIMBooleanCompletion completion);

    /// Reads missing messages of one of `VXIMMessageStore::gaps` from the service: up to 100, from
    /// the newer end of the gap. Call it when the user scrolls back to the gap. The gap becomes
    /// shorter, or is removed when it is filled. `completion` gets the number of messages stored.
    /// Errors: those of the request (`VXErrorDomain`) and of the store (`VXIMStoreErrorDomain`),
    /// and Closed (2) if the store is not open yet. Rooms have no history: their gaps stay, and the
    /// number is 0.
    void readGap(VXIMConversationId conversation, VXIMStoredGap gap,
                 VXIMCountCompletion completion);

    /// Sets the function that is called after each login and reconnect, when the histories have
    /// been read. An empty one removes it.
    void setCaughtUpHandler(std::function<void(const VXIMCaughtUp&)> handler);
    /// Sets the function that gets the errors without a completion: the store could not write a
    /// change (it is tried again), or another user has logged in (OtherOwner), whose messages are
    /// not stored here. An empty one removes it.
    void setTroubleHandler(std::function<void(const vexim::ErrorPtr&)> handler);

private:
    struct Impl;
    explicit VXIMConversations(std::shared_ptr<Impl> impl) : impl_(std::move(impl)) {}
    const std::shared_ptr<Impl> impl_;
};
