// A message's wire form, sent with "say" and received with "message", "yourself", "sys" and in
// histories:
//
//   {"content": {"media": integer, "body": string},
//    "ts": milliseconds,
//    "from": {"id": user, "type": 0 | 1 | 2, "gid": group or room},  type 0 has no "gid"
//    "to":   {"id": user, group or room, "type": 0 | 1 | 2},
//    "speaker": user}                                incoming only, instead of "from"
//
// Example, to a group:
// {"content":{"media":0,"body":"hi"},"ts":1450000000000,"to":{"id":"g1","type":1}}

#include "VexIMLib/VXIMMessage.h"

#include <utility>

#include "VexIMLib/Foundation/Clock.h"
#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/Foundation/Scalars.h"

namespace {

using vexim::Dictionary;
using vexim::Value;

constexpr const char* kContent = "content";
constexpr const char* kMedia = "media";
constexpr const char* kBody = "body";
constexpr const char* kTimestamp = "ts";
constexpr const char* kFrom = "from";
constexpr const char* kTo = "to";
constexpr const char* kSpeaker = "speaker";
constexpr const char* kId = "id";
constexpr const char* kType = "type";
constexpr const char* kGroupOrRoomId = "gid";

constexpr const char* kPayload = "payload";  // in archives

/// The number that is sent for an enumerator.
template <class Enumeration>
Value number(Enumeration value) {
    return static_cast<std::int32_t>(value);
}

std::int64_t millisFromSeconds(double seconds) { return vexim::truncateToInt64(seconds * 1000.0); }

VXIMMessageTargetType targetType(const Value& type) {
    return static_cast<VXIMMessageTargetType>(type.intValue());
}

/// An id from the wire; null counts as nil.
Value idIn(const Value& id) { return id.isNull() ? Value() : id; }

/// An id for the wire; it must not be nil.
const Value& present(const Value& id, const char* what) {
    if (id.isNil())
        throw vexim::Exception(vexim::kInvalidArgumentException,
                               std::string("A message's ") + what + " has no id.");
    return id;
}

/// Whether the target is a user, group or room: only these are sent. (The service may send other
/// numbers.)
bool isPeer(const std::shared_ptr<VXIMMessageTarget>& target) {
    return target && target->type() >= VXIMMessageTargetTypeUser &&
           target->type() <= VXIMMessageTargetTypeRoom;
}

void requireSenderIds(const VXIMMessageTarget& sender) {
    present(sender.userId(), "sender");
    if (sender.type() == VXIMMessageTargetTypeGroup) present(sender.groupId(), "sender's group");
    if (sender.type() == VXIMMessageTargetTypeRoom) present(sender.roomId(), "sender's room");
}

const Value& requireReceiverId(const VXIMMessageTarget& receiver) {
    if (receiver.type() == VXIMMessageTargetTypeGroup)
        return present(receiver.groupId(), "receiver (a group)");
    if (receiver.type() == VXIMMessageTargetTypeRoom)
        return present(receiver.roomId(), "receiver (a room)");
    return present(receiver.userId(), "receiver (a user)");
}

}  // namespace

std::shared_ptr<VXIMMessage> VXIMMessage::init() { return vexim::create<VXIMMessage>(); }

std::shared_ptr<VXIMMessage> VXIMMessage::initWithPayloadDictionary(Dictionary payload) {
    return vexim::create<VXIMMessage>(std::move(payload));
}

std::shared_ptr<VXIMMessage> VXIMMessage::messageWithText(std::string_view text) {
    auto message = init();
    Dictionary& payload = message->payload_.emplace();
    payload.reserve(3);  // the time and the receiver are added when it is sent
    payload.set(kContent, Dictionary{{kMedia, number(VXIMMessageMediaTypeText)}, {kBody, text}});
    return message;
}

bool VXIMMessage::initialise(Dictionary payload) {
    payload_ = std::move(payload);
    configSender();
    configReceiver();
    return true;
}

void VXIMMessage::configSender() {
    const Dictionary& payload = currentPayload();
    const Value& from = payload.get(kFrom);
    Value userId = idIn(from.get(kId));
    if (userId.isNil()) userId = idIn(payload.get(kSpeaker));
    const Value& fromType = from.get(kType);
    const Value& type = fromType.isNilOrNull() ? payload.get(kTo).get(kType) : fromType;
    if (userId.isNil() && type.isNilOrNull())
        return;  // nothing is known; the first read makes an empty sender

    sender_ = VXIMMessageTarget::init();
    sender_->setUserId(std::move(userId));
    sender_->setType(type.isNilOrNull() ? VXIMMessageTargetTypeUnknown : targetType(type));

    if (sender_->type() == VXIMMessageTargetTypeGroup)
        sender_->setGroupId(idIn(from.get(kGroupOrRoomId)));
    if (sender_->type() == VXIMMessageTargetTypeRoom)
        sender_->setRoomId(idIn(from.get(kGroupOrRoomId)));
}

void VXIMMessage::configReceiver() {
    const Value& to = currentPayload().get(kTo);
    const Value& type = to.get(kType);
    if (type.isNilOrNull()) return;

    receiver_ = VXIMMessageTarget::init();
    receiver_->setType(targetType(type));

    if (receiver_->type() == VXIMMessageTargetTypeUser) receiver_->setUserId(idIn(to.get(kId)));
    if (receiver_->type() == VXIMMessageTargetTypeGroup) receiver_->setGroupId(idIn(to.get(kId)));
    if (receiver_->type() == VXIMMessageTargetTypeRoom) receiver_->setRoomId(idIn(to.get(kId)));
}

void VXIMMessage::setStatus(VXIMMessageStatus status) noexcept {
    status_ = status;
    if (status != VXIMMessageStatusFailed) error_ = nullptr;
}

void VXIMMessage::failWith(vexim::ErrorPtr error) noexcept {
    status_ = VXIMMessageStatusFailed;
    error_ = std::move(error);
}

const std::shared_ptr<VXIMMessageTarget>& VXIMMessage::sender() const {
    if (!sender_) sender_ = VXIMMessageTarget::init();
    return sender_;
}

const std::shared_ptr<VXIMMessageTarget>& VXIMMessage::receiver() const {
    if (!receiver_) receiver_ = VXIMMessageTarget::init();
    return receiver_;
}

bool VXIMMessage::isSystemMessage() const {
    return sender_ && sender_->type() == VXIMMessageTargetTypeSystem;
}

const Dictionary& VXIMMessage::currentPayload() const {
    if (!payload_) {
        payload_ = Dictionary{{kContent, Dictionary()},
                              {kTimestamp, millisFromSeconds(vexim::Clock::shared()->wallTime())}};
    }
    return *payload_;
}

Dictionary& VXIMMessage::payload() {
    currentPayload();
    return *payload_;
}

void VXIMMessage::setPayload(std::optional<Dictionary> payload) { payload_ = std::move(payload); }

VXIMMessageMediaType VXIMMessage::mediaType() const {
    return static_cast<VXIMMessageMediaType>(currentPayload().get(kContent).get(kMedia).intValue());
}

void VXIMMessage::setMediaType(VXIMMessageMediaType mediaType) {
    payload().update(kContent, [mediaType](Value& content) {
        if (!content.isDictionary()) content = Dictionary();
        content.mutableDictionary().set(kMedia, number(mediaType));
    });
}

std::optional<std::string> VXIMMessage::text() const {
    return currentPayload().get(kContent).get(kBody).asString();
}

void VXIMMessage::setText(std::optional<std::string> text) { setBody(std::move(text)); }

std::optional<std::string> VXIMMessage::attachmentUrl() const {
    if (mediaType() <= VXIMMessageMediaTypeText) return std::nullopt;
    return text();
}

void VXIMMessage::setAttachmentUrl(std::optional<std::string> url) {
    if (url) setBody(std::move(url));
}

void VXIMMessage::setBody(std::optional<std::string> body) {
    payload().update(kContent, [&body](Value& content) {
        if (!content.isDictionary()) content = Dictionary();
        content.mutableDictionary().setOrRemove(kBody, body);
    });
}

double VXIMMessage::sendTimestamp() const {
    return currentPayload().get(kTimestamp).doubleValue() / 1000.0;
}

void VXIMMessage::setSendTimestamp(double seconds) {
    payload().set(kTimestamp, millisFromSeconds(seconds));
}

std::optional<Dictionary> VXIMMessage::senderDictionary() const {
    if (!isPeer(sender_)) return std::nullopt;
    const VXIMMessageTarget& target = *sender_;
    requireSenderIds(target);
    Dictionary from{{kId, target.userId()}, {kType, number(target.type())}};
    if (target.type() == VXIMMessageTargetTypeGroup) from.set(kGroupOrRoomId, target.groupId());
    if (target.type() == VXIMMessageTargetTypeRoom) from.set(kGroupOrRoomId, target.roomId());
    return from;
}

std::optional<Dictionary> VXIMMessage::receiverDictionary() const {
    if (!isPeer(receiver_)) return std::nullopt;
    const VXIMMessageTarget& target = *receiver_;
    return Dictionary{{kId, requireReceiverId(target)}, {kType, number(target.type())}};
}

void VXIMMessage::requireIds() const {
    if (isPeer(sender_)) requireSenderIds(*sender_);
    if (isPeer(receiver_)) requireReceiverId(*receiver_);
}

Dictionary VXIMMessage::dictionaryRepresentation() {
    // Make both first, so that a missing id leaves the payload unchanged.
    auto to = receiverDictionary();
    auto from = senderDictionary();
    if (to) payload().set(kTo, *std::move(to));
    if (from) payload().set(kFrom, *std::move(from));
    return currentPayload();
}

std::shared_ptr<VXIMMessage> VXIMMessage::copy() {
    return initWithPayloadDictionary(currentPayload());
}

std::shared_ptr<vexim::Object> VXIMMessage::copy() const {
    return initWithPayloadDictionary(currentPayload());
}

std::string VXIMMessage::description() const {
    Dictionary shown = currentPayload();
    try {
        if (auto to = receiverDictionary()) shown.set(kTo, *std::move(to));
        if (auto from = senderDictionary()) shown.set(kFrom, *std::move(from));
    } catch (const vexim::Exception&) {
        // A received message may have no group or room for its sender. Logging it must not fail.
    }
    return Object::description() + " " + shown.description();
}

void VXIMMessage::encodeWithCoder(vexim::Coder& coder) const {
    coder.encode(kPayload, currentPayload());
}

std::shared_ptr<VXIMMessage> VXIMMessage::initWithCoder(const vexim::Coder& coder) {
    const Dictionary* payload = coder.decode(kPayload).asDictionary();
    return initWithPayloadDictionary(payload ? *payload : Dictionary());
}

const vexim::Class& VXIMMessage::runtimeClass() const { return staticClass(); }

const vexim::Class& VXIMMessage::staticClass() {
    static const vexim::Class& cls =
        vexim::Class::declare("VXIMMessage", &vexim::Object::staticClass());
    return cls;
}
