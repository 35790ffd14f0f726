"""What comes out of the C interface: the types and objects of results, and the events.
scripts/c_interface.py makes the JSON Schema and tables of the page from it. The form is that of the
table of operations: "name: type, name: type?". A question mark means that it may be left out."""

# In the schema: what the service normally sends. Anything else is passed on unchanged.
NORMALLY = "x-normally"


def list_of(*names):
    refs = [{"$ref": f"#/$defs/{name}"} for name in names]
    return {"type": "array", "items": refs[0] if len(refs) == 1 else {"anyOf": refs}}


TYPES = {
    "true": {"const": True},
    "base64": {"type": "string", "contentEncoding": "base64"},
    "serviceId": {NORMALLY: {"type": ["string", "integer"]}},
    "serviceIds": {NORMALLY: {"type": "array", "items": {"type": ["string", "integer"]}}},
    "serviceString": {NORMALLY: {"type": "string"}},
    "serviceObject": {NORMALLY: {"type": "object"}},
    "array": {"type": "array"},
    "messages": list_of("message"),
    "friends": list_of("friend"),
    "users": list_of("user"),
    "groups": list_of("group"),
    "rooms": list_of("room"),
    "roomsOrIds": list_of("room", "serviceId"),
    "diagnosis": list_of("diagnosisEvent"),
    "metricList": list_of("metric"),
    "integers": list_of("integer"),
    "conversations": list_of("conversation"),
    "storedMessages": list_of("storedMessage"),
    "storedGaps": list_of("storedGap"),
    "conversationsAt": list_of("conversationAt"),
    "messagesAt": list_of("messageAt"),
    "direction": {"enum": ["incoming", "outgoing"]},
    "state": {"enum": ["queued", "sending", "sent", "confirmed", "failed"]},
}

OBJECTS = {  # name: (entries, what to know of them)
    "message": (
        "text: string?, mediaType: int32, attachmentUrl: string?, sendTimestamp: number, "
        "isSystemMessage: boolean, sender: target, receiver: target, payload: object",
        "`mediaType` is 0 for a text, 1 image, 2 audio, 3 video. A text has `text`, the others "
        "have `attachmentUrl`. `sendTimestamp` is in seconds since 1970. `payload` is the message "
        "as it is sent over the network."),
    "target": (
        "type: int32, userId: serviceId?, groupId: serviceId?, roomId: serviceId?",
        "`type` is 0 for a user, 1 group, 2 room, -1 unknown, -2 the service, -3 all users."),
    "friend": (
        "uid: serviceId?, online: boolean, ts: integer?, from: serviceId?, to: serviceId?, "
        "recentMessage: message?",
        "`ts` is in milliseconds since 1970."),
    "user": (
        "uid: serviceId?, sessionCount: integer, online: boolean, updatedAt: number?, "
        "attributes: serviceObject?, username: serviceString?, phoneNumber: serviceString?, "
        "friends: friends?, groups: groups?, rooms: roomsOrIds?, record: object",
        "`updatedAt` is in seconds since 1970. `record`, here and below, is the service's record."),
    "group": (
        "groupId: serviceId?, name: serviceString?, owner: serviceId?, members: serviceIds?, "
        "attributes: serviceObject?, recentMessage: message?, record: object",
        ""),
    "room": (
        "roomId: serviceId?, name: serviceString?, members: serviceIds?, createTs: number?, "
        "attributes: serviceObject?, record: object",
        "`createTs` is in seconds since 1970."),
    "passenger": ("pid: serviceId?, record: object", ""),
    "error": (
        "domain: string, code: integer, description: string, userInfo: any?",
        "See [Answers](#answers)."),
    "download": (
        "path: string?, data: base64?", "`path` if the request had one, otherwise `data`."),
    "descriptor": (
        "descriptor: integer", "See [Waiting in an event loop](#waiting-in-an-event-loop)."),
    "configuration": (
        "appId: string?, installationId: string?, socketURL: string?, nsp: string?", ""),
    "diagnosisEvent": (
        "time: string, event: string",
        "`time` has the ISO 8601 format. An event may have further names."),
    "metrics": (
        "text: string, values: metricList",
        "`text` has Prometheus's text format, version 0.0.4; `values` has the same as objects."),
    "metric": (
        "name: string, help: string, kind: string, series: array",
        "`kind` is \"counter\", \"gauge\" or \"histogram\". Each item of `series` has `labels` and "
        "a `value`. In a histogram it has `labels`, `count`, `sum` in seconds, and `buckets`, each "
        "with its bound `le` and the `count` up to it."),
    "version": (
        "version: string, number: number, text: string",
        "`version` is, for example, \"1.0.0\"; the others are the constants of C++."),
}

EVENTS = {  # name: (arguments, when, whether only the configuration's "notifications" asks for it)
    "clientDidLogin": ("", "A login was accepted, or repeated after a reconnect.", False),
    "clientDidFailToLoginAgain": (
        "error: error", "After a reconnect, the service refused the login.", False),
    "clientDidLogout": ("", "A logout has ended.", False),
    "clientAttemptReconnect": ("", "The client tries to reconnect.", False),
    "clientDidDisconnect": ("", "The connection has closed.", False),
    "clientDidReceiveMessageFromFriend": (
        "message: message, from: friend",
        "`from` is the other person in the conversation, even if you wrote the message.", False),
    "clientDidReceiveMessageFromGroup": ("message: message, from: group", "", False),
    "clientDidReceiveMessageFromRoom": ("message: message, from: room", "", False),
    "clientDidReceiveSystemMessage": ("message: message", "", False),
    "clientFriendDidOnline": ("info: friend", "A friend came online.", False),
    "clientFriendDidOffline": ("info: friend", "A friend went offline.", False),
    "socket.io.error": (
        "data: array, error: error",
        "The connection has a problem. The error's code says which kind "
        "(`VXIMConnectionErrorKind`); `data` has the details.", False),
    "progress": (
        "@extra: any, percent: integer",
        "Progress of an upload or download whose request said `\"progress\": true`.", False),
    "overflow": (
        "events: integer, answers: integer",
        "How many were dropped at this point: see [Limits](#limits).", False),
    "VXIMClientDidReceiveMessageNotification": (
        "msg: message",
        "A message; without `notifications`, only if its receiver has an unknown type.", False),
    "VXIMUserDidLoginNotification": ("user: user?", "", True),
    "VXIMClientDidReceiveSystemMessageNotification": ("msg: message", "", True),
    "VXIMFriendOnlineNotification": ("id: serviceId", "", True),
    "VXIMFriendOfflineNotification": ("id: serviceId", "", True),
}

# Of the library with the store.

STORE_OBJECTS = {
    "store": (
        "store: integer, path: string, service: string, userId: string, damage: storeDamage?",
        "`store` is its id in requests. `damage` is there if a damaged file was replaced."),
    "storedMessage": (
        "localId: integer, conversation: conversationId, text: string?, attachmentUrl: string?, "
        "mediaType: int32, sentAtMillis: integer, direction: direction, state: state, "
        "sender: string, receiver: string, key: string?, serviceId: string?, error: error?, "
        "attempts: integer, attachmentFiles: strings?, payload: object",
        "`sentAtMillis`, in milliseconds since 1970, and `localId` are the message's position. "
        "`direction` is \"incoming\" or \"outgoing\". `state` is \"queued\", \"sending\", "
        "\"sent\", \"confirmed\" or \"failed\"; a failed message has an `error`. `attachmentFiles` "
        "are the store's copies, which it keeps until the message is confirmed."),
    "conversation": (
        "id: conversationId, lastMessage: storedMessage?, unreadCount: integer, draft: string",
        ""),
    "storedGap": (
        "afterMillis: integer, beforeMillis: integer",
        "Messages between these times are missing; if `afterMillis` is 0, from the beginning."),
    "storeDamage": (
        "setAsideAs: string, messagesSaved: integer",
        "The damaged file's new name, and how many messages could still be read from it."),
    "messageAt": ("position: integer, message: storedMessage", ""),
    "conversationAt": ("position: integer, conversation: conversation", ""),
}

STORE_EVENTS = {
    "conversationsDidCatchUp": (
        "missedCount: integer, gapCount: integer, error: error?",
        "After each login and reconnect, when the histories have been read. `missedCount` is the "
        "number of messages from others that arrived in the meantime, `gapCount` the number of "
        "conversations with messages that the service no longer has. `error` says what could not "
        "be read.", False),
    "conversationsDidMeetTrouble": (
        "error: error",
        "The store could not write a change and will try again. Or another user has logged in: "
        "their messages are not stored.", False),
    "conversationsProgress": (
        "localId: integer, percent: integer",
        "Progress of an upload whose request said `\"progress\": true`.", False),
    "observedMessagesDidChange": (
        "observation: integer, whole: boolean, count: integer, removed: integers, "
        "inserted: messagesAt, changed: messagesAt",
        "Once at the beginning, then after each change.", False),
    "observedConversationsDidChange": (
        "observation: integer, whole: boolean, count: integer, removed: integers, "
        "inserted: conversationsAt, changed: conversationsAt",
        "Once at the beginning, then after each change.", False),
    "observedStoreWasDamaged": (
        "observation: integer, damage: storeDamage",
        "The open file was damaged. It was set aside and replaced.", False),
}
