// Messages: making them from JSON, sending, downloading.

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "VexIMLib/C/internal/Handlers.h"
#include "VexIMLib/C/internal/Operations.h"
#include "VexIMLib/internal/Foundation/Text/Base64.h"

namespace vexim::c::handlers {

namespace {

using MessagePtr = std::shared_ptr<VXIMMessage>;

void address(VXIMMessageTarget& target, const Dictionary& given) {
    require(given, kTarget);
    if (const Value& id = given.get("userId"); !id.isNilOrNull()) target.setUserId(id);
    if (const Value& id = given.get("groupId"); !id.isNilOrNull()) target.setGroupId(id);
    if (const Value& id = given.get("roomId"); !id.isNilOrNull()) target.setRoomId(id);
    if (const Value& type = given.get("type"); type.isNumber()) {
        target.setType(static_cast<VXIMMessageTargetType>(type.intValue()));
    }
}

/// The message's attachment file; nullopt if there is none.
std::optional<std::string> attachmentOf(Request& request, const Dictionary& given) {
    if (auto path = given.get("attachmentPath").asString()) {
        std::error_code failed;
        if (!std::filesystem::is_regular_file(*path, failed))
            refuse("There is no file \"" + *path + "\".");
        return path;
    }
    const auto data = given.get("attachmentData").asStringView();
    if (!data) return std::nullopt;
    const auto bytes = decodeBase64(*data);
    if (!bytes) refuse("\"attachmentData\" is not base64.");
    const std::string name =
        std::filesystem::path(given.get("attachmentName").asString().value_or("attachment"))
            .filename()
            .string();
    if (name.empty() || name == "." || name == ".." || name.find('\0') != name.npos)
        refuse("\"attachmentName\" is not a file name.");
    auto path = request.stage(name, *bytes);
    if (!path)
        throw Refusal({InterfaceError::Nothing,
                       "The attachment cannot be written to the temporary directory."});
    return path;
}

}  // namespace

void require(const Dictionary& given, std::string_view declaration) {
    if (auto problem = findProblem(parseParameters(declaration), given))
        throw Refusal(*std::move(problem));
}

void refuse(std::string description) {
    throw Refusal({InterfaceError::WrongArgument, std::move(description)});
}

MessagePtr messageFrom(Request& request) {
    const Dictionary given = request.dictionary("message");
    require(given, kMessage);
    const auto* payload = given.get("payload").asDictionary();
    const auto text = given.get("text").asString();
    auto message = payload ? VXIMMessage::initWithPayloadDictionary(*payload)
                           : VXIMMessage::messageWithText(text.value_or(""));
    if (!payload && !text) message->setText(std::nullopt);
    if (const Value& type = given.get("mediaType"); type.isNumber()) {
        message->setMediaType(static_cast<VXIMMessageMediaType>(type.intValue()));
    }
    if (payload && text) message->setText(text);
    if (const auto url = given.get("attachmentUrl").asString()) message->setAttachmentUrl(url);
    if (const Value& time = given.get("sendTimestamp"); time.isNumber())
        message->setSendTimestamp(time.doubleValue());
    if (const auto* receiver = given.get("receiver").asDictionary())
        address(*message->receiver(), *receiver);
    if (auto path = attachmentOf(request, given)) {
        if (!VXIMMessageMediaTypeIsAttachment(message->mediaType()))
            refuse("A message with an attachment needs a \"mediaType\" of 1, 2 or 3.");
        message->setAttachmentPath(std::move(path));
    }
    return message;
}

namespace {

/// The request's message, for the receiver whose id the request has under `name`.
MessagePtr messageTo(Request& request, void (VXIMMessageTarget::*setId)(Value), const char* name) {
    auto message = messageFrom(request);
    (*message->receiver().*setId)(request.value(name));
    return message;
}

std::shared_ptr<VXIMTransfer> transferOf(Request& request, const VXIMMessage& message) {
    return message.attachmentPath() ? request.transfer() : nullptr;
}

void send(Request& request, const MessagePtr& message) {
    request.client().sendMessage(message, request.progress(), request.doneWith(message),
                                 transferOf(request, *message));
}

void sendSystem(Request& request, const MessagePtr& message) {
    request.client().sendSystemMessage(message, request.progress(), request.doneWith(message),
                                       transferOf(request, *message));
}

}  // namespace

void sendMessageToFriend(Request& request) {
    const auto message = messageTo(request, &VXIMMessageTarget::setUserId, "friendId");
    message->receiver()->setType(VXIMMessageTargetTypeUser);
    send(request, message);
}

void sendMessageToGroup(Request& request) {
    send(request, messageTo(request, &VXIMMessageTarget::setGroupId, "groupId"));
}

void sendMessageToRoom(Request& request) {
    send(request, messageTo(request, &VXIMMessageTarget::setRoomId, "roomId"));
}

void sendMessage(Request& request) { send(request, messageFrom(request)); }

void sendSystemMessageToAllUsers(Request& request) {
    const auto message = messageFrom(request);
    message->receiver()->setType(VXIMMessageTargetTypeAllUsers);
    sendSystem(request, message);
}

void sendSystemMessageToUser(Request& request) {
    sendSystem(request, messageTo(request, &VXIMMessageTarget::setUserId, "userId"));
}

void sendSystemMessageToGroup(Request& request) {
    sendSystem(request, messageTo(request, &VXIMMessageTarget::setGroupId, "groupId"));
}

void sendSystemMessageToRoom(Request& request) {
    sendSystem(request, messageTo(request, &VXIMMessageTarget::setRoomId, "roomId"));
}

void sendSystemMessage(Request& request) { sendSystem(request, messageFrom(request)); }

void downloadAttachment(Request& request) {
    const auto message = messageFrom(request);
    if (const auto path = request.text("path")) {
        auto ended = [self = request.shared_from_this(), path = *path](const Value&,
                                                                       const ErrorPtr& error) {
            if (error) return self->fail(errorBody(*error));
            std::string result;
            ObjectWriter(result).add("path", std::string_view(path));
            self->succeed(result);
        };
        return message->downloadAttachment(*path, request.progress(), std::move(ended),
                                           request.transfer());
    }
    const auto folder = request.folder();
    if (!folder)
        throw Refusal({InterfaceError::Nothing, "The temporary directory cannot be written."});
    const std::string path = *folder + "/attachment";
    auto ended = [self = request.shared_from_this(), path](const Value&, const ErrorPtr& error) {
        if (error) return self->fail(errorBody(*error));
        std::error_code failed;
        const auto size = std::filesystem::file_size(path, failed);
        if (failed || size > self->mailbox().limit() / 2) {
            return self->fail(InterfaceError::TooMuch,
                              "The attachment is too large to be returned; give a \"path\".");
        }
        std::ifstream file(path, std::ios::binary);
        const std::string bytes{std::istreambuf_iterator<char>(file), {}};
        self->succeed(R"({"data":")" + encodeBase64(bytes) + "\"}");
    };
    message->downloadAttachment(path, request.progress(), std::move(ended), request.transfer());
}

}  // namespace vexim::c::handlers
