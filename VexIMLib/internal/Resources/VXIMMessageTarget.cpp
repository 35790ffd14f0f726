#include "VexIMLib/VXIMMessageTarget.h"

#include <utility>

#include "VexIMLib/Foundation/Runtime/Class.h"

std::shared_ptr<VXIMMessageTarget> VXIMMessageTarget::init() {
    return vexim::create<VXIMMessageTarget>();
}

void VXIMMessageTarget::setUserId(vexim::Value userId) {
    userId_ = std::move(userId);
    if (type_ < 0) type_ = VXIMMessageTargetTypeUser;
}

void VXIMMessageTarget::setGroupId(vexim::Value groupId) {
    groupId_ = std::move(groupId);
    type_ = VXIMMessageTargetTypeGroup;
}

void VXIMMessageTarget::setRoomId(vexim::Value roomId) {
    roomId_ = std::move(roomId);
    type_ = VXIMMessageTargetTypeRoom;
}

const vexim::Class& VXIMMessageTarget::runtimeClass() const {
    static const vexim::Class& cls =
        vexim::Class::declare("VXIMMessageTarget", &vexim::Object::staticClass());
    return cls;
}
