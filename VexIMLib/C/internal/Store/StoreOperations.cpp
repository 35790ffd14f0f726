// The table of the store's operations, in the form of ../Operations.cpp, and read with it by
// scripts/c_interface.py.
//
// Further types: conversationId {"kind": "friend", "group", "room" or "system", "id"},
// storePosition {"sentAtMillis", "localId"}. `store` names a store that VXIMMessageStore.open has
// opened; without it the operation is about that of VXIMConversations.open.

#include "VexIMLib/C/internal/Store/StoreHandlers.h"

namespace vexim::c {

const bool kHasStore = true;

const std::string_view kConversationId = "kind: conversationKind, id: string?";
const std::string_view kStorePosition = "sentAtMillis: integer, localId: integer";

namespace {

// clang-format off
constexpr Operation kStoreOperations[] = {
    // The store of a client, with an outbox.
    {"VXIMConversations.open", "path: string, userId: string?, mostUnsent: int32?, longestWait: integer?, echoTimeout: integer?, mostCaughtUp: int32?, farthestCaughtUp: integer?", "store", "Opens the client's store in a file or a folder. Without `userId` it opens at the first accepted login. `longestWait` and `farthestCaughtUp` in hours, `echoTimeout` in seconds.", handlers::openConversations},
    {"VXIMConversations.store", "", "store?", "The client's open store; null when there is none.", handlers::conversationsStore},
    {"VXIMConversations.send", "conversation: conversationId, message: newMessage, progress: boolean?", "storedMessage", "Queues a message; from the answer on it is not lost.", handlers::sendStored},
    {"VXIMConversations.sendText", "conversation: conversationId, text: string", "storedMessage", "Queues a text.", handlers::sendStoredText},
    {"VXIMConversations.retry", "localId: integer", "true", "Sends a failed message again, or one that waits after a failure at once.", handlers::retryStored},
    {"VXIMConversations.cancel", "localId: integer", "true", "Takes back a message that is not confirmed.", handlers::cancelStored},
    {"VXIMConversations.readGap", "conversation: conversationId, afterMillis: integer, beforeMillis: integer", "integer", "Reads up to 100 messages from the newer end of a gap, which becomes shorter or goes; tells how many were stored.", handlers::readStoredGap},

    // Any store.
    {"VXIMMessageStore.open", "path: string, userId: string?, service: string?, readOnly: boolean?", "store", "Opens a store beside the client's, for a look or for work without a connection: nothing is sent from it.", handlers::openStore},
    {"VXIMMessageStore.close", "store: integer?", "true", "Does what was asked for before, then closes the file. What waits to be sent waits for the next time.", handlers::closeStore},
    {"VXIMMessageStore.conversations", "store: integer?", "conversations", "All conversations, the one with the newest message first.", handlers::storeConversations},
    {"VXIMMessageStore.conversation", "id: conversationId, store: integer?", "conversation?", "One conversation; null when there is none.", handlers::storeConversation},
    {"VXIMMessageStore.messagesBefore", "id: conversationId, position: storePosition?, limit: int32, store: integer?", "storedMessages", "The messages right before a position (without one: the newest), the oldest first.", handlers::storeMessagesBefore},
    {"VXIMMessageStore.messagesAfter", "id: conversationId, position: storePosition?, limit: int32, store: integer?", "storedMessages", "The messages right behind a position (without one: the oldest), the oldest first.", handlers::storeMessagesAfter},
    {"VXIMMessageStore.message", "localId: integer, store: integer?", "storedMessage?", "One message; null when there is none.", handlers::storeMessage},
    {"VXIMMessageStore.search", "text: string, conversation: conversationId?, sinceMillis: integer?, untilMillis: integer?, before: storePosition?, limit: int32?, store: integer?", "storedMessages", "Texts in which all words occur, the newest first; 50 unless `limit` says otherwise. `word*` is the beginning of a word, words in double quotes stand together.", handlers::storeSearch},
    {"VXIMMessageStore.gaps", "id: conversationId, store: integer?", "storedGaps", "Where messages are missing that the service does not have any more.", handlers::storeGaps},
    {"VXIMMessageStore.markRead", "id: conversationId, upTo: storePosition?, store: integer?", "true", "Counts the messages up to a position (without one: all) as read.", handlers::storeMarkRead},
    {"VXIMMessageStore.setDraft", "id: conversationId, draft: string, store: integer?", "true", "Keeps what the user has begun to write; empty: nothing.", handlers::storeSetDraft},
    {"VXIMMessageStore.removeConversation", "id: conversationId, store: integer?", "true", "Removes a conversation with its messages, unsent ones too, from this device.", handlers::storeRemoveConversation},
    {"VXIMMessageStore.setRetention", "maximumAge: integer?, maximumCount: integer?, store: integer?", "integer", "Keeps messages for so many hours at most, and so many of each conversation; null: no limit. Tells how many were removed now.", handlers::storeSetRetention},
    {"VXIMMessageStore.exportJSONLines", "path: string, conversation: conversationId?, store: integer?", "integer", "Writes all messages, or those of one conversation, to a file, a JSON object a line; tells how many.", handlers::storeExport},
    {"VXIMMessageStore.observeConversations", "limit: int32, store: integer?", "integer", "Tells how the list of conversations changes, by `observedConversationsDidChange`. The result names the observation.", handlers::observeConversations},
    {"VXIMMessageStore.observeMessages", "id: conversationId, limit: int32, store: integer?", "integer", "Tells how the newest messages of a conversation change, by `observedMessagesDidChange`. The result names the observation.", handlers::observeMessages},
    {"VXIMMessageStore.observeDamage", "store: integer?", "integer", "Tells when the open file is found damaged, by `observedStoreWasDamaged`. The result names the observation.", handlers::observeDamage},
    {"VXIMStoreObservation.setLimit", "observation: integer, limit: int32", "true", "Makes an observed list longer or shorter.", handlers::setObservationLimit},
    {"VXIMStoreObservation.release", "observation: integer", "true", "Ends an observation. What it has told before may still wait to be received.", handlers::releaseObservation},
};
// clang-format on

}  // namespace

Found<Operation> findStoreOperation(std::string_view name) {
    static const auto& table = *new Table<Operation>(kStoreOperations);
    return table.find(name);
}

}  // namespace vexim::c
