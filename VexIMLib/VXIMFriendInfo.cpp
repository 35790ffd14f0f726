#include "VexIMLib/VXIMFriendInfo.h"

#include <utility>

#include "VexIMLib/Foundation/NotificationCenter.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/VXIMConstants.h"
#include "VexIMLib/VXIMMessage.h"

using vexim::Dictionary;
using vexim::Notification;
using vexim::NotificationCenter;
using vexim::Value;

VXIMFriendInfo::~VXIMFriendInfo() { NotificationCenter::defaultCenter().removeObserver(this); }

std::shared_ptr<VXIMFriendInfo> VXIMFriendInfo::infoWithId(Value uid) {
    return infoWithDictionary(Dictionary{{"id", std::move(uid)}});
}

std::shared_ptr<VXIMFriendInfo> VXIMFriendInfo::infoWithDictionary(const Dictionary& dictionary) {
    return initWithDictionary(dictionary);
}

std::shared_ptr<VXIMFriendInfo> VXIMFriendInfo::initWithDictionary(const Dictionary& dictionary) {
    return vexim::create<VXIMFriendInfo>(dictionary);
}

bool VXIMFriendInfo::initialise(const Dictionary& dictionary) {
    uid_ = dictionary.get("id");
    setMetadataWithDictionary(dictionary);
    observePresence();
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

// An application may hold very many infos. Each therefore hears the events of its own friend only, found by the id, instead of
// comparing the id of everybody's.
void VXIMFriendInfo::observePresence() {
    if (!uid_.isString() && !uid_.isNumber()) return;  // equals no event's id
    const auto follow = [this](const char* notificationName, void (VXIMFriendInfo::*react)(const Notification&)) {
        // The centre keeps an observer alive while its handler runs.
        auto handler = [this, react](const Notification& notification) { (this->*react)(notification); };
        NotificationCenter::defaultCenter().addObserver(shared_from_this(), notificationName, "id", uid_, std::move(handler));
    };
    follow(VXIMFriendOnlineNotification, &VXIMFriendInfo::didOnline);
    follow(VXIMFriendOfflineNotification, &VXIMFriendInfo::didOffline);
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
    static const vexim::Class& cls = vexim::Class::declare("VXIMFriendInfo", &vexim::Object::staticClass());
    return cls;
}
