#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/VXIMClientDelegate.h"

/// A delegate that writes down every event as a line: "friend alice: hello", "online bob",
/// "logout".
class Inbox : public VXIMClientDelegate {
public:
    const std::vector<std::string>& lines() const noexcept { return lines_; }
    bool has(const std::string& line) const {
        return std::find(lines_.begin(), lines_.end(), line) != lines_.end();
    }
    /// How often `line` has occurred.
    std::ptrdiff_t count(const std::string& line) const {
        return std::count(lines_.begin(), lines_.end(), line);
    }
    /// All lines in one text, for error messages.
    std::string text() const;

    void clientDidLogin(const std::shared_ptr<VXIMClient>& client) override;
    void clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>& client,
                                   const vexim::ErrorPtr& error) override;
    void clientDidLogout(const std::shared_ptr<VXIMClient>& client) override;
    void clientAttemptReconnect(const std::shared_ptr<VXIMClient>& client) override;
    void clientDidDisconnect(const std::shared_ptr<VXIMClient>& client) override;
    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>& client,
                                           const std::shared_ptr<VXIMMessage>& message,
                                           const std::shared_ptr<VXIMFriendInfo>& from) override;
    void clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>& client,
                                          const std::shared_ptr<VXIMMessage>& message,
                                          const std::shared_ptr<VXIMGroup>& from) override;
    void clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>& client,
                                         const std::shared_ptr<VXIMMessage>& message,
                                         const std::shared_ptr<VXIMRoom>& from) override;
    void clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>& client,
                                       const std::shared_ptr<VXIMMessage>& message) override;
    void clientFriendDidOnline(const std::shared_ptr<VXIMClient>& client,
                               const std::shared_ptr<VXIMFriendInfo>& info) override;
    void clientFriendDidOffline(const std::shared_ptr<VXIMClient>& client,
                                const std::shared_ptr<VXIMFriendInfo>& info) override;

    /// The line for a message.
    static std::string lineOf(const std::string& conversation, VXIMMessage& message);

protected:
    /// Called for each line when it is written, also in a form for programs: {"event": "message",
    /// "kind": "friend", "id": "bob", "message": …}, {"event": "online", "id": "bob"}.
    virtual void wrote(const std::string& line, const vexim::Dictionary& event);

private:
    void write(std::string line, vexim::Dictionary event);
    void writeMessage(const std::string& kind, const vexim::Value& id, VXIMMessage& message);
    std::vector<std::string> lines_;
};
