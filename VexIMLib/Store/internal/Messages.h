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

/// What a group of jobs has touched, for observers.
struct Touched {
    std::set<std::int64_t> conversations;  // by their rows
    std::set<std::int64_t> messages;       // changed in place
    bool list = false;                     // a conversation came or went
    std::vector<std::string> files;        // to be removed once it is written
};

/// What is open: a database, whose it is, and what is remembered of it. For the store's thread.
class Tables {
public:
    /// `folder` is where copies of attachments lie.
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
    /// nullptr when there is none. What is answered may be changed in place; `save` writes it.
    Conversation* find(const VXIMConversationId& id);
    Conversation& findOrMake(const VXIMConversationId& id);
    Conversation& ofRow(std::int64_t row);
    std::vector<Conversation*> all();
    void save(const Conversation& conversation);
    VXIMConversation conversation(const Conversation& conversation);
    /// After a rollback, and after conversations were removed.
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
    /// The messages that `rest`, which stands behind "FROM message", names; for `readRow`.
    Statement select(std::string_view rest);
    std::optional<Row> row(std::int64_t id);
    VXIMStoredMessage message(const Row& row);
    std::optional<VXIMStoredMessage> message(std::int64_t id);

    /// Inserts it under a fresh id, with its words. The conversation's newest message follows.
    std::int64_t insert(Conversation& conversation, std::int64_t sentAt,
                        VXIMStoredMessageDirection direction, VXIMStoredMessageState state,
                        const Dictionary& payload, const std::string& json);
    /// Inserts it as it is, under its id.
    void restore(const Row& row, const Dictionary& payload);
    /// Writes state, error, attempts, time and, if given, the payload.
    void update(const Row& row, const std::optional<Dictionary>& payload);
    /// With its words and files; the conversation's newest message and unread count follow only by
    /// `repair`.
    void remove(const Row& row);
    void repair(Conversation& conversation);
    /// By how many hours at most an id is off its message's time.
    std::int64_t drift();
    /// Forgets the files of a message, and has them removed after the commit.
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

// What `readRow` reads, in this order, and behind it "attempts", which a file of the first version
// does not have.
inline constexpr std::string_view kFirstRowColumns =
    "id, conversation, sent_at, direction, state, payload, error";
Tables::Row readRow(const Statement& statement);

}  // namespace vexim::store
