#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Store/VXIMStoreTypes.h"
#include "VexIMLib/Store/internal/Database.h"
#include "VexIMLib/Store/internal/Operations.h"
#include "VexIMLib/Store/internal/Payloads.h"

namespace vexim::store {

/// What a group of jobs has changed, for observers.
struct Touched {
    std::set<std::int64_t> conversations;  // by their rows
    std::set<std::int64_t> messages;       // changed in place
    bool list = false;                     // a conversation was added or removed
    std::vector<std::string> files;        // files to remove after the commit
};

/// The open database, its user, and cached data. For the store's thread.
class Tables {
public:
    /// `folder` is for copies of attachments.
    Tables(Database& open, std::string user, std::string folder)
        : database(open),
          userId(std::move(user)),
          filesFolder(std::move(folder)) {}

    Database& database;
    std::string userId;
    const std::string filesFolder;
    Touched touched;

    struct Conversation {
        std::int64_t row = 0;
        VXIMConversationId id;
        VXIMStorePosition last;  // of the newest message; 0, 0: there is none
        std::int64_t unread = 0;
        std::string draft;
        std::int64_t knownUntil = 0;
    };
    /// nullptr if there is none. Change the result in place; `save` writes it.
    Conversation* find(const VXIMConversationId& id);
    Conversation& findOrMake(const VXIMConversationId& id);
    Conversation& ofRow(std::int64_t row);
    std::vector<Conversation*> all();
    void save(const Conversation& conversation);
    VXIMConversation conversation(const Conversation& conversation);
    /// Drops what is cached. Call it after a rollback and after removing conversations.
    void forget();

    // One message, by its row.
    struct Row {
        std::int64_t id = 0;
        std::int64_t conversation = 0;
        std::int64_t sentAt = 0;
        VXIMStoredMessageDirection direction = VXIMStoredMessageIncoming;
        VXIMStoredMessageState state = VXIMStoredMessageConfirmed;
        std::string payload;
        std::string error;  // as JSON; empty: none
        std::int64_t attempts = 0;
    };
    /// Selects messages for `readRow`. `rest` is the SQL after "FROM message".
    Statement select(std::string_view rest);
    std::optional<Row> row(std::int64_t id);
    VXIMStoredMessage message(const Row& row);
    std::optional<VXIMStoredMessage> message(std::int64_t id);

    /// Inserts it with a new id and adds its words to the index. Updates the conversation's newest
    /// message.
    std::int64_t insert(Conversation& conversation, std::int64_t sentAt,
                        VXIMStoredMessageDirection direction, VXIMStoredMessageState state,
                        const Dictionary& payload, const std::string& json);
    /// Inserts it unchanged, with its id.
    void restore(const Row& row, const Dictionary& payload);
    /// Writes state, error, attempts, time and, if given, the payload.
    void update(const Row& row, const std::optional<Dictionary>& payload);
    /// Removes it with its words and files. Call `repair` to update the conversation's newest
    /// message and unread count.
    void remove(const Row& row);
    void repair(Conversation& conversation);
    /// The most hours by which an id differs from its message's time.
    std::int64_t drift();
    /// Removes the files of a message from the tables, and from the disk after the commit.
    void releaseFiles(std::int64_t id);

private:
    void write(std::int64_t id, std::int64_t conversation, std::int64_t sentAt,
               VXIMStoredMessageDirection direction, VXIMStoredMessageState state,
               const Dictionary& payload, const std::string& json);
    Conversation& remember(Conversation conversation);
    std::int64_t freshId(std::int64_t sentAt);
    void noteDrift(std::int64_t idHour, std::int64_t sentAt);

    std::map<VXIMConversationId, Conversation> known_;
    std::map<std::int64_t, VXIMConversationId> byRow_;
    std::map<std::int64_t, std::int64_t> nextInHour_;
    std::optional<std::int64_t> drift_;
    bool areAllKnown_ = false;
};

// What an id tells: see Messages.cpp.
inline constexpr int kHourBits = 20;
inline constexpr std::int64_t kMillisOfHour = 3'600'000;
std::int64_t hourOf(std::int64_t millis);

// The columns that `readRow` reads, in order. "attempts" follows, except in files of the first
// version.
inline constexpr std::string_view kFirstRowColumns =
    "id, conversation, sent_at, direction, state, payload, error";
Tables::Row readRow(const Statement& statement);

}  // namespace vexim::store
