#pragma once

#include <cstdint>
#include <memory>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Value.h"

/// What a message comes from or goes to.
enum VXIMMessageTargetType : std::int32_t {
    /// the receiver of a system message to every user
    VXIMMessageTargetTypeAllUsers = -3,
    /// the sender of a system message
    VXIMMessageTargetTypeSystem = -2,
    /// not set; also the receiver of a system message that was received
    VXIMMessageTargetTypeUnknown = -1,
    /// a user
    VXIMMessageTargetTypeUser = 0,
    /// a group
    VXIMMessageTargetTypeGroup = 1,
    /// a room
    VXIMMessageTargetTypeRoom = 2,
};

/// The sender or the receiver of a message.
///
/// Setting an id sets the type, too. `setGroupId` and `setRoomId` always make the target a group or
/// a room. `setUserId` makes it a user only if the type is not set (negative). Ids are normally
/// strings. If the service sent something else, it is kept unchanged. Use a target from one thread
/// at a time. No function here fails.
///
///     message->receiver()->setGroupId("g1");  // now a message to the group g1
class VEXIM_EXPORT VXIMMessageTarget final : public vexim::Object {
public:
    using Object::Object;
    /// Makes a target of type Unknown without ids.
    /// Applications seldom need this: a message makes its own targets.
    static std::shared_ptr<VXIMMessageTarget> init();

    /// What the target is. The service may send other numbers, so any number is possible. Setting
    /// it does not change the ids.
    VXIMMessageTargetType type() const noexcept { return type_; }
    void setType(VXIMMessageTargetType type) noexcept { type_ = type; }

    // The ids; nil if not set. The sender of a group or room message may also have the id of the
    // user who wrote it.
    const vexim::Value& userId() const noexcept { return userId_; }
    void setUserId(vexim::Value userId);
    const vexim::Value& groupId() const noexcept { return groupId_; }
    void setGroupId(vexim::Value groupId);
    const vexim::Value& roomId() const noexcept { return roomId_; }
    void setRoomId(vexim::Value roomId);

    /// The runtime record of the class.
    const vexim::Class& runtimeClass() const override;

private:
    VXIMMessageTargetType type_ = VXIMMessageTargetTypeUnknown;
    vexim::Value userId_;
    vexim::Value groupId_;
    vexim::Value roomId_;
};
