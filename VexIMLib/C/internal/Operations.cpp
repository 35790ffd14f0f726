// The table of the C interface's operations; Store/StoreOperations.cpp has the store's. Dispatch
// and argument checks use it. scripts/c_interface.py reads it for the JSON Schema and the page, and
// compares it with the C++ headers, so all rows have the same form: {"name", "parameter: type,
// parameter: type?", "result", "What it does.", function}
//
// Types: id (a nonempty string or an integer), ids, string, strings, boolean, number,
// integer, int32, object, newMessage, address, any. A question mark: may be left out. The types of
// results are those of scripts/c_interface_shapes.py; a question mark there: may be null.

#include "VexIMLib/C/internal/Operations.h"

#include <string>
#include <utility>

namespace vexim::c {

const std::string_view kConfiguration =
    "appId: string?, clientKey: string?, installationId: string?, socketURL: string?, nsp: string?, "
    "notifications: boolean?, metrics: boolean?, queueBytes: integer?";

const std::string_view kConnectionOptions =
    "forceWebsockets: boolean?, forcePolling: boolean?, transports: strings?, log: boolean?, reconnects: boolean?, "
    "reconnectAttempts: integer?, reconnectWait: number?, reconnectWaitMax: number?, secure: boolean?, selfSigned: boolean?, "
    "caFile: string?, caPEM: string?, pinnedKeys: strings?, connectParams: object?, joinPayload: object?, path: string?, "
    "extraHeaders: object?, protocolVersion: integer?, connectTimeout: number?, maxMessageSize: integer?, "
    "maxQueuedBytes: integer?, maxReadAhead: integer?, compress: boolean?";

// Other fields of a received message are allowed, so that it can be passed back unchanged.
const std::string_view kMessage =
    "text: string?, mediaType: int32?, attachmentPath: string?, attachmentData: string?, attachmentName: string?, "
    "attachmentUrl: string?, sendTimestamp: number?, receiver: address?, payload: object?, sender: address?, isSystemMessage: "
    "boolean?";

const std::string_view kTarget = "type: int32?, userId: id?, groupId: id?, roomId: id?";

namespace {

// clang-format off
constexpr Operation kOperations[] = {
    // The session.
    {"loginWithUserId", "userId: string", "true", "Connects and logs in by user id. Needs the configuration's installationId.", handlers::loginWithUserId},
    {"loginWithUsername", "username: string, password: string", "true", "Connects and logs in by user name and password.", handlers::loginWithUsername},
    {"loginWithPhoneNumber", "phoneNumber: string, smsCode: string", "true", "Connects and logs in by phone number and the code that came by SMS.", handlers::loginWithPhoneNumber},
    {"loginWithThirdPartyOAuth", "oauth: object", "true", "Connects and logs in with the data of an outside identity provider.", handlers::loginWithThirdPartyOAuth},
    {"loginWithAuthData", "authData: object", "true", "Connects and logs in with this object, unchanged.", handlers::loginWithAuthData},
    {"logoutWithCompletion", "", "true", "Removes this installation from the user, then closes the connection. Without a connection the answer comes only when the client is freed or the timeout has passed.", handlers::logout},
    {"deleteCurrentInstallIdCompletion", "", "true", "Removes this installation from the user who is logged in.", handlers::deleteCurrentInstallId},
    {"pause", "", "true", "Closes the connection until `resume`.", handlers::pause},
    {"resume", "", "true", "Connects again with the credentials of the last login.", handlers::resume},
    {"resetFlags", "", "true", "Clears `offlineTemporally` and `tryLogout`.", handlers::resetFlags},
    {"currentUser", "", "user?", "The user who is logged in or logging in; null if there is none.", handlers::currentUser},
    {"cancel", "extra: any", "integer", "Cancels the open requests with this `@extra`. The result is how many there were.", handlers::cancel},

    // Messages. The result is the message as it was sent.
    {"sendMessageToFriend", "friendId: id, message: newMessage, progress: boolean?", "message", "Sends to a user.", handlers::sendMessageToFriend},
    {"sendMessageToGroup", "groupId: id, message: newMessage, progress: boolean?", "message", "Sends to a group.", handlers::sendMessageToGroup},
    {"sendMessageToRoom", "roomId: id, message: newMessage, progress: boolean?", "message", "Sends to a room.", handlers::sendMessageToRoom},
    {"sendMessage", "message: newMessage, progress: boolean?", "message", "Sends to the receiver that the message names.", handlers::sendMessage},
    {"sendSystemMessageToAllUsers", "message: newMessage, progress: boolean?", "message", "Posts a system message to everybody.", handlers::sendSystemMessageToAllUsers},
    {"sendSystemMessageToUser", "userId: id, message: newMessage, progress: boolean?", "message", "Posts a system message to a user.", handlers::sendSystemMessageToUser},
    {"sendSystemMessageToGroup", "groupId: id, message: newMessage, progress: boolean?", "message", "Posts a system message to a group.", handlers::sendSystemMessageToGroup},
    {"sendSystemMessageToRoom", "roomId: id, message: newMessage, progress: boolean?", "message", "Posts a system message to a room.", handlers::sendSystemMessageToRoom},
    {"sendSystemMessage", "message: newMessage, progress: boolean?", "message", "Posts a system message to the receiver that the message names.", handlers::sendSystemMessage},
    {"VXIMMessage.downloadAttachment", "message: newMessage, path: string?, progress: boolean?", "download", "Downloads a message's attachment to the file `path`. Without `path` the result contains the bytes.", handlers::downloadAttachment},

    // A user; without an id, the one who is logged in.
    {"VXIMUser.fetchWithCompletion", "id: id?", "user", "Fetches the ids of friends, groups and rooms.", handlers::userFetch},
    {"VXIMUser.fetchFriendsWithDetail", "id: id?, detail: boolean", "friends", "Fetches the friends: records with `detail`, otherwise ids.", handlers::userFetchFriends},
    {"VXIMUser.fetchGroupsWithDetail", "id: id?, detail: boolean", "groups", "Fetches the groups of the user.", handlers::userFetchGroups},
    {"VXIMUser.fetchRoomsWithDetail", "id: id?, detail: boolean", "roomsOrIds", "Fetches the rooms of the user.", handlers::userFetchRooms},
    {"VXIMUser.addFriendWithUser", "id: id?, friendId: id", "any", "Makes a user a friend. The result is the service's answer.", handlers::userAddFriend},
    {"VXIMUser.getFriendInfo", "id: id?, friendId: id", "friend", "Fetches one entry of the friend list.", handlers::userGetFriendInfo},
    {"VXIMUser.deleteFriend", "id: id?, friendId: id", "true", "Ends a friendship.", handlers::userDeleteFriend},
    {"VXIMUser.getLatestChatsWithFriend", "id: id?, friendId: id, timestamp: number, limit: int32", "messages", "Messages with a friend before a time in seconds since 1970.", handlers::userGetLatestChats},
    {"VXIMUser.updateAttributes", "id: id?, attributes: object", "user", "Merges custom attributes into the user's.", handlers::userUpdateAttributes},
    {"VXIMUser.replaceAttributes", "id: id?, attributes: object", "user", "Replaces all custom attributes.", handlers::userReplaceAttributes},
    {"VXIMUser.fetchAttributesWithCompletion", "id: id?", "any", "Fetches all custom attributes.", handlers::userFetchAttributes},
    {"VXIMUser.getAttributeForKey", "id: id?, key: string", "any", "Fetches one custom attribute.", handlers::userGetAttribute},
    {"VXIMUser.deleteAttributesWithCompletion", "id: id?", "true", "Deletes all custom attributes.", handlers::userDeleteAttributes},

    // A group.
    {"VXIMGroup.createWithOwner", "owner: id, name: string, members: ids?", "group", "Creates a group.", handlers::groupCreateWithOwner},
    {"VXIMGroup.createWithBlock", "name: string?, members: ids?, owner: id?", "group", "Creates a group. The service chooses what is left out.", handlers::groupCreate},
    {"VXIMGroup.fetchWithBlock", "id: id", "group", "Fetches the group's record.", handlers::groupFetch},
    {"VXIMGroup.getLatestMessagesBefore", "id: id, timestamp: number, limit: int32", "messages", "Messages before a time in seconds since 1970.", handlers::groupGetLatestMessages},
    {"VXIMGroup.changeOwner", "id: id, owner: id", "true", "Makes another user the owner of the group.", handlers::groupChangeOwner},
    {"VXIMGroup.updateWithAttributes", "id: id, attributes: object", "true", "Changes entries of the record itself.", handlers::groupUpdate},
    {"VXIMGroup.addMembers", "id: id, userIds: ids", "true", "Adds members.", handlers::groupAddMembers},
    {"VXIMGroup.removeMembers", "id: id, userIds: ids", "true", "Removes members.", handlers::groupRemoveMembers},
    {"VXIMGroup.updateName", "id: id, name: string", "true", "Renames the group.", handlers::groupUpdateName},
    {"VXIMGroup.deleteWithBlock", "id: id", "true", "Deletes the group.", handlers::groupDelete},
    {"VXIMGroup.updateAttributes", "id: id, attributes: object", "group", "Merges custom attributes into the group's.", handlers::groupUpdateAttributes},
    {"VXIMGroup.replaceAttributes", "id: id, attributes: object", "group", "Replaces all custom attributes.", handlers::groupReplaceAttributes},
    {"VXIMGroup.fetchAttributesWithCompletion", "id: id", "any", "Fetches all custom attributes.", handlers::groupFetchAttributes},
    {"VXIMGroup.getAttributeForKey", "id: id, key: string", "any", "Fetches one custom attribute.", handlers::groupGetAttribute},
    {"VXIMGroup.deleteAttributesWithCompletion", "id: id", "true", "Deletes all custom attributes.", handlers::groupDeleteAttributes},

    // A room.
    {"VXIMRoom.createWithName", "name: string, members: ids?", "room", "Creates a room.", handlers::roomCreate},
    {"VXIMRoom.fetchWithBlock", "id: id", "room", "Fetches the room's record.", handlers::roomFetch},
    {"VXIMRoom.updateName", "id: id, name: string", "true", "Renames the room.", handlers::roomUpdateName},
    {"VXIMRoom.addMembers", "id: id, userIds: ids", "true", "Adds members.", handlers::roomAddMembers},
    {"VXIMRoom.removeMembers", "id: id, userIds: ids", "true", "Removes members.", handlers::roomRemoveMembers},
    {"VXIMRoom.deleteWithBlock", "id: id", "true", "Deletes the room.", handlers::roomDelete},
    {"VXIMRoom.updateAttributes", "id: id, attributes: object", "room", "Merges custom attributes into the room's.", handlers::roomUpdateAttributes},
    {"VXIMRoom.replaceAttributes", "id: id, attributes: object", "room", "Replaces all custom attributes.", handlers::roomReplaceAttributes},
    {"VXIMRoom.fetchAttributesWithCompletion", "id: id", "any", "Fetches all custom attributes.", handlers::roomFetchAttributes},
    {"VXIMRoom.getAttributeForKey", "id: id, key: string", "any", "Fetches one custom attribute.", handlers::roomGetAttribute},
    {"VXIMRoom.deleteAttributesWithCompletion", "id: id", "true", "Deletes all custom attributes.", handlers::roomDeleteAttributes},

    // A passenger: an anonymous visitor.
    {"VXIMPassenger.createOrUpdatePassengerWithAttributes", "attributes: object", "passenger", "Creates a passenger, or updates the one whose `id` is among the attributes.", handlers::passengerCreate},
    {"VXIMPassenger.updatePassengerAttributes", "id: id, attributes: object", "passenger", "Changes attributes.", handlers::passengerUpdate},
    {"VXIMPassenger.fetchWithCompletion", "id: id", "passenger", "Fetches the passenger's record.", handlers::passengerFetch},
    {"VXIMPassenger.getHistoryMessagesWithUser", "id: id, userId: id, beforeTime: number, limit: int32", "messages", "Messages with a user before a time in seconds since 1970.", handlers::passengerGetHistory},

    // Searches: `where` has the strings that attributes must have; a sort key in `order` may begin
    // with "-" for descending.
    {"VXIMQuery.findUserWithBlock", "where: object?, order: strings?, skip: int32?, limit: int32?", "users", "Searches users; 20 results at most, unless `limit` is given.", handlers::findUsers},
    {"VXIMQuery.findGroupWithBlock", "where: object?, order: strings?, skip: int32?, limit: int32?", "groups", "Searches groups.", handlers::findGroups},
    {"VXIMQuery.findRoomWithBlock", "where: object?, order: strings?, skip: int32?, limit: int32?", "rooms", "Searches rooms.", handlers::findRooms},
};

// What `vexim_execute` does.
constexpr ImmediateOperation kImmediateOperations[] = {
    {"descriptor", "", "descriptor", "The descriptor that becomes readable when something can be received.", Needs::Handle, handlers::descriptor},
    {"status", "", "integer", "The state of the session: 0 none, 1 opening, 2 opened, 3 paused, 4 resuming, 5 closing, 6 closed.", Needs::Client, handlers::status},
    {"offlineTemporally", "", "boolean", "Whether the connection has been down since the last logout, even if it is up again.", Needs::Client, handlers::offlineTemporally},
    {"tryLogout", "", "boolean", "Whether a logout waits for the connection to close.", Needs::Client, handlers::tryLogout},
    {"config", "", "configuration", "The configuration: appId, installationId, socketURL and nsp, without the client key.", Needs::Client, handlers::config},
    {"diagnose", "", "diagnosis", "What has happened to the client lately, without secrets: one object for each event.", Needs::Client, handlers::diagnose},
    {"metrics", "", "metrics", "The figures of all clients whose configuration has `\"metrics\": true`.", Needs::Nothing, handlers::metrics},
    {"version", "", "version", "The version of the library.", Needs::Nothing, handlers::version},
    {"setApplicationInfo", "bundleIdentifier: string?, bundleVersion: string?, systemVersion: string?", "true", "Describes the application in the User-Agent of requests. Call it before any client is made.", Needs::Nothing, handlers::setApplicationInfo},
    {"setKeepsFinishedDelegates", "keeps: boolean", "true", "Whether finished requests are kept until the process ends. Set false in a program that runs for long.", Needs::Nothing, handlers::setKeepsFinishedDelegates},
    {"setLog", "level: string?", "true", "Writes the library's log to standard error, from the level \"debug\", \"info\", \"warning\" or \"error\" on. null turns it off.", Needs::Nothing, handlers::setLog},
};
// clang-format on

/// The prefixes of the store's operations.
bool isOfStore(std::string_view name) {
    return name.starts_with("VXIMConversations.") || name.starts_with("VXIMMessageStore.") ||
           name.starts_with("VXIMStoreObservation.");
}

}  // namespace

Problem unknownOperation(std::optional<std::string_view> name) {
    if (!name) return {InterfaceError::UnknownOperation, "\"@op\" must name an operation."};
    constexpr std::size_t kShown = 60;
    if (name->size() > kShown)
        return {InterfaceError::UnknownOperation, "There is no such operation."};
    const std::string quoted = "\"" + std::string(*name) + "\"";
    if (kHasStore || !isOfStore(*name))
        return {InterfaceError::UnknownOperation, "There is no operation " + quoted + "."};
    return {
        InterfaceError::WithoutStore,
        quoted +
            " needs the message store, which this library does not have. Use libvexim-c-store.so.1 instead (Debian package libvexim-c-store1)."};
}

// The tables are never destroyed, because requests may come while the process exits.

Found<Operation> findOperation(std::string_view name) {
    static const auto& table = *new Table<Operation>(kOperations);
    const auto found = table.find(name);
    return found.row ? found : findStoreOperation(name);
}

Found<ImmediateOperation> findImmediateOperation(std::string_view name) {
    static const auto& table = *new Table<ImmediateOperation>(kImmediateOperations);
    return table.find(name);
}

}  // namespace vexim::c
