#include "VexIMLib/VXIMFriendInfo.h"

#include <utility>

#include "VexIMLib/Foundation/NotificationCenter.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/VXIMConstants.h"
#include "VexIMLib/VXIMMessage.h"

using vexim::Dictionary;
using vexim::Notification;
using vexim::Value;

namespace {

const vexim::detail::EmbeddedObserver::Kind& presence() {
    static const vexim::detail::EmbeddedObserver::Kind kind{
        {VXIMFriendOnlineNotification, VXIMFriendOfflineNotification},
        "id",
        [](vexim::Object& observer, const Notification& notification) {
            auto& info = static_cast<VXIMFriendInfo&>(observer);
            notification.name == VXIMFriendOnlineNotification ? info.didOnline(notification)
                                                              : info.didOffline(notification);
        }};
    return kind;
}

}  // namespace

VXIMFriendInfo::~VXIMFriendInfo() = default;

std::shared_ptr<VXIMFriendInfo> VXIMFriendInfo::infoWithId(Value uid) {
    if (uid.isNil()) return infoWithDictionary(Dictionary{{"id", uid}});  // raises
    return vexim::create<VXIMFriendInfo>(std::move(uid));
}

std::shared_ptr<VXIMFriendInfo> VXIMFriendInfo::infoWithDictionary(const Dictionary& dictionary) {
    return initWithDictionary(dictionary);
}

std::shared_ptr<VXIMFriendInfo> VXIMFriendInfo::initWithDictionary(const Dictionary& dictionary) {
    return vexim::create<VXIMFriendInfo>(dictionary);
}

bool VXIMFriendInfo::initialise(const Dictionary& dictionary) {
    setMetadataWithDictionary(dictionary);
    return initialise(dictionary.get("id"));
}

bool VXIMFriendInfo::initialise(Value uid) {
    uid_ = std::move(uid);
    presence_.join(presence(), *this, uid_);
    return true;
}

void VXIMFriendInfo::setMetadataWithDictionary(const Dictionary& dictionary) {
    setOnline(dictionary.get("online").boolValue());
    ts_ = dictionary.get("ts").longLongValue();
    from_ = dictionary.get("from");
    to_ = dictionary.get("to");
    const Value& recent = dictionary.get("recent");
    if (recent.isNilOrNull()) return;
    const Dictionary* payload = recent.asDictionary();
    recentMessage_ = VXIMMessage::initWithPayloadDictionary(payload ? *payload : Dictionary());
}

bool VXIMFriendInfo::isMeantBy(const Notification& notification) const {
    return notification.userInfo && vexim::idsEqual(notification.userInfo->get("id"), uid_);
}

void VXIMFriendInfo::didOnline(const Notification& notification) {
    if (isMeantBy(notification)) setOnline(true);
}

void VXIMFriendInfo::didOffline(const Notification& notification) {
    if (isMeantBy(notification)) setOnline(false);
}

const vexim::Class& VXIMFriendInfo::runtimeClass() const {
    static const vexim::Class& cls =
        vexim::Class::declare("VXIMFriendInfo", &vexim::Object::staticClass());
    return cls;
}
