#include "VexIMLib/VXIMClientDelegate.h"

// A delegate may override any of these; the rest do nothing.

VXIMClientDelegate::~VXIMClientDelegate() = default;
void VXIMClientDelegate::clientDidLogin(const std::shared_ptr<VXIMClient>&) {}
void VXIMClientDelegate::clientDidFailToLoginAgain(const std::shared_ptr<VXIMClient>&,
                                                   const std::shared_ptr<vexim::Error>&) {}
void VXIMClientDelegate::clientDidLogout(const std::shared_ptr<VXIMClient>&) {}
void VXIMClientDelegate::clientAttemptReconnect(const std::shared_ptr<VXIMClient>&) {}
void VXIMClientDelegate::clientDidDisconnect(const std::shared_ptr<VXIMClient>&) {}
void VXIMClientDelegate::clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                                           const std::shared_ptr<VXIMMessage>&,
                                                           const std::shared_ptr<VXIMFriendInfo>&) {
}
void VXIMClientDelegate::clientDidReceiveMessageFromGroup(const std::shared_ptr<VXIMClient>&,
                                                          const std::shared_ptr<VXIMMessage>&,
                                                          const std::shared_ptr<VXIMGroup>&) {}
void VXIMClientDelegate::clientDidReceiveMessageFromRoom(const std::shared_ptr<VXIMClient>&,
                                                         const std::shared_ptr<VXIMMessage>&,
                                                         const std::shared_ptr<VXIMRoom>&) {}
void VXIMClientDelegate::clientDidReceiveSystemMessage(const std::shared_ptr<VXIMClient>&,
                                                       const std::shared_ptr<VXIMMessage>&) {}
void VXIMClientDelegate::clientFriendDidOnline(const std::shared_ptr<VXIMClient>&,
                                               const std::shared_ptr<VXIMFriendInfo>&) {}
void VXIMClientDelegate::clientFriendDidOffline(const std::shared_ptr<VXIMClient>&,
                                                const std::shared_ptr<VXIMFriendInfo>&) {}
