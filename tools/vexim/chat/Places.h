#pragma once

#include <string>

#include "Roster.h"
#include "Session.h"
#include "SlashCommands.h"

namespace chat {

/// Carries out /friend, /group and /room, and shows the result as a notice.
class Places {
public:
    Places(Session& session, Roster& roster) : session_(session), roster_(roster) {}

    /// Returns false if `command` is none of these. Throws std::invalid_argument if its arguments
    /// are wrong.
    bool obey(const Command& command);
    /// Switches to the conversation of this kind with this id or name.
    void show(Kind kind, const std::string& idOrName);

private:
    void talkTo(Kind kind, const std::string& idOrName);
    void obeyFriend(const Command& command);
    template <class Place>
    void obeyPlace(Kind kind, const Command& command);
    template <class Place>
    void found(Kind kind, const Command& command);
    template <class Place>
    void listMembers(const Address& address);

    Address currentOf(Kind kind) const;
    VXIMBooleanCompletion telling(std::string done, std::function<void()> next = {});

    Session& session_;
    Roster& roster_;
};

}  // namespace chat
