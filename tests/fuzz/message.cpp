// Any JSON object as a message's payload: it makes a message whatever the fields contain, every
// property can be read, and what is written can be read again as the same message.

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/VXIMFriendInfo.h"
#include "VexIMLib/VXIMGroup.h"
#include "VexIMLib/VXIMMessage.h"
#include "VexIMLib/VXIMRoom.h"
#include "VexIMLib/VXIMUser.h"

namespace {

void require(bool condition) {
    if (!condition) std::abort();
}

void read(VXIMMessage& message) {
    (void)message.text();
    (void)message.attachmentUrl();
    (void)message.mediaType();
    (void)message.sendTimestamp();
    (void)message.isSystemMessage();
    (void)message.copy();
}

/// Dynamic properties are strict: reading a value of another type raises.
template <class Read>
void readStrictly(Read read) {
    try {
        read();
    } catch (const vexim::Exception&) {
    }
}

void readAsResources(const vexim::Dictionary& record) {
    const auto info = VXIMFriendInfo::initWithDictionary(record);
    (void)info->recentMessage();
    if (const auto group = VXIMGroup::groupWithDictionary(record)) {
        readStrictly([&] { (void)group->members(); });
        readStrictly([&] { (void)group->name(); });
        if (const auto recent = group->recentMessage()) read(*recent);
    }
    if (const auto user = VXIMUser::initWithDictionary(record)) {
        readStrictly([&] { (void)user->sessionCount(); });
        readStrictly([&] { (void)user->online(); });
        (void)user->updatedAt();
    }
    if (const auto room = VXIMRoom::roomWithDictionary(record)) {
        readStrictly([&] { (void)room->name(); });
        (void)room->createTs();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const auto parsed = vexim::parseJSON({reinterpret_cast<const char*>(bytes), size}).value;
    if (!parsed.isDictionary()) return 0;
    const vexim::Dictionary& payload = *parsed.asDictionary();

    const auto message = VXIMMessage::initWithPayloadDictionary(payload);
    require(message && message->payload() == payload);
    read(*message);
    try {
        const vexim::Dictionary written = message->dictionaryRepresentation();
        const auto again = VXIMMessage::initWithPayloadDictionary(written);
        require(again->receiver()->type() == message->receiver()->type());
        require(again->text() == message->text() &&
                again->sendTimestamp() == message->sendTimestamp());
        require(again->dictionaryRepresentation() == written);
    } catch (const vexim::Exception&) {  // a known kind without its id
    }
    readAsResources(payload);
    return 0;
}
