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

/// On success (the group, nullptr); on failure nullptr and the error, which can be nullptr, too.
using VXIMGroupCompletion =
    std::function<void(std::shared_ptr<VXIMGroup> group, vexim::ErrorPtr error)>;
/// On success (the groups in the service's order, nullptr), on failure (nullopt, the error).
using VXIMGroupsCompletion = std::function<void(
    std::optional<std::vector<std::shared_ptr<VXIMGroup>>> groups, vexim::ErrorPtr error)>;

/// A chat group: members with an owner, custom attributes (its name is one of them) and a message
/// history.
///
///     VXIMGroup::createWithOwner("u1", "Reading circle", {"u1", "u2"}, [](auto group,
///     vexim::ErrorPtr error) {
///         if (group) group->addMembers({"u3"}, {});
///     });
///
/// Operations keep the group alive until they end. Each block runs once, on the main queue, and may
/// be empty; local state changes right before it, and only after a success. On a group without an
/// id they raise NSInvalidArgumentException, as does a nil argument. Use a group on the main
/// thread.
///
/// Errors of all operations: `VXErrorDomain` with the service's code where it refused, or
/// `VXErrorNoUsableAnswer` (100) where no usable answer came, with the cause beneath
/// ("NSURLErrorDomain"); `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) where the answer
/// makes no object. `vexim::isTemporary` tells which may pass.
class VEXIM_EXPORT VXIMGroup final : public VXIMAttributedObject {
public:
    using VXIMAttributedObject::VXIMAttributedObject;

    /// A group that knows its id only. nil raises.
    static std::shared_ptr<VXIMGroup> groupWithId(vexim::Value groupId);
    // From a record as the service sends it. nullptr for a dictionary without entries.
    static std::shared_ptr<VXIMGroup> groupWithDictionary(vexim::Dictionary dictionary);
    static std::shared_ptr<VXIMGroup> initWithDictionary(vexim::Dictionary dictionary);

    /// A group to be created on the server; what is nil is left out. `name()` reads nil until the
    /// group was fetched or renamed: the creation form holds the name elsewhere.
    static std::shared_ptr<VXIMGroup> groupWithName(vexim::Value name,
                                                    std::optional<vexim::Array> members,
                                                    vexim::Value owner);

    /// nil until the group was created on the server.
    vexim::Value groupId() const;
    /// The attribute "name"; nil when not known. The setter changes the local copy only.
    vexim::Value name() const;
    void setName(vexim::Value name);
    /// The owner's user id; nil when not known. The setter changes the local copy only.
    vexim::Value owner() const;
    void setOwner(vexim::Value owner);
    /// User ids. Never nil: reading a missing list stores an empty one.
    vexim::Value members();
    void setMembers(vexim::Value members);
    /// The newest message, a new object at every read; nullptr when there is none.
    std::shared_ptr<VXIMMessage> recentMessage() const;

    /// Creates a group on the server. nullptr without an error when it answers with anything but a
    /// bare id.
    static void createWithOwner(vexim::Value owner, vexim::Value name, VXIMGroupCompletion block);
    static void createWithOwner(vexim::Value owner, vexim::Value name,
                                std::optional<vexim::Array> members, VXIMGroupCompletion block);
    /// Creates the group on the server and takes its id over. Fails without an error when the
    /// service answers with anything but a bare id.
    void createWithBlock(VXIMBooleanCompletion block);
    /// Merges the server's record into this group.
    void fetchWithBlock(VXIMBooleanCompletion block);
    /// Messages before a time in seconds since 1970, `limit` at most. An answer that is no list
    /// gives (nullopt, nullptr).
    void getLatestMessagesBefore(double timestamp, std::int32_t limit,
                                 VXIMMessagesCompletion completion);
    /// Hands the group over, on the server and then locally.
    void changeOwner(vexim::Value owner, VXIMBooleanCompletion block);
    /// Changes entries of the record itself (not of its attributes), on the server and then
    /// locally.
    void updateWithAttributes(vexim::Dictionary attributes, VXIMBooleanCompletion block);
    /// Members who are there already are listed twice afterwards.
    void addMembers(vexim::Array userIds, VXIMBooleanCompletion block);
    /// On the server, and then locally; ids of no members change nothing locally.
    void removeMembers(vexim::Array userIds, VXIMBooleanCompletion block);
    /// Renames the group: the name is one of its attributes.
    void updateName(vexim::Value name, VXIMBooleanCompletion block);
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
