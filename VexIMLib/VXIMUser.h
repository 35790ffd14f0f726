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

/// A user of the service: the record, the lists of friends, groups and rooms, and the chat history
/// with a friend.
///
///     client->currentUser()->fetchFriendsWithDetail(true, [user](bool succeeded, vexim::ErrorPtr
///     error) {
///         for (const auto& info : user->friends().value_or({})) …
///     });
///
/// Operations keep the user alive until they end. Each completion runs once, on the main queue, and
/// may be empty; local state changes right before it, and only after a success. A nil argument, or
/// a user without an id, raises NSInvalidArgumentException. Use a user on the main thread.
///
/// Errors of all operations: `VXErrorDomain` with the service's code where it refused, or
/// `VXErrorNoUsableAnswer` (100) where no usable answer came, with the cause beneath
/// ("NSURLErrorDomain"); `VXIMErrorDomain` with `VXIMErrorUnusableAnswer` (2) where the answer
/// makes no object. `vexim::isTemporary` tells which may pass.
class VEXIM_EXPORT VXIMUser final : public VXIMAttributedObject {
public:
    using VXIMAttributedObject::VXIMAttributedObject;

    /// A user that knows the id only. nil raises.
    static std::shared_ptr<VXIMUser> userWithId(vexim::Value uid);
    /// nullptr for a dictionary without "id".
    static std::shared_ptr<VXIMUser> initWithDictionary(vexim::Dictionary dictionary);

    /// The user's id.
    vexim::Value uid() const;
    /// How many live connections the user had when the record was fetched; 0 when not known.
    std::int64_t sessionCount() const;
    /// Whether the user has any. Of the current user: whether this client is connected.
    bool online() const;
    void setOnline(bool online);
    /// When the record last changed; 1970-01-01 when not known.
    vexim::Date updatedAt() const;

    // What the login of the current user was made with, if it was; never sent.
    const vexim::Value& username() const noexcept { return username_; }
    void setUsername(vexim::Value username) { username_ = std::move(username); }
    const vexim::Value& phoneNumber() const noexcept { return phoneNumber_; }
    void setPhoneNumber(vexim::Value phoneNumber) { phoneNumber_ = std::move(phoneNumber); }

    // Replaced as a whole by the fetches below; nullopt until the first has succeeded.
    const std::optional<std::vector<std::shared_ptr<VXIMFriendInfo>>>& friends() const noexcept {
        return friends_;
    }
    const std::optional<std::vector<std::shared_ptr<VXIMGroup>>>& groups() const noexcept {
        return groups_;
    }
    /// Objects of class `VXIMRoom` after `fetchRoomsWithDetail`, bare room ids after
    /// `fetchWithCompletion`.
    const std::optional<vexim::Array>& rooms() const noexcept { return rooms_; }

    /// Fetches the ids of friends, groups and rooms. Nothing else of the record is stored. An
    /// answer that is no dictionary changes nothing and counts as a success.
    void fetchWithCompletion(VXIMBooleanCompletion completion);
    // With `detail` the service sends records, without it ids. An answer that is no list changes
    // nothing and counts as a success; a list with an element that makes no friend, group or room
    // is an error.
    void fetchFriendsWithDetail(bool detail, VXIMBooleanCompletion completion);
    void fetchGroupsWithDetail(bool detail, VXIMBooleanCompletion completion);
    void fetchRoomsWithDetail(bool detail, VXIMBooleanCompletion completion);

    /// The result is the service's. `friends` stays as it is.
    void addFriendWithUser(vexim::Value friendId, VXIMResultCompletion completion);
    /// An answer that is no dictionary gives (nullptr, nullptr).
    void getFriendInfo(vexim::Value friendId, VXIMFriendInfoCompletion completion);
    /// `friends` stays as it is.
    void deleteFriend(vexim::Value friendId, VXIMBooleanCompletion completion);
    /// Messages with a friend before a time in seconds since 1970, `limit` at most. An answer that
    /// is no list is an error.
    void getLatestChatsWithFriend(vexim::Value friendId, double timestamp, std::int32_t limit,
                                  VXIMMessagesCompletion block);

    std::string_view keyPathForProperty(std::string_view property) const override;
    const vexim::Class& runtimeClass() const override;
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
