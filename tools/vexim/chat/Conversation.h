#pragma once

#include <compare>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace chat {

/// After this many seconds a message should have come back from the service.
inline constexpr double kPatience = 5;

/// The console is for everything that belongs to no conversation: system messages, and this
/// program's own notices.
enum class Kind : std::uint8_t { Console, Friend, Group, Room };

struct Address {
    Kind kind = Kind::Console;
    std::string id;
    auto operator<=>(const Address&) const = default;
};

/// How far a message has come. The service sends a user's own messages back, and only then do we
/// know that they were delivered.
enum class Delivery : std::uint8_t {
    Received,
    Waiting,      ///< is sent as soon as possible
    Sending,      ///< being uploaded, or passed to the connection
    Handed,       ///< passed to the connection
    Unconfirmed,  ///< passed to it too long ago
    Delivered,
    Failed,
};

/// The file of a message.
struct File {
    std::string kind;                 ///< "image", "audio", "video" …
    std::string name;                 ///< as the sender named it
    std::string path;                 ///< only for a file that is sent from here
    int number = 0;                   ///< for /save; 0 if it cannot be fetched yet
    std::optional<int> percent = {};  ///< during a transfer
    std::string pace = {};            ///< speed and remaining time
};

/// An entry in a conversation: a message, or a notice from this program.
struct Entry {
    std::uint64_t id = 0;  ///< unique in its conversation; for a message, the store's id
    double time = 0;       ///< seconds since 1970
    bool isNotice = false;
    bool isAlert = false;  ///< a notice about something that went wrong
    bool isOwn = false;
    std::string sender;
    std::string text;  ///< as received, so make it harmless before painting; for a file, its URL
    Delivery delivery = Delivery::Received;
    std::string failure;  ///< why it failed or waits
    std::optional<File> file;
};

/// What is known about messages before the oldest entry.
enum class Older : std::uint8_t { Unknown, Loading, There, Nothing };

/// The position of the view if it does not follow the newest entry: this line of this entry is the
/// lowest one shown.
struct Anchor {
    std::uint64_t entry = 0;
    int line = 0;
};

/// A friend, a group or a room, with its messages.
class Conversation {
public:
    explicit Conversation(Address address);

    const Address address;
    std::string title;                 ///< the name; the id until that is known
    std::optional<bool> online;        ///< for a friend; nullopt if unknown
    std::vector<std::string> members;  ///< for a group or a room, those that are known
    bool gone = false;                 ///< the service does not list it, or no longer does
    int unread = 0;
    Older older = Older::Unknown;
    std::optional<Anchor> anchor;

    const std::deque<Entry>& entries() const noexcept { return entries_; }
    bool hasHistory() const noexcept {
        return address.kind == Kind::Friend || address.kind == Kind::Group;
    }
    /// The entry's position; nullopt if there is none.
    std::optional<std::size_t> indexOf(std::uint64_t id) const;
    Entry* find(std::uint64_t id);
    /// Calls `change` for each entry, from the oldest to the newest.
    template <class Change>
    void eachEntry(Change change) {
        for (auto& entry : entries_) change(entry);
    }
    /// The file with this number. 0 means the newest one that has a number.
    Entry* findFile(int number);

    /// Replaces all messages by these, which are in order. What is known about their files is kept.
    void show(std::vector<Entry> messages);
    /// Shows a notice wherever messages are missing, at its time.
    void showGaps(std::vector<Entry> notices);
    /// Adds a notice, after everything that is older.
    void notice(Entry notice);
    /// Marks messages that were passed on more than `kPatience` ago and have not come back.
    void doubt(double now);

private:
    void arrange(std::deque<Entry> messages);

    std::deque<Entry> entries_;  // messages in order, with notices between them by time
    std::vector<Entry> gaps_;
    std::vector<Entry> notices_;
    std::uint64_t lastNotice_ = 0;
};

}  // namespace chat
