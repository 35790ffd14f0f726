#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/C/internal/Errors.h"
#include "VexIMLib/C/internal/Request.h"
#include "VexIMLib/Foundation/Dictionary.h"

namespace vexim::c {

// The functions of the table's rows, named after the operations.
namespace handlers {

// For arguments that are objects. Mistakes in them are thrown as a `Refusal`.

/// Checks such an argument against a declaration such as `kMessage`.
void require(const Dictionary& given, std::string_view declaration);
[[noreturn]] void refuse(std::string description);
/// The request's "message". An attachment given as bytes is first written to a temporary file.
std::shared_ptr<VXIMMessage> messageFrom(Request& request);

// Main thread.
using Handler = void(Request& request);
Handler loginWithUserId, loginWithUsername, loginWithPhoneNumber, loginWithThirdPartyOAuth,
    loginWithAuthData, logout, deleteCurrentInstallId, pause, resume, resetFlags, currentUser,
    cancel, sendMessageToFriend, sendMessageToGroup, sendMessageToRoom, sendMessage,
    sendSystemMessageToAllUsers, sendSystemMessageToUser, sendSystemMessageToGroup,
    sendSystemMessageToRoom, sendSystemMessage, downloadAttachment;
Handler userFetch, userFetchFriends, userFetchGroups, userFetchRooms, userAddFriend,
    userGetFriendInfo, userDeleteFriend, userGetLatestChats, userUpdateAttributes,
    userReplaceAttributes, userFetchAttributes, userGetAttribute, userDeleteAttributes;
Handler groupCreateWithOwner, groupCreate, groupFetch, groupGetLatestMessages, groupChangeOwner,
    groupUpdate, groupAddMembers, groupRemoveMembers, groupUpdateName, groupDelete,
    groupUpdateAttributes, groupReplaceAttributes, groupFetchAttributes, groupGetAttribute,
    groupDeleteAttributes;
Handler roomCreate, roomFetch, roomUpdateName, roomAddMembers, roomRemoveMembers, roomDelete,
    roomUpdateAttributes, roomReplaceAttributes, roomFetchAttributes, roomGetAttribute,
    roomDeleteAttributes;
Handler passengerCreate, passengerUpdate, passengerFetch, passengerGetHistory;
Handler findUsers, findGroups, findRooms;

/// The client; nullptr if the operation needs none and there is none.
struct Asker {
    Mailbox* mailbox = nullptr;
    VXIMClient* client = nullptr;
};
/// Appends the result, or returns the problem. Call from any thread.
using ImmediateHandler = std::optional<Problem>(const Asker& asker, const Dictionary& arguments,
                                                std::string& result);
ImmediateHandler descriptor, status, offlineTemporally, tryLogout, config, diagnose, metrics,
    version, setApplicationInfo, setKeepsFinishedDelegates, setLog;

}  // namespace handlers
}  // namespace vexim::c
