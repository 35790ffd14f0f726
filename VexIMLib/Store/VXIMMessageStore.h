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
    /// A file, which is made if it is missing. Or an existing folder (or a path that ends in "/"),
    /// in which each user of each service gets one file. Folders are not made. ":memory:" means no
    /// file: everything is lost when the store closes.
    std::string path = {};
    /// the user whose messages these are; empty (only for a file): the user recorded in it
    std::string userId = {};
    /// the service's origin, as in `VXIMClientConfiguration::socketURL`
    std::string service = {};
    /// only read, search and export; possible while another program writes
    bool readOnly = false;
};

/// Keeps an observer registered. It is not called any more once this object or the store is
/// released.
class VEXIM_EXPORT VXIMStoreObservation {
public:
    ~VXIMStoreObservation();
    VXIMStoreObservation(const VXIMStoreObservation&) = delete;
    VXIMStoreObservation& operator=(const VXIMStoreObservation&) = delete;
    /// Changes the length of the list, for example when the user scrolls to its end. The observer
    /// is then called. Call from any thread.
    void setLimit(std::int32_t limit);

private:
    friend class VXIMMessageStore;
    VXIMStoreObservation();
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// A user's messages on this device: conversations, messages, drafts, and a full-text search, in
/// one SQLite file (mode 0600).
///
///     VXIMMessageStore::open(
///         {.path = folder, .userId = "alice", .service = "https://im.example.org"},
///         [](std::shared_ptr<VXIMMessageStore> store, vexim::ErrorPtr error) { … });
///
/// Every function may be called from any thread and returns at once. The store's thread does the
/// work, in the order of the calls. Completions and observers run on the main queue; a completion
/// may be empty. A change survives a crash once its completion has run. Only one program at a time
/// can have a file open for writing. Errors of all operations are in `VXIMStoreErrorDomain`. On an
/// error the result is nullopt or false.
///
/// Releasing the store is like `close` without a completion: earlier operations are still done.
class VEXIM_EXPORT VXIMMessageStore : public std::enable_shared_from_this<VXIMMessageStore> {
public:
    /// Opens a store, and makes it if it is missing. A file of an older version is upgraded. A
    /// damaged file is renamed and replaced by a new one with all that could be read; `damage` then
    /// reports it. Errors: CannotOpen (3), Newer (4), DiskFull (6), ReadOnly (7), OtherOwner (9),
    /// and Locked (8): at once if another program has opened the file, after two seconds if SQLite
    /// reports a lock.
    static void open(VXIMMessageStoreOptions options, VXIMMessageStoreCompletion completion);
    ~VXIMMessageStore();
    VXIMMessageStore(const VXIMMessageStore&) = delete;
    VXIMMessageStore& operator=(const VXIMMessageStore&) = delete;

    /// Finishes earlier operations, then closes the file. Later operations give Closed (2).
    void close(VXIMBooleanCompletion completion);

    // As given to `open`. `path` is always the file's path, even if you gave a folder.
    const std::string& path() const noexcept { return path_; }
    const std::string& service() const noexcept { return service_; }
    /// The user id from the options, or the recorded one; empty if there is none yet.
    std::string userId() const;
    /// The damaged file that was set aside, when the store was opened or later. Normally nullopt.
    std::optional<VXIMStoreDamage> damage() const;

    /// Gets all conversations, the one with the newest message first, and those without messages
    /// last.
    void conversations(VXIMConversationsCompletion completion) const;
    /// Gets one conversation; nullopt without an error if there is none.
    void conversation(VXIMConversationId id, VXIMConversationCompletion completion) const;
    /// Gets the `limit` messages right before a position (nullopt: the newest ones), the oldest
    /// first.
    void messagesBefore(VXIMConversationId id, std::optional<VXIMStorePosition> position,
                        std::int32_t limit, VXIMStoredMessagesCompletion completion) const;
    /// Gets the `limit` messages right after a position (nullopt: the oldest ones), the oldest
    /// first.
    void messagesAfter(VXIMConversationId id, std::optional<VXIMStorePosition> position,
                       std::int32_t limit, VXIMStoredMessagesCompletion completion) const;
    /// Gets the message with this local id; nullopt without an error if there is none.
    void message(std::int64_t localId, VXIMStoredMessageCompletion completion) const;
    /// Gets the text messages that match, the newest first.
    void search(VXIMMessageSearch search, VXIMStoredMessagesCompletion completion) const;
    /// Gets the places where messages are missing.
    void gaps(VXIMConversationId id, VXIMStoredGapsCompletion completion) const;

    /// Marks the messages up to a position as read (nullopt: all of them).
    void markRead(VXIMConversationId id, std::optional<VXIMStorePosition> upTo,
                  VXIMBooleanCompletion completion);
    /// Stores what the user has begun to write; an empty text removes the draft. Adds the
    /// conversation if it is missing.
    void setDraft(VXIMConversationId id, std::string draft, VXIMBooleanCompletion completion);
    /// Removes a conversation with its messages (also unsent ones), its draft and its attachment
    /// files. The service keeps its copies. A later message adds the conversation again.
    void removeConversation(VXIMConversationId id, VXIMBooleanCompletion completion);
    /// Sets limits and stores them in the file. Messages beyond them are removed now, and whenever
    /// new ones arrive. The result is the number removed now.
    void setRetention(VXIMRetention retention, VXIMCountCompletion completion);

    /// Writes all messages (or those of one conversation) to a file (mode 0600), replacing an
    /// existing one. The format is JSON Lines in UTF-8: one JSON object per line, with
    /// "conversation" {"kind": "friend", "group", "room" or "system", "id"}, "localId", "sentAt"
    /// (milliseconds since 1970), "direction" ("incoming", "outgoing"), "state" ("queued",
    /// "sending", "sent", "confirmed", "failed"), "sender", "receiver", "payload", and "error" if
    /// there is one. Each conversation is in order of time. The file appears only when it is
    /// complete. The result is the number of messages. Errors: Failed (1) if the file cannot be
    /// written.
    void exportJSONLines(std::string path, std::optional<VXIMConversationId> conversation,
                         VXIMCountCompletion completion) const;

    // An observer is called with the current list, and again after each stored change, on the main
    // queue. Changes that come together are reported in one call. Keep the returned object as long
    // as the list is on the screen.
    /// Observes the `limit` conversations with the newest messages, the newest first.
    [[nodiscard]] std::shared_ptr<VXIMStoreObservation> observeConversations(
        std::int32_t limit, VXIMConversationsObserver observer);
    /// Observes the newest `limit` messages of a conversation, the oldest first.
    [[nodiscard]] std::shared_ptr<VXIMStoreObservation> observeMessages(
        VXIMConversationId id, std::int32_t limit, VXIMMessagesObserver observer);
    /// Observes damage. The observer is called when the open file was found damaged and has been
    /// set aside and replaced. Read the histories again then.
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
