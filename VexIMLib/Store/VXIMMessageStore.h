#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Store/VXIMStoreErrors.h"
#include "VexIMLib/Store/VXIMStoreTypes.h"
#include "VexIMLib/VXIMCompletions.h"

class VXIMMessageStore;

namespace vexim::store {
class Engine;
class Operations;
}  // namespace vexim::store

/// On success (the open store, nullptr), on failure (nullptr, the error).
using VXIMMessageStoreCompletion =
    std::function<void(std::shared_ptr<VXIMMessageStore> store, vexim::ErrorPtr error)>;

/// Which store to open.
struct VXIMMessageStoreOptions {
    /// A file, made when it is missing; or a folder that exists (or a path that ends in "/"), where
    /// each user of each service gets a file of its own. Folders are not made. ":memory:": no file;
    /// all is gone with the store.
    std::string path = {};
    /// whose messages these are; empty, for a file only: of whoever is recorded in it
    std::string userId = {};
    /// the service's origin, as in `VXIMClientConfiguration::socketURL`
    std::string service = {};
    /// for a look beside the program that writes: reads, searches and exports only
    bool readOnly = false;
};

/// Keeps an observer: it hears no more once this is released, or the store is.
class VEXIM_EXPORT VXIMStoreObservation {
public:
    ~VXIMStoreObservation();
    VXIMStoreObservation(const VXIMStoreObservation&) = delete;
    VXIMStoreObservation& operator=(const VXIMStoreObservation&) = delete;
    /// Makes the list longer or shorter, as when the user scrolls to its end; the observer hears of
    /// it.
    void setLimit(std::int32_t limit);

private:
    friend class VXIMMessageStore;
    VXIMStoreObservation();
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// A user's messages on this device: conversations, messages, drafts, and a search over all texts,
/// in one SQLite file (mode 0600).
///
///     VXIMMessageStore::open({.path = folder, .userId = "alice", .service =
///     "https://im.example.org"},
///                            [](std::shared_ptr<VXIMMessageStore> store, vexim::ErrorPtr error) {
///                            … });
///
/// Everything may be called from any thread and returns at once. One thread of the store's own does
/// the work, in the order of the calls; completions and observers run on the main queue. What a
/// completion told as done outlives the process's sudden end. One program at a time can have a file
/// open for writing.
///
/// Releasing the store is a `close` without a completion: what was asked for before is still done.
class VEXIM_EXPORT VXIMMessageStore : public std::enable_shared_from_this<VXIMMessageStore> {
public:
    /// Opens a store, or makes it. A file of an earlier version is brought to the present one. A
    /// damaged file is renamed and a fresh one made, with all that could be read; `damage` then
    /// says so. Errors: CannotOpen, Newer, OtherOwner, ReadOnly, Locked (at once when another
    /// program has it, after two seconds when SQLite says so), DiskFull.
    static void open(VXIMMessageStoreOptions options, VXIMMessageStoreCompletion completion);
    ~VXIMMessageStore();
    VXIMMessageStore(const VXIMMessageStore&) = delete;
    VXIMMessageStore& operator=(const VXIMMessageStore&) = delete;

    /// Does what was asked for before, then closes the file. Operations after it end with Closed.
    void close(VXIMBooleanCompletion completion);

    // As it was opened; `path` is the file's, also when a folder was named.
    const std::string& path() const noexcept { return path_; }
    const std::string& service() const noexcept { return service_; }
    /// The recorded one when the options named none; empty when there is none yet.
    std::string userId() const;
    /// What was set aside when the store was opened or since; nullopt normally.
    std::optional<VXIMStoreDamage> damage() const;

    /// All conversations, the one with the newest message first, those without a message last.
    void conversations(VXIMConversationsCompletion completion) const;
    /// One of them.
    void conversation(VXIMConversationId id, VXIMConversationCompletion completion) const;
    /// The `limit` messages of a conversation that stand right before a position (nullopt: the
    /// newest ones), the oldest first.
    void messagesBefore(VXIMConversationId id, std::optional<VXIMStorePosition> position,
                        std::int32_t limit, VXIMStoredMessagesCompletion completion) const;
    /// The `limit` messages that stand right behind a position (nullopt: the oldest ones), the
    /// oldest first.
    void messagesAfter(VXIMConversationId id, std::optional<VXIMStorePosition> position,
                       std::int32_t limit, VXIMStoredMessagesCompletion completion) const;
    /// The message with this local id.
    void message(std::int64_t localId, VXIMStoredMessageCompletion completion) const;
    /// Texts that match, the newest first.
    void search(VXIMMessageSearch search, VXIMStoredMessagesCompletion completion) const;
    /// Where messages are missing that the service does not have any more.
    void gaps(VXIMConversationId id, VXIMStoredGapsCompletion completion) const;

    /// Counts the messages up to a position (nullopt: all) as read.
    void markRead(VXIMConversationId id, std::optional<VXIMStorePosition> upTo,
                  VXIMBooleanCompletion completion);
    /// Keeps what the user has begun to write; empty: nothing. Makes the conversation when there is
    /// none.
    void setDraft(VXIMConversationId id, std::string draft, VXIMBooleanCompletion completion);
    /// Removes a conversation with its messages, unsent ones too, its draft and its attachment
    /// files. Nothing is removed from the service. A message that comes later makes the
    /// conversation anew.
    void removeConversation(VXIMConversationId id, VXIMBooleanCompletion completion);
    /// Sets the limits, which are kept in the file, and removes what is beyond them: now, and as
    /// messages come. The result is how many were removed now.
    void setRetention(VXIMRetention retention, VXIMCountCompletion completion);

    /// Writes all messages (or those of one conversation) to a file, mode 0600, which is replaced
    /// when it is there: one JSON object a line (JSON Lines, UTF-8), with "conversation" {"kind":
    /// "friend", "group", "room" or "system", "id"}, "localId", "sentAt" (milliseconds since 1970),
    /// "direction" ("incoming", "outgoing"), "state" ("queued", "sending", "sent", "confirmed",
    /// "failed"), "sender", "receiver", "payload", and "error" where there is one. In the order of
    /// time of each conversation. The file is there when it is whole. The result is the number of
    /// messages.
    void exportJSONLines(std::string path, std::optional<VXIMConversationId> conversation,
                         VXIMCountCompletion completion) const;

    // An observer hears the list once as it is, then after each change that was written, on the
    // main queue. Changes that come together are told together. The answer keeps it: hold it as
    // long as the list is on the screen.
    /// The `limit` conversations with the newest messages, the newest first.
    [[nodiscard]] std::shared_ptr<VXIMStoreObservation> observeConversations(
        std::int32_t limit, VXIMConversationsObserver observer);
    /// The newest `limit` messages of a conversation, the oldest first.
    [[nodiscard]] std::shared_ptr<VXIMStoreObservation> observeMessages(
        VXIMConversationId id, std::int32_t limit, VXIMMessagesObserver observer);
    /// Hears when the open file is found damaged, was set aside and replaced: read the histories
    /// again.
    [[nodiscard]] std::shared_ptr<VXIMStoreObservation> observeDamage(
        VXIMStoreDamageObserver observer);

private:
    friend class vexim::store::Operations;
    VXIMMessageStore(std::shared_ptr<vexim::store::Engine> engine, std::string path,
                     std::string service);
    const std::shared_ptr<vexim::store::Engine> engine_;
    const std::string path_;
    const std::string service_;
};
