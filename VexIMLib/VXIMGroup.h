#pragma once

#include <cstdint>
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
#include "VexIMLib/VXIMMessage.h"

class VXIMGroup;

/// On success (the group, nullptr), on failure (nullptr, the error). The error can be nullptr as
/// well.
using VXIMGroupCompletion =
    std::function<void(std::shared_ptr<VXIMGroup> group, vexim::ErrorPtr error)>;
/// On success (the groups in the service's order, nullptr), on failure (nullopt, the error).
using VXIMGroupsCompletion = std::function<void(
    std::optional<std::vector<std::shared_ptr<VXIMGroup>>> groups, vexim::ErrorPtr error)>;

/// A chat group: members with an owner, custom attributes (its name is one of them) and a message
/// history.
///
///     VXIMGroup::createWithOwner("u1", "Reading circle", {"u1", "u2"},
///                                [](auto group, vexim::ErrorPtr error) {
///                                    if (group) group->addMembers({"u3"}, {});
///                                });
///
/// Operations keep the group alive until they end. Each block runs once, on the main queue, and may
/// be empty. Local state changes right before it runs, and only after a success. A nil argument, or
/// a group without an id, raises NSInvalidArgumentException. Use a group on the main thread.
///
/// Errors of all operations: `VXErrorDomain` with the service's code if it refused, or with
/// `VXErrorNoUsableAnswer` (100) if no usable answer came; the underlying error
/// ("NSURLErrorDomain") is the cause. `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) if no
/// object can be made from the answer. `vexim::isTemporary` says whether trying again later may
/// help.
class VEXIM_EXPORT VXIMGroup final : public VXIMAttributedObject {
public:
    using VXIMAttributedObject::VXIMAttributedObject;

    /// Makes a group that knows its id only. nil raises NSInvalidArgumentException.
    static std::shared_ptr<VXIMGroup> groupWithId(vexim::Value groupId);
    // Makes a group from a record of the service. Returns nullptr if the dictionary is empty.
    static std::shared_ptr<VXIMGroup> groupWithDictionary(vexim::Dictionary dictionary);
    static std::shared_ptr<VXIMGroup> initWithDictionary(vexim::Dictionary dictionary);

    /// Makes a group to be created on the server with `createWithBlock`. nil values are left out.
    /// `name()` returns nil until the group is fetched or renamed, because the creation form holds
    /// the name in another place.
    static std::shared_ptr<VXIMGroup> groupWithName(vexim::Value name,
                                                    std::optional<vexim::Array> members,
                                                    vexim::Value owner);

    /// The group's id; nil until the group was created on the server.
    vexim::Value groupId() const;
    /// The attribute "name"; nil when not known. The setter changes the local copy only.
    vexim::Value name() const;
    void setName(vexim::Value name);
    /// The owner's user id; nil when not known. The setter changes the local copy only.
    vexim::Value owner() const;
    void setOwner(vexim::Value owner);
    /// The members' user ids. Never nil: reading a missing list stores an empty one.
    vexim::Value members();
    void setMembers(vexim::Value members);
    /// The newest message; nullptr if there is none. Each call makes a new object.
    std::shared_ptr<VXIMMessage> recentMessage() const;

    /// Creates a group on the server. `block` gets (nullptr, nullptr) if the service answers with
    /// anything but a bare id.
    static void createWithOwner(vexim::Value owner, vexim::Value name, VXIMGroupCompletion block);
    static void createWithOwner(vexim::Value owner, vexim::Value name,
                                std::optional<vexim::Array> members, VXIMGroupCompletion block);
    /// Creates the group on the server and sets `groupId`. `block` gets (false, nullptr) if the
    /// service answers with anything but a bare id.
    void createWithBlock(VXIMBooleanCompletion block);
    /// Merges the server's record into this group.
    void fetchWithBlock(VXIMBooleanCompletion block);
    /// Gets the group's messages before `timestamp` (seconds since 1970), `limit` at most.
    /// `completion` gets (nullopt, nullptr) if the answer is not a list.
    void getLatestMessagesBefore(double timestamp, std::int32_t limit,
                                 VXIMMessagesCompletion completion);
    /// Makes another user the owner, on the server and then locally.
    void changeOwner(vexim::Value owner, VXIMBooleanCompletion block);
    /// Changes entries of the group's record (not of its custom attributes), on the server and then
    /// locally.
    void updateWithAttributes(vexim::Dictionary attributes, VXIMBooleanCompletion block);
    /// Adds members, on the server and then locally. Users who already are members are then listed
    /// twice.
    void addMembers(vexim::Array userIds, VXIMBooleanCompletion block);
    /// Removes members, on the server and then locally. Ids of users who are not members are
    /// ignored locally.
    void removeMembers(vexim::Array userIds, VXIMBooleanCompletion block);
    /// Renames the group, on the server and then locally. The name is one of its attributes.
    void updateName(vexim::Value name, VXIMBooleanCompletion block);
    /// Deletes the group on the server. This object does not change.
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
