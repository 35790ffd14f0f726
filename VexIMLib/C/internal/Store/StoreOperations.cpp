// The table of the store's operations. It has the form of the one in ../Operations.cpp, and
// scripts/c_interface.py reads both.
//
// Further types: conversationId {"kind": "friend", "group", "room" or "system", "id"},
// storePosition {"sentAtMillis", "localId"}. `store` names a store that VXIMMessageStore.open has
// opened; without it the operation uses the one that VXIMConversations.open opened.

#include "VexIMLib/C/internal/Store/StoreHandlers.h"

namespace vexim::c {

const bool kHasStore = true;

const std::string_view kConversationId = "kind: conversationKind, id: string?";
const std::string_view kStorePosition = "sentAtMillis: integer, localId: integer";

namespace {

// clang-format off
constexpr Operation kStoreOperations[] = {
    // The store of a client, with an outbox.
    {"VXIMConversations.open", "path: string, userId: string?, mostUnsent: int32?, longestWait: integer?, echoTimeout: integer?, mostCaughtUp: int32?, farthestCaughtUp: integer?", "store", "Opens the client's store in a file or a folder. Without `userId` it opens at the first accepted login. `longestWait` and `farthestCaughtUp` are in hours, `echoTimeout` is in seconds.", handlers::openConversations},
    {"VXIMConversations.store", "", "store?", "The client's open store; null if there is none.", handlers::conversationsStore},
    {"VXIMConversations.send", "conversation: conversationId, message: newMessage, progress: boolean?", "storedMessage", "Queues a message. Once this is answered, the message cannot be lost.", handlers::sendStored},
    {"VXIMConversations.sendText", "conversation: conversationId, text: string", "storedMessage", "Queues a text.", handlers::sendStoredText},
    {"VXIMConversations.retry", "localId: integer", "true", "Sends a failed message again. One that waits after a failure is tried at once.", handlers::retryStored},
    {"VXIMConversations.cancel", "localId: integer", "true", "Removes a message that is not confirmed yet.", handlers::cancelStored},
    {"VXIMConversations.readGap", "conversation: conversationId, afterMillis: integer, beforeMillis: integer", "integer", "Reads up to 100 messages from the newer end of a gap, which becomes shorter or is removed. The result is how many were stored.", handlers::readStoredGap},

    // Any store.
    {"VXIMMessageStore.open", "path: string, userId: string?, service: string?, readOnly: boolean?", "store", "Opens another store beside the client's, to read it or to work offline. Nothing is sent from it.", handlers::openStore},
    {"VXIMMessageStore.close", "store: integer?", "true", "Finishes earlier operations, then closes the file. Unsent messages are sent the next time.", handlers::closeStore},
    {"VXIMMessageStore.conversations", "store: integer?", "conversations", "All conversations, the one with the newest message first.", handlers::storeConversations},
    {"VXIMMessageStore.conversation", "id: conversationId, store: integer?", "conversation?", "One conversation; null if there is none.", handlers::storeConversation},
    {"VXIMMessageStore.messagesBefore", "id: conversationId, position: storePosition?, limit: int32, store: integer?", "storedMessages", "The messages right before a position (without one: the newest), the oldest first.", handlers::storeMessagesBefore},
    {"VXIMMessageStore.messagesAfter", "id: conversationId, position: storePosition?, limit: int32, store: integer?", "storedMessages", "The messages right after a position (without one: the oldest), the oldest first.", handlers::storeMessagesAfter},
    {"VXIMMessageStore.message", "localId: integer, store: integer?", "storedMessage?", "One message; null if there is none.", handlers::storeMessage},
    {"VXIMMessageStore.search", "text: string, conversation: conversationId?, sinceMillis: integer?, untilMillis: integer?, before: storePosition?, limit: int32?, store: integer?", "storedMessages", "Texts with all the words, the newest first; 50 at most, unless `limit` is given. `word*` matches the beginning of a word; words in double quotes must follow each other.", handlers::storeSearch},
    {"VXIMMessageStore.gaps", "id: conversationId, store: integer?", "storedGaps", "The places where messages are missing.", handlers::storeGaps},
    {"VXIMMessageStore.markRead", "id: conversationId, upTo: storePosition?, store: integer?", "true", "Marks the messages up to a position as read (without one: all of them).", handlers::storeMarkRead},
    {"VXIMMessageStore.setDraft", "id: conversationId, draft: string, store: integer?", "true", "Stores what the user has begun to write. An empty text removes it.", handlers::storeSetDraft},
    {"VXIMMessageStore.removeConversation", "id: conversationId, store: integer?", "true", "Removes a conversation with all its messages (also unsent ones) from this device.", handlers::storeRemoveConversation},
    {"VXIMMessageStore.setRetention", "maximumAge: integer?, maximumCount: integer?, store: integer?", "integer", "Keeps messages for `maximumAge` hours at most, and at most `maximumCount` of each conversation; null means no limit. The result is how many were removed now.", handlers::storeSetRetention},
    {"VXIMMessageStore.exportJSONLines", "path: string, conversation: conversationId?, store: integer?", "integer", "Writes all messages, or those of one conversation, to a file, one JSON object per line. The result is how many.", handlers::storeExport},
    {"VXIMMessageStore.observeConversations", "limit: int32, store: integer?", "integer", "Reports changes of the list of conversations as `observedConversationsDidChange`. The result is the id of the observation.", handlers::observeConversations},
    {"VXIMMessageStore.observeMessages", "id: conversationId, limit: int32, store: integer?", "integer", "Reports changes of the newest messages of a conversation as `observedMessagesDidChange`. The result is the id of the observation.", handlers::observeMessages},
    {"VXIMMessageStore.observeDamage", "store: integer?", "integer", "Reports damage of the open file as `observedStoreWasDamaged`. The result is the id of the observation.", handlers::observeDamage},
    {"VXIMStoreObservation.setLimit", "observation: integer, limit: int32", "true", "Changes the length of an observed list.", handlers::setObservationLimit},
    {"VXIMStoreObservation.release", "observation: integer", "true", "Ends an observation. Earlier events of it may still be waiting to be received.", handlers::releaseObservation},
};
// clang-format on

}  // namespace

Found<Operation> findStoreOperation(std::string_view name) {
    static const auto& table = *new Table<Operation>(kStoreOperations);
    return table.find(name);
}

}  // namespace vexim::c
