#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/Foundation/Date.h"
#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Error.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"
#include "VexIMLib/VXIMAttributedObject.h"
#include "VexIMLib/VXIMCompletions.h"
#include "VexIMLib/VXIMFriendInfo.h"
#include "VexIMLib/VXIMGroup.h"
#include "VexIMLib/VXIMMessage.h"

class VXIMUser;

/// On success (the users in the service's order, nullptr), on failure (nullopt, the error).
using VXIMUsersCompletion = std::function<void(
    std::optional<std::vector<std::shared_ptr<VXIMUser>>> users, vexim::ErrorPtr error)>;

/// A user of the service, with a record, lists of friends, groups and rooms, and the chat history
/// with each friend.
///
///     const auto user = client->currentUser();
///     user->fetchFriendsWithDetail(true, [user](bool succeeded, vexim::ErrorPtr error) {
///         for (const auto& info : user->friends().value_or({})) …
///     });
///
/// Operations keep the user alive until they end. Each completion runs once, on the main queue, and
/// may be empty. Local state changes right before it runs, and only after a success. A nil
/// argument, or a user without an id, raises NSInvalidArgumentException. Use a user on the main
/// thread.
///
/// Errors of all operations: `VXErrorDomain` with the service's code if it refused, or with
/// `VXErrorNoUsableAnswer` (100) if no usable answer came; the underlying error
/// ("NSURLErrorDomain") is the cause. `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) if no
/// object can be made from the answer. `vexim::isTemporary` says whether trying again later may
/// help.
class VEXIM_EXPORT VXIMUser final : public VXIMAttributedObject {
public:
    using VXIMAttributedObject::VXIMAttributedObject;

    /// Makes a user that knows its id only. nil raises NSInvalidArgumentException.
    static std::shared_ptr<VXIMUser> userWithId(vexim::Value uid);
    /// Makes a user from a record of the service. Returns nullptr if the dictionary has no "id".
    static std::shared_ptr<VXIMUser> initWithDictionary(vexim::Dictionary dictionary);

    /// The user's id, normally a string.
    vexim::Value uid() const;
    /// How many live connections the user had when the record was fetched; 0 if not known.
    std::int64_t sessionCount() const;
    /// Whether the user has a live connection. For the current user: whether this client is
    /// connected.
    bool online() const;
    void setOnline(bool online);
    /// When the record last changed; 1970-01-01 if not known.
    vexim::Date updatedAt() const;

    // The name or number that the current user logged in with; nil for other kinds of login. Never
    // sent.
    const vexim::Value& username() const noexcept { return username_; }
    void setUsername(vexim::Value username) { username_ = std::move(username); }
    const vexim::Value& phoneNumber() const noexcept { return phoneNumber_; }
    void setPhoneNumber(vexim::Value phoneNumber) { phoneNumber_ = std::move(phoneNumber); }

    // The lists that the fetches below fill. Each fetch replaces its list. nullopt until the first
    // one has succeeded.
    //
    // A list belongs to this object: two objects of one user each have their own, and nothing
    // updates it when somebody else changes the record on the server.
    const std::optional<std::vector<std::shared_ptr<VXIMFriendInfo>>>& friends() const noexcept {
        return friends_;
    }
    const std::optional<std::vector<std::shared_ptr<VXIMGroup>>>& groups() const noexcept {
        return groups_;
    }
    /// `VXIMRoom` objects after `fetchRoomsWithDetail`, plain room ids after `fetchWithCompletion`.
    const std::optional<vexim::Array>& rooms() const noexcept { return rooms_; }

    /// Fetches the ids of friends, groups and rooms; it stores nothing else of the record. An
    /// answer that is not a dictionary changes nothing and counts as a success.
    void fetchWithCompletion(VXIMBooleanCompletion completion);
    // Fetch one list: records with `detail`, otherwise only ids. An answer that is not a list
    // changes nothing and counts as a success. If an element is not a friend, group or room, the
    // error is `VXIMErrorUnusableAnswer`.
    void fetchFriendsWithDetail(bool detail, VXIMBooleanCompletion completion);
    void fetchGroupsWithDetail(bool detail, VXIMBooleanCompletion completion);
    void fetchRoomsWithDetail(bool detail, VXIMBooleanCompletion completion);

    /// Makes a user a friend. The result is the service's answer. `friends` does not change: fetch
    /// it again to see the new friend.
    void addFriendWithUser(vexim::Value friendId, VXIMResultCompletion completion);
    /// Fetches the record of one friend, as a new `VXIMFriendInfo`; `friends` does not change.
    /// `completion` gets (nullptr, nullptr) if the answer is not a dictionary.
    void getFriendInfo(vexim::Value friendId, VXIMFriendInfoCompletion completion);
    /// Ends a friendship. `friends` does not change: fetch it again.
    void deleteFriend(vexim::Value friendId, VXIMBooleanCompletion completion);
    /// Gets the messages with a friend before `timestamp` (seconds since 1970), `limit` at most. If
    /// the answer is not a list, the error is `VXIMErrorUnusableAnswer`.
    void getLatestChatsWithFriend(vexim::Value friendId, double timestamp, std::int32_t limit,
                                  VXIMMessagesCompletion block);

    /// Where the properties are in the record: "uid" is under "id".
    std::string_view keyPathForProperty(std::string_view property) const override;
    const vexim::Class& runtimeClass() const override;
    /// The runtime record of the class.
    static const vexim::Class& staticClass();

    bool initialise(vexim::Dictionary dictionary) override;

protected:
    const char* pathPrefix() const override;
    vexim::Value resourceId() const override;
    LocalCopy localAttributes() const override;

private:
    friend class VXIMClient;  // a login fills uid
    void setUid(vexim::Value uid);
    std::string friendPath(const vexim::Value& friendId) const;
    std::shared_ptr<VXIMUser> self() { return sharedAs<VXIMUser>(); }

    vexim::Value username_;
    vexim::Value phoneNumber_;
    std::optional<std::vector<std::shared_ptr<VXIMFriendInfo>>> friends_;
    std::optional<std::vector<std::shared_ptr<VXIMGroup>>> groups_;
    std::optional<vexim::Array> rooms_;
};
