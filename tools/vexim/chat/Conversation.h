#pragma once

#include <compare>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

namespace chat {

/// Seconds after which a message should have come back from the service.
inline constexpr double kPatience = 5;

/// The console holds what belongs to no conversation: system messages, and what the program has to
/// say before there is one.
enum class Kind : std::uint8_t { Console, Friend, Group, Room };

struct Address {
    Kind kind = Kind::Console;
    std::string id;
    auto operator<=>(const Address&) const = default;
};

/// How far a message has come. The service sends a user's own messages back: only then are they
/// known to be delivered.
enum class Delivery : std::uint8_t {
    Received,
    Waiting,      ///< goes out by itself when it can
    Sending,      ///< being uploaded, or handed to the connection
    Handed,       ///< handed to the connection
    Unconfirmed,  ///< for longer than it should take
    Delivered,
    Failed,
};

/// A file that a message carries.
struct File {
    std::string kind;                 ///< "image", "audio", "video" …
    std::string name;                 ///< as its sender had it
    std::string path;                 ///< an own one that is sent
    int number = 0;                   ///< by which /save names it; 0: it cannot be fetched yet
    std::optional<int> percent = {};  ///< while it is being transferred
    std::string pace = {};            ///< how fast, and how long still
};

/// One thing in a conversation: a message, or a notice of this program's.
struct Entry {
    std::uint64_t id = 0;  ///< unique within a conversation; a message's is the store's
    double time = 0;       ///< seconds since 1970
    bool isNotice = false;
    bool isAlert = false;  ///< of a notice: something went wrong
    bool isOwn = false;
    std::string sender;
    std::string text;  ///< as it travelled: not to be painted as it is. A file's URL.
    Delivery delivery = Delivery::Received;
    std::string failure;  ///< why it has failed, or waits
    std::optional<File> file;
};

/// What there is before the oldest entry.
enum class Older : std::uint8_t { Unknown, Loading, There, Nothing };

/// Where the view stands when it does not follow the newest entry: this line of this entry is the
/// lowest one shown.
struct Anchor {
    std::uint64_t entry = 0;
    int line = 0;
};

/// A friend, a group or a room, and what was said there.
class Conversation {
public:
    explicit Conversation(Address address);

    const Address address;
    std::string title;                 ///< a name for people; the id until it is known
    std::optional<bool> online;        ///< of a friend; nullopt: not known
    std::vector<std::string> members;  ///< of a group or a room, as far as known
    bool gone = false;                 ///< the service does not list it, or not any more
    int unread = 0;
    Older older = Older::Unknown;
    std::optional<Anchor> anchor;

    const std::deque<Entry>& entries() const noexcept { return entries_; }
    bool hasHistory() const noexcept {
        return address.kind == Kind::Friend || address.kind == Kind::Group;
    }
    /// Where the entry stands; nullopt when it is gone.
    std::optional<std::size_t> indexOf(std::uint64_t id) const;
    Entry* find(std::uint64_t id);
    /// Calls `change` for each entry, the oldest first.
    template <class Change>
    void eachEntry(Change change) {
        for (auto& entry : entries_) change(entry);
    }
    /// The file of that number; 0: the newest one that has a number.
    Entry* findFile(int number);

    /// The messages as they are now, in their order, instead of those before. What this program
    /// knows of a file stays.
    void show(std::vector<Entry> messages);
    /// Where messages are missing: a notice each, at its time.
    void showGaps(std::vector<Entry> notices);
    /// Adds a notice; it stands behind what is older.
    void notice(Entry notice);
    /// What was handed over longer than `kPatience` ago and has not come back is marked.
    void doubt(double now);

private:
    void arrange(std::deque<Entry> messages);

    std::deque<Entry> entries_;  // messages in their order, notices between them by time
    std::vector<Entry> gaps_;
    std::vector<Entry> notices_;
    std::uint64_t lastNotice_ = 0;
};

}  // namespace chat
