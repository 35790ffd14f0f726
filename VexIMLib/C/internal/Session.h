#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/C/internal/Mailbox.h"
#include "VexIMLib/C/internal/Request.h"
#include "VexIMLib/Foundation/NotificationCenter.h"
#include "VexIMLib/VXIMClient.h"
#include "VexIMLib/VXIMClientDelegate.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim::c {

/// The client of a handle: requests go in, answers and events come out through the mailbox. Any
/// thread, unless noted.
class Session final : public VXIMClientDelegate, public std::enable_shared_from_this<Session> {
public:
    /// Makes it from a configuration of `vexim_create`.
    static std::shared_ptr<Session> make(std::string_view configuration);
    ~Session() override;

    const std::shared_ptr<Mailbox>& mailbox() const noexcept { return mailbox_; }
    /// nullptr if there is none: the configuration could not be used, or the session has ended.
    std::shared_ptr<VXIMClient> client() const;
    /// Accepts a request, like `vexim_send`.
    void send(std::string_view request);
    /// Answers the open requests and releases the client.
    void end();
    /// A notification of the client. Main thread.
    void didPost(const Notification& notification);

private:
    explicit Session(std::size_t queueBytes) : mailbox_(std::make_shared<Mailbox>(queueBytes)) {}
    void expire();
    void armTimer();

    // Main thread.
    void clientDidLogin(const std::shared_ptr<VXIMClient>& client) override;
    void clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>& client,
                                   const ErrorPtr& error) override;
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
    template <class From>
    void didReceiveMessage(std::string_view event, const std::shared_ptr<VXIMMessage>& message,
                           const From& from);
    const std::shared_ptr<Mailbox> mailbox_;
    std::string problem_;  // why there is no client; empty if there is or was one
    bool givesNotifications_ = false;
    std::shared_ptr<StoreSeat> stores_;       // main thread; nullptr: none was opened
    const VXIMMessage* announced_ = nullptr;  // the message of the last event, only for comparing

    mutable Mutex mutex_;
    std::shared_ptr<VXIMClient> client_ VEXIM_GUARDED_BY(mutex_);
};

/// Starts passing the library's notifications to the sessions. Call it once.
void observeNotifications();

}  // namespace vexim::c
