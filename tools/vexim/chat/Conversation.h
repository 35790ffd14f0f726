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

/// The console holds what belongs to no conversation: system messages, and what the program has to say before there is one.
enum class Kind : std::uint8_t { Console, Friend, Group, Room };

struct Address {
    Kind kind = Kind::Console;
    std::string id;
    auto operator<=>(const Address&) const = default;
};

/// How far a message has come. The service sends a user's own messages back: only then are they known to be delivered.
enum class Delivery : std::uint8_t {
    Received,
    Sending,      ///< being uploaded, or handed to the connection
    Handed,       ///< handed to the connection
    Unconfirmed,  ///< for longer than it should take
    Delivered,
    Failed,
    Cancelled,  ///< as the user wished
};

/// A file that a message carries.
struct File {
    std::string kind;            ///< "image", "audio", "video" …
    std::string path;            ///< an own one that is sent
    int number = 0;              ///< by which /save names it; 0: it cannot be fetched yet
    std::optional<int> percent;  ///< while it is being transferred
};

/// One thing in a conversation: a message, or a notice of this program's.
struct Entry {
    std::uint64_t id = 0;  ///< unique and rising within a conversation's life, given by it
    double time = 0;       ///< seconds since 1970
    double handed = 0;     ///< when an own message was handed over; its time is when that began
    bool isNotice = false;
    bool isAlert = false;  ///< of a notice: something went wrong
    bool isOwn = false;
    std::string sender;
    std::string text;  ///< as it travelled: not to be painted as it is. A file's URL.
    Delivery delivery = Delivery::Received;
    std::string failure;  ///< why it has failed
    std::optional<File> file;
};

/// What there is before the oldest entry.
enum class Older : std::uint8_t { Unknown, Loading, There, Nothing };

/// Where the view stands when it does not follow the newest entry: this line of this entry is the lowest one shown.
struct Anchor {
    std::uint64_t entry = 0;
    int line = 0;
};

/// A friend, a group or a room, and what was said there.
class Conversation {
public:
    /// The oldest entries go when there are more.
    static constexpr std::size_t kMost = 20'000;

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
    bool hasHistory() const noexcept { return address.kind == Kind::Friend || address.kind == Kind::Group; }
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

    /// Puts it at the end, and returns its id.
    std::uint64_t append(Entry entry);
    void remove(std::uint64_t id);
    /// An own message came back: the entry that waits for it is delivered. False when none does (it was sent elsewhere).
    bool confirm(const Entry& echo);
    /// What was handed over longer than `kPatience` ago and has not come back is marked. Whether there was such.
    bool doubt(double now);
    std::ptrdiff_t failedCount() const;
    /// What was handed over until then and has not come back has failed.
    void giveUp(double handedBefore, const std::string& reason);

    struct Request {
        double before = 0;  ///< seconds since 1970; 0: now
        int limit = 0;
        double judges = 0;     ///< own messages handed over until then would be there
        double newsAfter = 0;  ///< what others wrote after that is news
    };
    /// The page before the oldest message. Several messages can bear its time, so that one is asked for again.
    Request olderPage() const;
    static Request newestPage(double now);
    /// Takes in a page of messages, the newest first, as the service answered `request`. Those known are not doubled. Returns
    /// how many of them are news.
    int takeOlder(const Request& request, std::vector<Entry> page);
    /// As above, after a time in which messages may have been missed: own ones that `request` judges and that are not there
    /// have failed, and what is not known to be without a gap is dropped.
    int takeNewest(const Request& request, std::vector<Entry> page);

    /// The time of the newest message; 0 without any.
    double newestTime() const;

private:
    int merge(const Request& request, const std::vector<Entry>& page);

    std::deque<Entry> entries_;  // by time as far as they come from the history, then in the order of arrival
    std::uint64_t lastId_ = 0;
};

/// Whether two are the same message: its time, sender and text say so, as there is no id.
bool isSameMessage(const Entry& one, const Entry& other);

}  // namespace chat
