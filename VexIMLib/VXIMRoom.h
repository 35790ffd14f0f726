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

/// On success (the room, nullptr); on failure nullptr and the error, which can be nullptr, too.
using VXIMRoomCompletion =
    std::function<void(std::shared_ptr<VXIMRoom> room, vexim::ErrorPtr error)>;
/// On success (the rooms in the service's order, nullptr), on failure (nullopt, the error).
using VXIMRoomsCompletion = std::function<void(
    std::optional<std::vector<std::shared_ptr<VXIMRoom>>> rooms, vexim::ErrorPtr error)>;

/// A chat room: members, a creation time and custom attributes, without an owner.
///
/// Operations keep the room alive until they end. Each block runs once, on the main queue, and may
/// be empty; local state changes right before it, and only after a success. A nil argument raises
/// NSInvalidArgumentException. Use a room on the main thread.
///
/// Errors of all operations: `VXErrorDomain` with the service's code where it refused, or
/// `VXErrorNoUsableAnswer` (100) where no usable answer came, with the cause beneath
/// ("NSURLErrorDomain"); `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) where the answer
/// makes no object. `vexim::isTemporary` tells which may pass.
class VEXIM_EXPORT VXIMRoom final : public VXIMAttributedObject {
public:
    using VXIMAttributedObject::VXIMAttributedObject;

    /// A room that knows its id only. nil raises.
    static std::shared_ptr<VXIMRoom> roomWithId(vexim::Value roomId);
    // From a record as the service sends it. nullptr for a dictionary without "id".
    static std::shared_ptr<VXIMRoom> roomWithDictionary(vexim::Dictionary dictionary);
    static std::shared_ptr<VXIMRoom> initWithDictionary(vexim::Dictionary dictionary);

    /// The room's id.
    vexim::Value roomId() const;
    /// nil when not known. The setter changes the local copy only.
    vexim::Value name() const;
    void setName(vexim::Value name);
    /// User ids; nil when the list is not known.
    vexim::Value members() const;
    void setMembers(vexim::Value members);
    /// When the room was created: seconds since 1970; 0 when not known.
    double createTs() const;

    /// Creates a room on the server. Fails without an error when the service answers with anything
    /// but a bare id.
    static void createWithName(vexim::Value name, VXIMRoomCompletion block);
    static void createWithName(vexim::Value name, std::optional<vexim::Array> members,
                               VXIMRoomCompletion block);
    /// Merges the server's record into this room.
    void fetchWithBlock(VXIMBooleanCompletion block);
    /// Fails without an error when the service does not say "success".
    void updateName(vexim::Value name, VXIMBooleanCompletion block);
    /// Members who are there already are listed twice afterwards; a list that is not known stays
    /// so.
    void addMembers(vexim::Array userIds, VXIMBooleanCompletion block);
    /// On the server, and then locally; ids of no members change nothing locally.
    void removeMembers(vexim::Array userIds, VXIMBooleanCompletion block);
    /// Deletes it on the server; this object stays as it is.
    void deleteWithBlock(VXIMBooleanCompletion block);

    std::string_view keyPathForProperty(std::string_view property) const override;
    const vexim::Class& runtimeClass() const override;
    static const vexim::Class& staticClass();

    bool initialise(vexim::Dictionary dictionary) override;

protected:
    const char* pathPrefix() const override;
    vexim::Value resourceId() const override;
    LocalCopy localAttributes() const override;
};
