#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMAttributedObject.h"
#include "VexIMLib/VXIMCompletions.h"

class VXIMRoom;

/// On success (the room, nullptr), on failure (nullptr, the error). The error can be nullptr as
/// well.
using VXIMRoomCompletion =
    std::function<void(std::shared_ptr<VXIMRoom> room, vexim::ErrorPtr error)>;
/// On success (the rooms in the service's order, nullptr), on failure (nullopt, the error).
using VXIMRoomsCompletion = std::function<void(
    std::optional<std::vector<std::shared_ptr<VXIMRoom>>> rooms, vexim::ErrorPtr error)>;

/// A chat room: members, a creation time and custom attributes, without an owner.
///
/// Operations keep the room alive until they end. Each block runs once, on the main queue, and may
/// be empty. Local state changes right before it runs, and only after a success. A nil argument
/// raises NSInvalidArgumentException. Use a room on the main thread.
///
/// Errors of all operations: `VXErrorDomain` with the service's code if it refused, or with
/// `VXErrorNoUsableAnswer` (100) if no usable answer came; the underlying error
/// ("NSURLErrorDomain") is the cause. `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) if no
/// object can be made from the answer. `vexim::isTemporary` says whether trying again later may
/// help.
class VEXIM_EXPORT VXIMRoom final : public VXIMAttributedObject {
public:
    using VXIMAttributedObject::VXIMAttributedObject;

    /// Makes a room that knows its id only. nil raises NSInvalidArgumentException.
    static std::shared_ptr<VXIMRoom> roomWithId(vexim::Value roomId);
    // Makes a room from a record of the service. Returns nullptr if the dictionary has no "id".
    static std::shared_ptr<VXIMRoom> roomWithDictionary(vexim::Dictionary dictionary);
    static std::shared_ptr<VXIMRoom> initWithDictionary(vexim::Dictionary dictionary);

    /// The room's id.
    vexim::Value roomId() const;
    /// The room's name; nil if not known. The setter changes the local copy only.
    vexim::Value name() const;
    void setName(vexim::Value name);
    /// The members' user ids; nil if the list is not known. The setter changes the local copy only.
    vexim::Value members() const;
    void setMembers(vexim::Value members);
    /// When the room was created, in seconds since 1970; 0 if not known.
    double createTs() const;

    /// Creates a room on the server. `block` gets (nullptr, nullptr) if the service answers with
    /// anything but a bare id.
    static void createWithName(vexim::Value name, VXIMRoomCompletion block);
    static void createWithName(vexim::Value name, std::optional<vexim::Array> members,
                               VXIMRoomCompletion block);
    /// Merges the server's record into this room.
    void fetchWithBlock(VXIMBooleanCompletion block);
    /// Renames the room, on the server and then locally. `block` gets (false, nullptr) if the
    /// service does not answer "success".
    void updateName(vexim::Value name, VXIMBooleanCompletion block);
    /// Adds members, on the server and then locally. Users who already are members are then listed
    /// twice. If `members` is nil, it stays nil.
    void addMembers(vexim::Array userIds, VXIMBooleanCompletion block);
    /// Removes members, on the server and then locally. Ids of users who are not members are
    /// ignored locally.
    void removeMembers(vexim::Array userIds, VXIMBooleanCompletion block);
    /// Deletes the room on the server. This object does not change.
    void deleteWithBlock(VXIMBooleanCompletion block);

    /// Where the properties are in the record: "roomId" is under "id".
    std::string_view keyPathForProperty(std::string_view property) const override;
    const vexim::Class& runtimeClass() const override;
    /// The runtime record of the class.
    static const vexim::Class& staticClass();

    bool initialise(vexim::Dictionary dictionary) override;

protected:
    const char* pathPrefix() const override;
    vexim::Value resourceId() const override;
    LocalCopy localAttributes() const override;
};
