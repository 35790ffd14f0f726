#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Pace.h"
#include "Roster.h"
#include "Session.h"

namespace chat {

/// Sends the user's texts and files, sends failed messages again, and downloads files. The results
/// appear in the conversation.
class Sender {
public:
    Sender(Session& session, Roster& roster) : session_(session), roster_(roster) {}

    void sendText(const Address& to, std::string text);
    /// Throws std::invalid_argument if the file does not exist.
    void sendFile(const Address& to, const std::string& path);
    /// Sends failed messages again, and those that wait for another attempt. Returns their number.
    std::size_t retry(const Address& to);
    /// Downloads the file with this number (0: the newest) to `path`: a file, a folder, or empty
    /// for the current folder. It never overwrites a file. Throws std::invalid_argument if the
    /// download cannot begin.
    void save(const Address& from, int number, const std::string& path);
    /// Cancels the newest download, or if there is none, the newest file that is being sent.
    /// Returns false if there is neither.
    bool cancelNewest();
    /// Removes the newest message that is waiting or has failed. Returns false if there is none.
    bool cancelWaiting(const Address& to);
    /// Cancels all downloads.
    void cancelAll();
    /// Whether no download is running.
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
    std::vector<Transfer> transfers_;  // downloads, the newest last
};

}  // namespace chat
