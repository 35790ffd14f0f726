#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Pace.h"
#include "Roster.h"
#include "Session.h"

namespace chat {

/// What the user sends and fetches: texts, files in both directions, and what has to be sent again.
/// What comes of it stands in the conversation.
class Sender {
public:
    Sender(Session& session, Roster& roster) : session_(session), roster_(roster) {}

    void sendText(const Address& to, std::string text);
    /// Throws std::invalid_argument when there is no such file.
    void sendFile(const Address& to, const std::string& path);
    /// Sends again what has failed there, and at once what waits; returns how much that was.
    std::size_t retry(const Address& to);
    /// Fetches the file of that number (0: the newest) to `path`: a file, a folder, or empty for
    /// the current folder. What is there is never overwritten. Throws std::invalid_argument when it
    /// cannot be done.
    void save(const Address& from, int number, const std::string& path);
    /// Ends the newest fetching, or else takes back the newest file that is being sent. False when
    /// there is neither.
    bool cancelNewest();
    /// Takes back the newest message there that waits. False when none does.
    bool cancelWaiting(const Address& to);
    void cancelAll();
    /// Whether nothing is being fetched.
    bool isIdle() const noexcept { return transfers_.empty(); }

private:
    using Transfer = std::shared_ptr<VXIMTransfer>;

    void send(const Address& to, const std::shared_ptr<VXIMMessage>& message,
              const std::string& path);
    VXIMProgress showProgress(const Address& where, std::shared_ptr<const std::uint64_t> id,
                              std::shared_ptr<Pace> pace);
    Entry* find(const Address& where, std::uint64_t id);
    void forget(const Transfer& transfer);
    void takeBack(std::uint64_t id);

    Session& session_;
    Roster& roster_;
    std::vector<Transfer> transfers_;  // of files that are fetched, the newest last
};

}  // namespace chat
