#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Conversation.h"

namespace chat {

/// All conversations, in the order in which they are shown: the console, friends, groups, rooms,
/// each by name. One of them is the current one, on which the user looks.
class Roster {
public:
    Roster();

    const std::vector<std::unique_ptr<Conversation>>& all() const noexcept { return all_; }
    Conversation& console() { return *all_.front(); }
    Conversation& current() { return *current_; }
    const Conversation& current() const { return *current_; }
    std::size_t currentIndex() const;

    Conversation* find(const Address& address);
    /// The conversation of that address, made if there is none.
    Conversation& open(const Address& address);
    /// Removes it, unless it is the console. The current one's place is taken by the one before it.
    void close(const Address& address);
    /// Whether it was closed, and not opened since: what the store still has of it does not bring
    /// it back.
    bool wasClosed(const Address& address) const { return closed_.contains(address); }
    /// Gives it a name, and its place by it.
    void rename(Conversation& conversation, std::string title);

    // What is shown counts as read.
    void select(Conversation& conversation);
    /// False when there is none of that number.
    bool selectAt(std::size_t index);
    /// `step` places on, around the end.
    void selectBy(int step);
    /// The next one with something unread; false without any.
    bool selectUnread();

    /// Whether the user looks at its end, so that nothing there is unread.
    bool isRead(const Conversation& conversation) const {
        return &conversation == current_ && !conversation.anchor;
    }
    void setUnread(Conversation& conversation, int count) {
        conversation.unread = isRead(conversation) ? 0 : count;
    }
    /// To the current conversation, except that trouble may come when nobody looks.
    void notice(std::string text, double time, bool isAlert = false);
    /// The current conversation follows its end again, and is read.
    void follow();

    /// Gives those files of the conversation a number that can be fetched and have none yet.
    void numberFiles(Conversation& conversation);
    /// When the oldest message was handed over that the service should have sent back by now; 0:
    /// none.
    double oldestHanded() const;

private:
    void sort();

    std::vector<std::unique_ptr<Conversation>> all_;
    Conversation* current_;
    std::set<Address> closed_;
    int lastFile_ = 0;
};

}  // namespace chat
