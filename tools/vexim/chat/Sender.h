#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Roster.h"
#include "Session.h"

namespace chat {

/// What the user sends and fetches: texts, files in both directions, and what has to be sent again. What comes of it stands in
/// the conversation.
class Sender {
public:
    Sender(Session& session, Roster& roster) : session_(session), roster_(roster) {}

    void sendText(const Address& to, std::string text);
    /// Throws std::invalid_argument when there is no such file.
    void sendFile(const Address& to, const std::string& path);
    /// Sends again what has failed there, and returns how much that was.
    std::size_t retry(const Address& to);
    /// Fetches the file of that number (0: the newest) to `path`: a file, a folder, or empty for the current folder. What is
    /// there is never overwritten. Throws std::invalid_argument when it cannot be done.
    void save(const Address& from, int number, const std::string& path);
    /// False when nothing is being transferred.
    bool cancelNewest();
    void cancelAll();
    /// Whether nothing is being transferred.
    bool isIdle() const noexcept { return transfers_.empty(); }

private:
    using Transfer = std::shared_ptr<VXIMTransfer>;

    void send(const Address& to, Entry entry, const std::shared_ptr<VXIMMessage>& message);
    void didSend(const Address& to, std::uint64_t id, VXIMMessage& message, const vexim::ErrorPtr& error);
    VXIMProgress showProgress(const Address& where, std::uint64_t id);
    Entry* find(const Address& where, std::uint64_t id);
    void forget(const Transfer& transfer);

    Session& session_;
    Roster& roster_;
    std::vector<Transfer> transfers_;  // those that are running, the newest last
};

}  // namespace chat
