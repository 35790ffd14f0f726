// Users, groups, rooms, passengers, searches. Each operation makes a new object from the id, except
// for the user who is logged in.

#include "VexIMLib/C/internal/Handlers.h"
#include "VexIMLib/VXIMQuery.h"

namespace vexim::c::handlers {

namespace {

std::shared_ptr<VXIMUser> user(Request& request) {
    const Value& id = request.value("id");
    auto current = request.client().currentUser();
    if (id.isNil()) {
        if (!current)
            throw Refusal(
                {InterfaceError::MissingArgument, "Nobody is logged in, so \"id\" is required."});
        return current;
    }
    return current && idsEqual(current->uid(), id) ? current : VXIMUser::userWithId(id);
}

std::shared_ptr<VXIMGroup> group(Request& request) {
    return VXIMGroup::groupWithId(request.value("id"));
}
std::shared_ptr<VXIMRoom> room(Request& request) {
    return VXIMRoom::roomWithId(request.value("id"));
}
std::shared_ptr<VXIMPassenger> passenger(Request& request) {
    return VXIMPassenger::passengerWithId(request.value("id"));
}

template <class T>
void updateAttributes(Request& request, const std::shared_ptr<T>& object) {
    object->updateAttributes(request.dictionary("attributes"), request.doneWith(object));
}
template <class T>
void replaceAttributes(Request& request, const std::shared_ptr<T>& object) {
    object->replaceAttributes(request.dictionary("attributes"), request.doneWith(object));
}
void fetchAttributes(Request& request, VXIMAttributedObject& object) {
    object.fetchAttributesWithCompletion(request.result());
}
void getAttribute(Request& request, VXIMAttributedObject& object) {
    object.getAttributeForKey(request.text("key").value_or(""), request.result());
}
void deleteAttributes(Request& request, VXIMAttributedObject& object) {
    object.deleteAttributesWithCompletion(request.done());
}

/// The list that a fetch has filled.
template <class List>
auto fetched(const std::shared_ptr<VXIMUser>& user, List list) {
    return [user, list](std::string& out) {
        const auto& elements = (user.get()->*list)();
        if (elements) {
            write(out, *elements);
        } else {
            out += "[]";
        }
    };
}

std::shared_ptr<VXIMQuery> query(Request& request) {
    auto query = VXIMQuery::query();
    query->setWhere(request.dictionary("where"));
    std::vector<std::string> order;
    for (const Value& key : request.array("order")) order.push_back(key.asString().value_or(""));
    query->setOrder(std::move(order));
    query->setSkip(request.int32("skip", query->skip()));
    query->setLimit(request.int32("limit", query->limit()));
    return query;
}

}  // namespace

void userFetch(Request& request) {
    const auto object = user(request);
    object->fetchWithCompletion(request.doneWith(object));
}
void userFetchFriends(Request& request) {
    const auto object = user(request);
    object->fetchFriendsWithDetail(request.boolean("detail"),
                                   request.done(fetched(object, &VXIMUser::friends)));
}
void userFetchGroups(Request& request) {
    const auto object = user(request);
    object->fetchGroupsWithDetail(request.boolean("detail"),
                                  request.done(fetched(object, &VXIMUser::groups)));
}
void userFetchRooms(Request& request) {
    const auto object = user(request);
    object->fetchRoomsWithDetail(request.boolean("detail"),
                                 request.done([object](std::string& out) {
                                     write(out, Value(object->rooms().value_or(Array())));
                                 }));
}
void userAddFriend(Request& request) {
    user(request)->addFriendWithUser(request.value("friendId"), request.result());
}
void userGetFriendInfo(Request& request) {
    user(request)->getFriendInfo(request.value("friendId"), request.object<VXIMFriendInfo>());
}
void userDeleteFriend(Request& request) {
    user(request)->deleteFriend(request.value("friendId"), request.done());
}
void userGetLatestChats(Request& request) {
    user(request)->getLatestChatsWithFriend(request.value("friendId"), request.number("timestamp"),
                                            request.int32("limit", 0), request.list<VXIMMessage>());
}
void userUpdateAttributes(Request& request) { updateAttributes(request, user(request)); }
void userReplaceAttributes(Request& request) { replaceAttributes(request, user(request)); }
void userFetchAttributes(Request& request) { fetchAttributes(request, *user(request)); }
void userGetAttribute(Request& request) { getAttribute(request, *user(request)); }
void userDeleteAttributes(Request& request) { deleteAttributes(request, *user(request)); }

void groupCreateWithOwner(Request& request) {
    const Value& owner = request.value("owner");
    const Value& name = request.value("name");
    if (auto members = request.optionalArray("members")) {
        return VXIMGroup::createWithOwner(owner, name, std::move(members),
                                          request.object<VXIMGroup>());
    }
    VXIMGroup::createWithOwner(owner, name, request.object<VXIMGroup>());
}
void groupCreate(Request& request) {
    const auto object = VXIMGroup::groupWithName(
        request.value("name"), request.optionalArray("members"), request.value("owner"));
    if (!object)
        throw Refusal(
            {InterfaceError::MissingArgument, "A group needs a name, members or an owner."});
    object->createWithBlock(request.doneWith(object));
}
void groupFetch(Request& request) {
    const auto object = group(request);
    object->fetchWithBlock(request.doneWith(object));
}
void groupGetLatestMessages(Request& request) {
    group(request)->getLatestMessagesBefore(request.number("timestamp"), request.int32("limit", 0),
                                            request.list<VXIMMessage>());
}
void groupChangeOwner(Request& request) {
    group(request)->changeOwner(request.value("owner"), request.done());
}
void groupUpdate(Request& request) {
    group(request)->updateWithAttributes(request.dictionary("attributes"), request.done());
}
void groupAddMembers(Request& request) {
    group(request)->addMembers(request.array("userIds"), request.done());
}
void groupRemoveMembers(Request& request) {
    group(request)->removeMembers(request.array("userIds"), request.done());
}
void groupUpdateName(Request& request) {
    group(request)->updateName(request.value("name"), request.done());
}
void groupDelete(Request& request) { group(request)->deleteWithBlock(request.done()); }
void groupUpdateAttributes(Request& request) { updateAttributes(request, group(request)); }
void groupReplaceAttributes(Request& request) { replaceAttributes(request, group(request)); }
void groupFetchAttributes(Request& request) { fetchAttributes(request, *group(request)); }
void groupGetAttribute(Request& request) { getAttribute(request, *group(request)); }
void groupDeleteAttributes(Request& request) { deleteAttributes(request, *group(request)); }

void roomCreate(Request& request) {
    if (auto members = request.optionalArray("members")) {
        return VXIMRoom::createWithName(request.value("name"), std::move(members),
                                        request.object<VXIMRoom>());
    }
    VXIMRoom::createWithName(request.value("name"), request.object<VXIMRoom>());
}
void roomFetch(Request& request) {
    const auto object = room(request);
    object->fetchWithBlock(request.doneWith(object));
}
void roomUpdateName(Request& request) {
    room(request)->updateName(request.value("name"), request.done());
}
void roomAddMembers(Request& request) {
    room(request)->addMembers(request.array("userIds"), request.done());
}
void roomRemoveMembers(Request& request) {
    room(request)->removeMembers(request.array("userIds"), request.done());
}
void roomDelete(Request& request) { room(request)->deleteWithBlock(request.done()); }
void roomUpdateAttributes(Request& request) { updateAttributes(request, room(request)); }
void roomReplaceAttributes(Request& request) { replaceAttributes(request, room(request)); }
void roomFetchAttributes(Request& request) { fetchAttributes(request, *room(request)); }
void roomGetAttribute(Request& request) { getAttribute(request, *room(request)); }
void roomDeleteAttributes(Request& request) { deleteAttributes(request, *room(request)); }

void passengerCreate(Request& request) {
    VXIMPassenger::createOrUpdatePassengerWithAttributes(request.dictionary("attributes"),
                                                         request.object<VXIMPassenger>());
}
void passengerUpdate(Request& request) {
    const auto object = passenger(request);
    object->updatePassengerAttributes(request.dictionary("attributes"), request.doneWith(object));
}
void passengerFetch(Request& request) {
    const auto object = passenger(request);
    object->fetchWithCompletion(request.doneWith(object));
}
void passengerGetHistory(Request& request) {
    passenger(request)->getHistoryMessagesWithUser(
        request.value("userId"), request.number("beforeTime"), request.int32("limit", 0),
        request.list<VXIMMessage>());
}

void findUsers(Request& request) { query(request)->findUserWithBlock(request.list<VXIMUser>()); }
void findGroups(Request& request) { query(request)->findGroupWithBlock(request.list<VXIMGroup>()); }
void findRooms(Request& request) { query(request)->findRoomWithBlock(request.list<VXIMRoom>()); }

}  // namespace vexim::c::handlers
