#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Conversation.h"

namespace chat {

/// All conversations in the order of the screen: the console, friends, groups, rooms, each sorted
/// by name. One of them is current: the user is looking at it.
class Roster {
public:
    Roster();

    const std::vector<std::unique_ptr<Conversation>>& all() const noexcept { return all_; }
    Conversation& console() { return *all_.front(); }
    Conversation& current() { return *current_; }
    const Conversation& current() const { return *current_; }
    std::size_t currentIndex() const;

    Conversation* find(const Address& address);
    /// Returns the conversation with this address. Makes it if there is none.
    Conversation& open(const Address& address);
    /// Removes it, unless it is the console. If it was the current one, the one before it becomes
    /// current.
    void close(const Address& address);
    /// Whether it was closed and not opened again. Then messages in the store do not bring it back.
    bool wasClosed(const Address& address) const { return closed_.contains(address); }
    /// Sets its name, and moves it to its place in the order.
    void rename(Conversation& conversation, std::string title);

    // The selected conversation counts as read.
    void select(Conversation& conversation);
    /// Returns false if there is no conversation with this number.
    bool selectAt(std::size_t index);
    /// Moves on by `step` places; after the last comes the first.
    void selectBy(int step);
    /// Selects the next one with unread messages. Returns false if there is none.
    bool selectUnread();

    /// Whether the user is looking at its end, so that nothing in it is unread.
    bool isRead(const Conversation& conversation) const {
        return &conversation == current_ && !conversation.anchor;
    }
    void setUnread(Conversation& conversation, int count) {
        conversation.unread = isRead(conversation) ? 0 : count;
    }
    /// Adds a notice to the current conversation. An alert may come at a time when nobody is
    /// looking.
    void notice(std::string text, double time, bool isAlert = false);
    /// The current conversation shows its newest entry again, and counts as read.
    void follow();

    /// Gives a number to each file in the conversation that can be fetched and has none.
    void numberFiles(Conversation& conversation);
    /// When the oldest message was passed on that should have come back by now; 0 if there is none.
    double oldestHanded() const;

private:
    void sort();

    std::vector<std::unique_ptr<Conversation>> all_;
    Conversation* current_;
    std::set<Address> closed_;
    int lastFile_ = 0;
};

}  // namespace chat
