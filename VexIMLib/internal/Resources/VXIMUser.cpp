#include "VexIMLib/VXIMUser.h"

#include <utility>

#include "VexIMLib/VXIMRoom.h"
#include "VexIMLib/internal/MessageForwarding/DynamicProperty.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Resources/ResourceOperations.h"

using namespace vexim::resources;
using vexim::Array;
using vexim::Dictionary;
using vexim::Value;

namespace {

constinit const vexim::DynamicProperty<Value> kUid{&VXIMUser::staticClass, "uid"};
constinit const vexim::DynamicProperty<std::int64_t> kSessionCount{&VXIMUser::staticClass,
                                                                   "sessionCount"};
constinit const vexim::DynamicProperty<bool> kOnline{&VXIMUser::staticClass, "online"};

const char* detailSuffix(bool detail) { return detail ? "?detail" : ""; }

/// Makes the objects of a list. With detail each element is a record, otherwise an id.
template <class Make>
auto listOf(const Array& list, bool detail, const char* what, const Make& make) {
    return objectsFrom(list, what, [detail, &make](const Value& element) {
        return make(detail ? requireDictionary(element, "An element of the list")
                           : Dictionary{{"id", element}});
    });
}

}  // namespace

const vexim::Class& VXIMUser::staticClass() {
    static const vexim::Class& cls =
        vexim::Class::declare("VXIMUser", &VXIMRuntimeObject::staticClass(),
                              {{"uid", "T@\"NSString\",&,D,N"},
                               {"sessionCount", "Tq,D,N"},
                               {"online", "TB,D,N"},
                               {"attributes", "T@\"NSDictionary\",&,D,N"}});
    return cls;
}

const vexim::Class& VXIMUser::runtimeClass() const { return staticClass(); }

std::string_view VXIMUser::keyPathForProperty(std::string_view property) const {
    if (property == "uid") return "id";
    if (property == "sessionCount") return "sessions";
    return VXIMRuntimeObject::keyPathForProperty(property);
}

std::shared_ptr<VXIMUser> VXIMUser::userWithId(Value uid) {
    return initWithDictionary(Dictionary{{"id", std::move(uid)}});
}

std::shared_ptr<VXIMUser> VXIMUser::initWithDictionary(Dictionary dictionary) {
    return vexim::create<VXIMUser>(std::move(dictionary));
}

bool VXIMUser::initialise(Dictionary dictionary) {
    return dictionary.contains("id") && VXIMRuntimeObject::initialise(std::move(dictionary));
}

Value VXIMUser::uid() const { return kUid.get(*this); }
void VXIMUser::setUid(Value uid) { kUid.set(*this, std::move(uid)); }
std::int64_t VXIMUser::sessionCount() const { return kSessionCount.get(*this); }
bool VXIMUser::online() const { return kOnline.get(*this); }
void VXIMUser::setOnline(bool online) { kOnline.set(*this, online); }

vexim::Date VXIMUser::updatedAt() const {
    return vexim::Date::fromTimeIntervalSince1970(objectForKey("ts").doubleValue() / 1000.0);
}

const char* VXIMUser::pathPrefix() const { return "/ctx"; }
Value VXIMUser::resourceId() const { return uid(); }
VXIMAttributedObject::LocalCopy VXIMUser::localAttributes() const { return LocalCopy::StaysAsItIs; }

void VXIMUser::fetchWithCompletion(VXIMBooleanCompletion completion) {
    VXIMHTTPRequest::get(
        resourcePath(), std::nullopt,
        endingWithSuccess(std::move(completion), [self = self()](const Value& result) {
            if (!result.isDictionary()) return;
            auto friends = objectsFrom(
                requireArrayOrNil(result.get("friends"), "The user's friends"), "friend",
                [](const Value& id) { return VXIMFriendInfo::infoWithId(id); });
            auto groups =
                objectsFrom(requireArrayOrNil(result.get("groups"), "The user's groups"), "group",
                            [](const Value& id) { return VXIMGroup::groupWithId(id); });
            // Rooms stay plain ids here, unlike in the other lists.
            Array rooms = requireArrayOrNil(result.get("rooms"), "The user's rooms");
            self->friends_ = std::move(friends);
            self->groups_ = std::move(groups);
            self->rooms_ = std::move(rooms);
        }));
}

void VXIMUser::fetchFriendsWithDetail(bool detail, VXIMBooleanCompletion completion) {
    VXIMHTTPRequest::get(
        resourcePath("/friends").append(detailSuffix(detail)), std::nullopt,
        endingWithSuccess(std::move(completion), [self = self(), detail](const Value& result) {
            if (!result.isArray()) return;
            self->friends_ =
                listOf(*result.asArray(), detail, "friend", &VXIMFriendInfo::infoWithDictionary);
        }));
}

void VXIMUser::fetchGroupsWithDetail(bool detail, VXIMBooleanCompletion completion) {
    VXIMHTTPRequest::get(
        resourcePath("/groups").append(detailSuffix(detail)), std::nullopt,
        endingWithSuccess(std::move(completion), [self = self(), detail](const Value& result) {
            if (!result.isArray()) return;
            self->groups_ =
                listOf(*result.asArray(), detail, "group", &VXIMGroup::groupWithDictionary);
        }));
}

void VXIMUser::fetchRoomsWithDetail(bool detail, VXIMBooleanCompletion completion) {
    VXIMHTTPRequest::get(
        resourcePath("/rooms").append(detailSuffix(detail)), std::nullopt,
        endingWithSuccess(std::move(completion), [self = self(), detail](const Value& result) {
            if (!result.isArray()) return;
            auto rooms = listOf(*result.asArray(), detail, "room", &VXIMRoom::roomWithDictionary);
            self->rooms_ = Array(std::vector<Value>(rooms.begin(), rooms.end()));
        }));
}

std::string VXIMUser::friendPath(const Value& friendId) const {
    return resourcePath("/friends/").append(pathId(friendId, "The friend's id"));
}

void VXIMUser::addFriendWithUser(Value friendId, VXIMResultCompletion completion) {
    VXIMHTTPRequest::post(friendPath(friendId), nullptr, std::move(completion));
}

void VXIMUser::getFriendInfo(Value friendId, VXIMFriendInfoCompletion completion) {
    VXIMHTTPRequest::get(friendPath(friendId), std::nullopt,
                         endingWith<std::shared_ptr<VXIMFriendInfo>>(
                             std::move(completion), nullptr,
                             [friendId](const Value& result,
                                        const vexim::ErrorPtr&) -> std::shared_ptr<VXIMFriendInfo> {
                                 if (!result.isDictionary()) return nullptr;
                                 Dictionary record = *result.asDictionary();
                                 record.set("id", friendId);
                                 return VXIMFriendInfo::infoWithDictionary(record);
                             }));
}

void VXIMUser::deleteFriend(Value friendId, VXIMBooleanCompletion completion) {
    VXIMHTTPRequest::deletePath(friendPath(friendId), nullptr,
                                endingWithSuccess(std::move(completion)));
}

void VXIMUser::getLatestChatsWithFriend(Value friendId, double timestamp, std::int32_t limit,
                                        VXIMMessagesCompletion block) {
    using Messages = std::optional<std::vector<std::shared_ptr<VXIMMessage>>>;
    VXIMHTTPRequest::get(
        friendPath(friendId).append("/chats"), historyParams(timestamp, limit),
        endingWith<Messages>(std::move(block), std::nullopt,
                             [](const Value& result, const vexim::ErrorPtr& error) -> Messages {
                                 if (error) return std::nullopt;
                                 return messagesFrom(requireArrayOrNil(result, "The history"));
                             }));
}
