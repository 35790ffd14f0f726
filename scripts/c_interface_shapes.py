"""What the C interface gives: the types and objects of results, and the events. scripts/c_interface.py makes the schema and tables of
the page of it. Declared as the table of the operations is: "name: type, name: type?"; a question mark: it may be left out."""

NORMALLY = "x-normally"  # in the schema: what the service sends; should it send something else, that is passed on as it came


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
        "text: string?, mediaType: int32, attachmentUrl: string?, sendTimestamp: number, isSystemMessage: boolean, sender: target, "
        "receiver: target, payload: object",
        "`mediaType` is 0 for a text, 1 image, 2 audio, 3 video; a text has `text`, the others `attachmentUrl`. `sendTimestamp` in "
        "seconds since 1970. `payload` is the message as it travels."),
    "target": (
        "type: int32, userId: serviceId?, groupId: serviceId?, roomId: serviceId?",
        "`type` is 0 for a user, 1 group, 2 room, -1 unknown, -2 the service, -3 all users."),
    "friend": (
        "uid: serviceId?, online: boolean, ts: integer?, from: serviceId?, to: serviceId?, recentMessage: message?",
        "`ts` in milliseconds since 1970."),
    "user": (
        "uid: serviceId?, sessionCount: integer, online: boolean, updatedAt: number?, attributes: serviceObject?, "
        "username: serviceString?, phoneNumber: serviceString?, friends: friends?, groups: groups?, rooms: roomsOrIds?, record: object",
        "`updatedAt` in seconds since 1970. `record` here and below is what came from the service."),
    "group": (
        "groupId: serviceId?, name: serviceString?, owner: serviceId?, members: serviceIds?, attributes: serviceObject?, "
        "recentMessage: message?, record: object",
        ""),
    "room": (
        "roomId: serviceId?, name: serviceString?, members: serviceIds?, createTs: number?, attributes: serviceObject?, record: object",
        "`createTs` in seconds since 1970."),
    "passenger": ("pid: serviceId?, record: object", ""),
    "error": ("domain: string, code: integer, description: string, userInfo: any?", "See [Answers](#answers)."),
    "download": ("path: string?, data: base64?", "`path` where the request has one, otherwise `data`."),
    "descriptor": ("descriptor: integer", "See [Waiting in an event loop](#waiting-in-an-event-loop)."),
    "configuration": ("appId: string?, installationId: string?, socketURL: string?, nsp: string?", ""),
    "diagnosisEvent": ("time: string, event: string", "`time` as ISO 8601 writes it. Other names tell more of the event."),
    "metrics": (
        "text: string, values: metricList",
        "`text` is Prometheus's text format, version 0.0.4; `values` the same as objects."),
    "metric": (
        "name: string, help: string, kind: string, series: array",
        "`kind` is \"counter\", \"gauge\" or \"histogram\". Each of `series` has `labels` and a `value`, or `count`, `sum` in seconds "
        "and `buckets`, each with its bound `le` and the `count` up to it."),
    "version": ("version: string, number: number, text: string", "`version` is such as \"1.0.0\"; the others are C++'s constants."),
}

EVENTS = {  # name: (arguments, when, whether only the configuration's "notifications" asks for it)
    "clientDidLogin": ("", "A login was accepted, also one that the client has repeated after a drop.", False),
    "clientDidFailToLoginAgain": ("error: error", "The service refused the login that was repeated after a drop.", False),
    "clientDidLogout": ("", "A logout has ended.", False),
    "clientAttemptReconnect": ("", "The connection is tried again.", False),
    "clientDidDisconnect": ("", "The connection has closed.", False),
    "clientDidReceiveMessageFromFriend": ("message: message, from: friend", "`from` is who the conversation is with, not always who wrote.", False),
    "clientDidReceiveMessageFromGroup": ("message: message, from: group", "", False),
    "clientDidReceiveMessageFromRoom": ("message: message, from: room", "", False),
    "clientDidReceiveSystemMessage": ("message: message", "", False),
    "clientFriendDidOnline": ("info: friend", "A friend has come.", False),
    "clientFriendDidOffline": ("info: friend", "A friend has gone.", False),
    "socket.io.error": ("data: array, error: error", "The connection has trouble; the error's code tells the kind (`VXIMConnectionErrorKind`). `data` is what came with it.", False),
    "progress": ("@extra: any, percent: integer", "An upload or a download goes on whose request said `\"progress\": true`.", False),
    "overflow": ("events: integer, answers: integer", "So many were dropped here, see [Limits](#limits).", False),
    "VXIMClientDidReceiveMessageNotification": ("msg: message", "A message; without `notifications`, only one whose receiver is of no known kind.", False),
    "VXIMUserDidLoginNotification": ("user: user?", "", True),
    "VXIMClientDidReceiveSystemMessageNotification": ("msg: message", "", True),
    "VXIMFriendOnlineNotification": ("id: serviceId", "", True),
    "VXIMFriendOfflineNotification": ("id: serviceId", "", True),
}

# Of the library with the store.

STORE_OBJECTS = {
    "store": (
        "store: integer, path: string, service: string, userId: string, damage: storeDamage?",
        "`store` names it in requests. `damage` where a damaged file was set aside."),
    "storedMessage": (
        "localId: integer, conversation: conversationId, text: string?, attachmentUrl: string?, mediaType: int32, sentAtMillis: integer, "
        "direction: direction, state: state, sender: string, receiver: string, key: string?, serviceId: string?, error: error?, "
        "attempts: integer, attachmentFiles: strings?, payload: object",
        "`sentAtMillis` in milliseconds since 1970; with `localId` it is the message's position. `direction` is \"incoming\" or "
        "\"outgoing\"; `state` \"queued\", \"sending\", \"sent\", \"confirmed\" or \"failed\", then with `error`. `attachmentFiles` are the "
        "store's copies, until it is confirmed."),
    "conversation": (
        "id: conversationId, lastMessage: storedMessage?, unreadCount: integer, draft: string",
        ""),
    "storedGap": ("afterMillis: integer, beforeMillis: integer", "Messages between these times are missing; `afterMillis` 0: from the beginning."),
    "storeDamage": ("setAsideAs: string, messagesSaved: integer", "The damaged file's new name, and how many messages were read from it."),
    "messageAt": ("position: integer, message: storedMessage", ""),
    "conversationAt": ("position: integer, conversation: conversation", ""),
}

STORE_EVENTS = {
    "conversationsDidCatchUp": ("missedCount: integer, gapCount: integer, error: error?", "After each login and reconnect, when the histories have been read. `missedCount` messages of others came meanwhile; `gapCount` conversations miss some for good. `error`: what could not be read.", False),
    "conversationsDidMeetTrouble": ("error: error", "The store did not take a change, which is tried again; or another user has logged in, of whom nothing is stored.", False),
    "conversationsProgress": ("localId: integer, percent: integer", "An upload goes on whose request said `\"progress\": true`.", False),
    "observedMessagesDidChange": ("observation: integer, whole: boolean, count: integer, removed: integers, inserted: messagesAt, changed: messagesAt", "At first, and after each change.", False),
    "observedConversationsDidChange": ("observation: integer, whole: boolean, count: integer, removed: integers, inserted: conversationsAt, changed: conversationsAt", "At first, and after each change.", False),
    "observedStoreWasDamaged": ("observation: integer, damage: storeDamage", "The open file was found damaged, set aside and replaced.", False),
}
