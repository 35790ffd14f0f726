#pragma once

#include <cstdint>
#include <memory>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Value.h"

/// What kind of party a message comes from or goes to.
enum VXIMMessageTargetType : std::int32_t {
    /// receiver of a system message for every user
    VXIMMessageTargetTypeAllUsers = -3,
    /// sender of a system message
    VXIMMessageTargetTypeSystem = -2,
    /// not set; also the receiver of a received system message
    VXIMMessageTargetTypeUnknown = -1,
    VXIMMessageTargetTypeUser = 0,
    VXIMMessageTargetTypeGroup = 1,
    VXIMMessageTargetTypeRoom = 2,
};

/// One end of a message: its sender or its receiver.
///
/// The setters follow the kind along: a user id makes an unset (negative) kind a user, while a
/// group id or a room id always makes it a group or a room. An explicit kind thus survives
/// `setUserId`, but neither `setGroupId` nor `setRoomId`. Ids are normally strings; one that the
/// service sent as something else is kept as it stands.
class VEXIM_EXPORT VXIMMessageTarget final : public vexim::Object {
public:
    using Object::Object;
    /// A target of unknown type without ids.
    static std::shared_ptr<VXIMMessageTarget> init();

    /// Any number may stand here, as it may in what the service sends.
    VXIMMessageTargetType type() const noexcept { return type_; }
    void setType(VXIMMessageTargetType type) noexcept { type_ = type; }

    // nil when not set. A target of a group's or a room's message may name the user who speaks in
    // it, too.
    const vexim::Value& userId() const noexcept { return userId_; }
    void setUserId(vexim::Value userId);
    const vexim::Value& groupId() const noexcept { return groupId_; }
    void setGroupId(vexim::Value groupId);
    const vexim::Value& roomId() const noexcept { return roomId_; }
    void setRoomId(vexim::Value roomId);

    const vexim::Class& runtimeClass() const override;

private:
    VXIMMessageTargetType type_ = VXIMMessageTargetTypeUnknown;
    vexim::Value userId_;
    vexim::Value groupId_;
    vexim::Value roomId_;
};
