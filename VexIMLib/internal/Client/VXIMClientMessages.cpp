// Messages go out as the event "say" or over REST ("/system"), and come in as the events "message",
// "yourself" and "sys".

#include <utility>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/NotificationCenter.h"
#include "VexIMLib/Foundation/UntoldError.h"
#include "VexIMLib/VXIMClient.h"
#include "VexIMLib/VXIMConstants.h"
#include "VexIMLib/VXIMFriendInfo.h"
#include "VexIMLib/VXIMGroup.h"
#include "VexIMLib/VXIMMessage.h"
#include "VexIMLib/VXIMRoom.h"
#include "VexIMLib/internal/Client/VXIMClientImpl.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Resources/ResourceOperations.h"

using vexim::Array;
using vexim::Dictionary;
using vexim::ErrorPtr;
using vexim::MainQueue;
using vexim::NotificationCenter;
using vexim::Value;

namespace {

using MessagePtr = std::shared_ptr<VXIMMessage>;

double currentTime() { return vexim::Clock::shared()->wallTime(); }

VXIMMessage& requireMessage(const MessagePtr& message) {
    if (!message)
        throw vexim::Exception(vexim::kInvalidArgumentException, "There is no message to send.");
    return *message;
}

/// A nil id is the caller's mistake, so it raises before anything else happens.
Value requireId(Value id) {
    if (id.isNilOrNull())
        throw vexim::Exception(vexim::kInvalidArgumentException,
                               "The receiver's id must not be nil.");
    return id;
}

/// Makes a message from an event's payload. If that is not a dictionary, the message is empty but
/// still delivered.
MessagePtr messageFrom(const Value& payload) {
    const Dictionary* dictionary = payload.asDictionary();
    return VXIMMessage::initWithPayloadDictionary(dictionary ? *dictionary : Dictionary());
}

/// A notification's user information.
Dictionary about(const MessagePtr& message) {
    Dictionary userInfo;
    userInfo.reserve(1);
    userInfo.set("msg", message);
    return userInfo;
}

/// The path for posting a system message; nullopt if this type of receiver gets no system messages.
std::optional<std::string> systemMessagePath(const VXIMMessageTarget& receiver) {
    switch (receiver.type()) {
        case VXIMMessageTargetTypeAllUsers: return "/system";
        case VXIMMessageTargetTypeUser: return "/system/" + receiver.userId().description();
        case VXIMMessageTargetTypeGroup:
            return "/system/" + receiver.groupId().description() + "?group";
        case VXIMMessageTargetTypeRoom:
            return "/system/" + receiver.roomId().description() + "?room";
        case VXIMMessageTargetTypeSystem:
        case VXIMMessageTargetTypeUnknown: break;
    }
    return std::nullopt;
}

/// The group or room of a message: the peer's, or the receiver's if only the speaker is known.
const Value& conversationId(const Value& peersId, const Value& receiversId) {
    return peersId.isNilOrNull() ? receiversId : peersId;
}

}  // namespace

// A template, so that each caller's block is stored in the queued function without another wrapper.
template <class Block>
void VXIMClient::Impl::uploadMessageAttachment(const MessagePtr& message, VXIMProgress progress,
                                               Block block,
                                               std::shared_ptr<VXIMTransfer> transfer) {
    auto finish = [message, block = std::move(block)](bool succeeded, ErrorPtr error) {
        std::optional<Dictionary> payload;
        try {
            if (succeeded) payload = message->dictionaryRepresentation();
        } catch (const vexim::Exception& cause) {  // the message was changed while it waited
            error = vexim::errors::unsendable(cause);
        }
        block(std::move(payload), std::move(error));
    };
    if (!VXIMMessageMediaTypeIsAttachment(message->mediaType())) {
        MainQueue::shared().async([finish = std::move(finish)] { finish(true, nullptr); });
        return;
    }
    message->uploadAttachmentWithProgress(std::move(progress), std::move(finish),
                                          std::move(transfer));
}

void VXIMClient::sendMessageToFriend(MessagePtr message, Value friendId,
                                     VXIMBooleanCompletion completion) {
    VXIMMessageTarget& receiver = *requireMessage(message).receiver();
    receiver.setUserId(requireId(std::move(friendId)));
    receiver.setType(VXIMMessageTargetTypeUser);
    sendMessage(std::move(message), std::move(completion));
}

void VXIMClient::sendMessageToGroup(MessagePtr message, Value groupId,
                                    VXIMBooleanCompletion completion) {
    VXIMMessageTarget& receiver = *requireMessage(message).receiver();
    receiver.setGroupId(requireId(std::move(groupId)));
    receiver.setType(VXIMMessageTargetTypeGroup);
    sendMessage(std::move(message), std::move(completion));
}

void VXIMClient::sendMessageToRoom(MessagePtr message, Value roomId,
                                   VXIMBooleanCompletion completion) {
    VXIMMessageTarget& receiver = *requireMessage(message).receiver();
    receiver.setRoomId(requireId(std::move(roomId)));
    receiver.setType(VXIMMessageTargetTypeRoom);
    sendMessage(std::move(message), std::move(completion));
}

void VXIMClient::sendMessage(MessagePtr message, VXIMBooleanCompletion completion) {
    sendMessage(std::move(message), nullptr, std::move(completion));
}

void VXIMClient::sendMessage(MessagePtr message, VXIMProgress progress,
                             VXIMBooleanCompletion completion,
                             std::shared_ptr<VXIMTransfer> transfer) {
    requireMessage(message).requireIds();
    message->setStatus(VXIMMessageStatusSending);

    ErrorPtr error;
    if (message->receiver()->type() < 0) error = vexim::errors::withoutReceiver();
    const auto socket = socketio();
    // Checked first: without a connection, even a message without a receiver reports the closed
    // connection.
    if (!socket || socket->status() != vexim::SocketIOStatusConnected)
        error = vexim::errors::disconnected();
    if (error) {
        message->failWith(error);
        MainQueue::shared().async([completion = std::move(completion), error] {
            if (completion) completion(false, error);
        });
        return;
    }

    message->setSendTimestamp(currentTime());
    auto finish = [self = self(), message, completion = std::move(completion), transfer](
                      std::optional<Dictionary> payload, const ErrorPtr& uploadError) {
        const bool isUploaded = payload.has_value();
        const ErrorPtr refusal = isUploaded ? self->impl_->say(*std::move(payload)) : uploadError;
        if (isUploaded && !refusal) {
            message->setStatus(VXIMMessageStatusSent);
            // Only for this side: the payload was sent with the time at which the send began.
            message->setSendTimestamp(currentTime());
        } else {
            message->failWith(refusal);
        }
        if (!completion) return;
        // The completion does not get the error of a failed upload, which the message keeps. It
        // does get a cancellation.
        const bool uploadFailed =
            !isUploaded && !(refusal && refusal->is(VXIMErrorDomain, VXIMErrorCannotSend));
        const bool isReported = refusal && (!uploadFailed || (transfer && transfer->isCancelled()));
        const vexim::UntoldError untold(isReported ? nullptr : refusal);  // for the async styles
        completion(!isReported, isReported ? refusal : nullptr);
    };
    Impl::uploadMessageAttachment(message, std::move(progress), std::move(finish),
                                  std::move(transfer));
}

ErrorPtr VXIMClient::Impl::say(Dictionary payload) const {
    const auto socket = socketio.get();
    const ErrorPtr refused =
        socket ? socket->tryEmit("say", {std::move(payload)}) : vexim::errors::disconnected();
    count(vexim::Metric::MessagesSent,
          refused ? vexim::SendOutcome::Refused : vexim::SendOutcome::Taken);
    if (!refused) return nullptr;
    const bool isGone =
        !socket || refused->is(vexim::kSocketIOErrorDomain, vexim::SocketIOErrorNotConnected);
    return isGone ? vexim::errors::disconnected() : vexim::errors::notTaken(refused);
}

void VXIMClient::sendSystemMessageToAllUsers(MessagePtr message, VXIMBooleanCompletion completion) {
    requireMessage(message).receiver()->setType(VXIMMessageTargetTypeAllUsers);
    sendSystemMessage(std::move(message), nullptr, std::move(completion));
}

void VXIMClient::sendSystemMessageToUser(MessagePtr message, Value userId,
                                         VXIMBooleanCompletion completion) {
    requireMessage(message).receiver()->setUserId(requireId(std::move(userId)));
    sendSystemMessage(std::move(message), nullptr, std::move(completion));
}

void VXIMClient::sendSystemMessageToGroup(MessagePtr message, Value groupId,
                                          VXIMBooleanCompletion completion) {
    requireMessage(message).receiver()->setGroupId(requireId(std::move(groupId)));
    sendSystemMessage(std::move(message), nullptr, std::move(completion));
}

void VXIMClient::sendSystemMessageToRoom(MessagePtr message, Value roomId,
                                         VXIMBooleanCompletion completion) {
    requireMessage(message).receiver()->setRoomId(requireId(std::move(roomId)));
    sendSystemMessage(std::move(message), nullptr, std::move(completion));
}

void VXIMClient::sendSystemMessage(MessagePtr message, VXIMProgress progress,
                                   VXIMBooleanCompletion completion,
                                   std::shared_ptr<VXIMTransfer> transfer) {
    requireMessage(message).requireIds();
    message->setSendTimestamp(currentTime());
    message->setStatus(VXIMMessageStatusSending);

    const auto path = systemMessagePath(*message->receiver());
    if (!path) {
        message->setStatus(VXIMMessageStatusFailed);
        vexim::log(vexim::LogLevel::Error, "Internal error: invalid receiver type");
        return;  // the completion never runs
    }
    auto finish = [self = self(), message, completion = std::move(completion)](
                      const Value&, const ErrorPtr& error) {
        if (error) {
            message->failWith(error);
        } else {
            message->setStatus(VXIMMessageStatusSent);
            message->setSendTimestamp(currentTime());
        }
        if (completion) completion(error == nullptr, error);
    };
    auto post = [path = *path, finish = std::move(finish)](std::optional<Dictionary> payload,
                                                           const ErrorPtr& uploadError) {
        if (!payload) return finish(nullptr, uploadError);
        try {
            VXIMHTTPRequest::post(path, *std::move(payload), finish);
        } catch (const vexim::Exception& cause) {  // the payload cannot be written as JSON
            finish(nullptr, vexim::errors::unsendable(cause));
        }
    };
    Impl::uploadMessageAttachment(message, std::move(progress), std::move(post),
                                  std::move(transfer));
}

void VXIMClient::Impl::didReceivePeerMessage(const Value& payload) {
    count(vexim::Metric::MessagesReceived, vexim::MessageKind::Peer);
    didReceiveMessage(messageFrom(payload));
}

void VXIMClient::Impl::didReceiveOwnMessage(const Value& payload) {
    count(vexim::Metric::MessagesReceived, vexim::MessageKind::Own);
    const MessagePtr message = messageFrom(payload);
    VXIMMessageTarget& sender = *message->sender();
    const VXIMMessageTarget& receiver = *message->receiver();
    const auto user = currentUser.get();
    // The last two setters set the sender's type to room, whatever the receiver is. The receiver's
    // type decides which delegate function is called.
    sender.setType(receiver.type());
    sender.setUserId(user ? user->uid() : Value());
    sender.setGroupId(receiver.groupId());
    sender.setRoomId(receiver.roomId());
    didReceiveMessage(message);
}

void VXIMClient::Impl::didReceiveSystemMessage(const Value& payload) {
    count(vexim::Metric::MessagesReceived, vexim::MessageKind::System);
    const MessagePtr message = messageFrom(payload);
    message->sender()->setType(VXIMMessageTargetTypeSystem);
    message->receiver()->setType(VXIMMessageTargetTypeUnknown);
    NotificationCenter::defaultCenter().post(VXIMClientDidReceiveSystemMessageNotification, self(),
                                             about(message));
    tellDelegate(&VXIMClientDelegate::clientDidReceiveSystemMessage, self(), message);
}

void VXIMClient::Impl::didReceiveMessage(const MessagePtr& message) {
    if (message->isSystemMessage()) return;

    const VXIMMessageTarget& receiver = *message->receiver();
    const auto user = currentUser.get();
    const bool fromSelf = user && vexim::idsEqual(message->sender()->userId(), user->uid());
    const VXIMMessageTarget& peer = fromSelf ? receiver : *message->sender();

    switch (receiver.type()) {
        case VXIMMessageTargetTypeRoom:
            tellDelegateAbout(
                conversationId(peer.roomId(), receiver.roomId()), &VXIMRoom::roomWithId,
                &VXIMClientDelegate::clientDidReceiveMessageFromRoom, self(), message);
            break;
        case VXIMMessageTargetTypeGroup:
            tellDelegateAbout(
                conversationId(peer.groupId(), receiver.groupId()), &VXIMGroup::groupWithId,
                &VXIMClientDelegate::clientDidReceiveMessageFromGroup, self(), message);
            break;
        case VXIMMessageTargetTypeUser:
            tellDelegateAbout(peer.userId(), &VXIMFriendInfo::infoWithId,
                              &VXIMClientDelegate::clientDidReceiveMessageFromFriend, self(),
                              message);
            break;
        case VXIMMessageTargetTypeAllUsers:
        case VXIMMessageTargetTypeSystem:
        case VXIMMessageTargetTypeUnknown: break;
    }
    NotificationCenter::defaultCenter().post(VXIMClientDidReceiveMessageNotification, self(),
                                             about(message));
}
