// The functions of the store's table.

#include "VexIMLib/C/internal/Store/StoreHandlers.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "VexIMLib/C/internal/Store/StoreRecords.h"
#include "VexIMLib/C/internal/Store/Stores.h"

namespace vexim::c::handlers {

namespace {

// a century, so that calculations cannot overflow
constexpr std::int64_t kMostHours = 1'000'000;

/// A valid duration; `otherwise` if it is missing.
template <class Duration>
Duration durationOf(const Request& request, std::string_view name, Duration otherwise) {
    const Value& given = request.value(name);
    if (given.isNil()) return otherwise;
    const std::int64_t number = given.longLongValue();
    if (number < 0 || number > kMostHours) {
        refuse("\"" + std::string(name) + "\" must be between 0 and " + std::to_string(kMostHours) +
               ".");
    }
    return Duration(number);
}

std::string pathOf(const Request& request) {
    std::string path = request.text("path").value_or("");
    if (path.empty() || path.find('\0') != path.npos) refuse("\"path\" is not a path.");
    return path;
}

VXIMConversationId conversationFrom(const Dictionary& given) {
    require(given, kConversationId);
    const auto word = given.get("kind").asStringView();
    for (const auto kind : {VXIMConversationKindFriend, VXIMConversationKindGroup,
                            VXIMConversationKindRoom, VXIMConversationKindSystem}) {
        if (word != VXIMConversationKindName(kind)) continue;
        VXIMConversationId id{kind, given.get("id").asString().value_or("")};
        if (id.id.empty() != (kind == VXIMConversationKindSystem)) {
            refuse("A conversation needs an \"id\", unless its kind is \"system\".");
        }
        return id;
    }
    refuse(R"("kind" must be "friend", "group", "room" or "system".)");
}

VXIMConversationId conversationOf(const Request& request, std::string_view name) {
    return conversationFrom(request.dictionary(name));
}

std::optional<VXIMConversationId> optionalConversation(const Request& request,
                                                       std::string_view name) {
    if (request.value(name).isNil()) return std::nullopt;
    return conversationOf(request, name);
}

std::optional<VXIMStorePosition> positionOf(const Request& request, std::string_view name) {
    if (request.value(name).isNil()) return std::nullopt;
    const Dictionary given = request.dictionary(name);
    require(given, kStorePosition);
    return VXIMStorePosition{given.get("sentAtMillis").longLongValue(),
                             given.get("localId").longLongValue()};
}

std::optional<std::int64_t> integerOf(const Request& request, std::string_view name) {
    const Value& given = request.value(name);
    return given.isNil() ? std::nullopt : std::optional(given.longLongValue());
}

VXIMMessageStore& storeOf(Request& request) { return Stores::of(request)->store(request); }

/// The result is written by `writeStored`.
template <class T>
auto stored(Request& request) {
    return request.optional<T>([](std::string& out, const T& value) { writeStored(out, value); });
}

VXIMCountCompletion counted(Request& request) {
    return request.optional<std::int64_t>(
        [](std::string& out, const std::int64_t& count) { write(out, count); });
}

/// The upload begins after the request was answered, so its progress is reported with the message's
/// number.
struct Upload {
    std::int64_t localId = 0;
};

}  // namespace

void openConversations(Request& request) {
    VXIMConversationsOptions options;
    options.path = pathOf(request);
    options.userId = request.text("userId").value_or("");
    options.mostUnsent = request.int32("mostUnsent", options.mostUnsent);
    options.longestWait = durationOf(request, "longestWait", options.longestWait);
    options.echoTimeout = durationOf(request, "echoTimeout", options.echoTimeout);
    options.mostCaughtUp = request.int32("mostCaughtUp", options.mostCaughtUp);
    options.farthestCaughtUp = durationOf(request, "farthestCaughtUp", options.farthestCaughtUp);
    Stores::of(request)->open(request, std::move(options));
}

void conversationsStore(Request& request) {
    const auto stores = Stores::of(request);
    if (stores->ownNumber() == 0) return request.succeed("null");
    std::string result;
    writeStore(result, stores->ownNumber(), stores->store(request));
    request.succeed(result);
}

void sendStored(Request& request) {
    auto& conversations = Stores::of(request)->conversations();
    const auto conversation = conversationOf(request, "conversation");
    const auto message = messageFrom(request);
    const auto upload = std::make_shared<Upload>();
    VXIMProgress progress;
    if (request.boolean("progress")) {
        progress = [upload, mailbox = request.sharedMailbox()](std::int32_t percent) {
            mailbox->event(R"({"@type":"event","name":"conversationsProgress","localId":)" +
                           std::to_string(upload->localId) + R"(,"percent":)" +
                           std::to_string(percent) + "}");
        };
    }
    conversations.send(message, conversation, std::move(progress),
                       [upload, end = stored<VXIMStoredMessage>(request)](
                           const std::optional<VXIMStoredMessage>& queued, const ErrorPtr& error) {
                           if (queued) upload->localId = queued->localId;
                           end(queued, error);
                       });
}

void sendStoredText(Request& request) {
    Stores::of(request)->conversations().sendText(request.text("text").value_or(""),
                                                  conversationOf(request, "conversation"),
                                                  stored<VXIMStoredMessage>(request));
}

void retryStored(Request& request) {
    Stores::of(request)->conversations().retry(request.value("localId").longLongValue(),
                                               request.done());
}

void cancelStored(Request& request) {
    Stores::of(request)->conversations().cancel(request.value("localId").longLongValue(),
                                                request.done());
}

void readStoredGap(Request& request) {
    const VXIMStoredGap gap{request.value("afterMillis").longLongValue(),
                            request.value("beforeMillis").longLongValue()};
    Stores::of(request)->conversations().readGap(conversationOf(request, "conversation"), gap,
                                                 counted(request));
}

void openStore(Request& request) {
    VXIMMessageStoreOptions options;
    options.path = pathOf(request);
    options.userId = request.text("userId").value_or("");
    options.service = request.text("service").value_or("");
    options.readOnly = request.boolean("readOnly");
    Stores::of(request)->open(request, std::move(options));
}

void closeStore(Request& request) { Stores::of(request)->close(request); }

void storeConversations(Request& request) {
    storeOf(request).conversations(stored<std::vector<VXIMConversation>>(request));
}

void storeConversation(Request& request) {
    storeOf(request).conversation(conversationOf(request, "id"), stored<VXIMConversation>(request));
}

void storeMessagesBefore(Request& request) {
    storeOf(request).messagesBefore(conversationOf(request, "id"), positionOf(request, "position"),
                                    request.int32("limit", 0),
                                    stored<std::vector<VXIMStoredMessage>>(request));
}

void storeMessagesAfter(Request& request) {
    storeOf(request).messagesAfter(conversationOf(request, "id"), positionOf(request, "position"),
                                   request.int32("limit", 0),
                                   stored<std::vector<VXIMStoredMessage>>(request));
}

void storeMessage(Request& request) {
    storeOf(request).message(request.value("localId").longLongValue(),
                             stored<VXIMStoredMessage>(request));
}

void storeSearch(Request& request) {
    VXIMMessageSearch search;
    search.text = request.text("text").value_or("");
    search.conversation = optionalConversation(request, "conversation");
    search.sinceMillis = integerOf(request, "sinceMillis");
    search.untilMillis = integerOf(request, "untilMillis");
    search.before = positionOf(request, "before");
    search.limit = request.int32("limit", search.limit);
    storeOf(request).search(std::move(search), stored<std::vector<VXIMStoredMessage>>(request));
}

void storeGaps(Request& request) {
    storeOf(request).gaps(conversationOf(request, "id"),
                          stored<std::vector<VXIMStoredGap>>(request));
}

void storeMarkRead(Request& request) {
    storeOf(request).markRead(conversationOf(request, "id"), positionOf(request, "upTo"),
                              request.done());
}

void storeSetDraft(Request& request) {
    storeOf(request).setDraft(conversationOf(request, "id"), request.text("draft").value_or(""),
                              request.done());
}

void storeRemoveConversation(Request& request) {
    storeOf(request).removeConversation(conversationOf(request, "id"), request.done());
}

void storeSetRetention(Request& request) {
    VXIMRetention retention;
    if (!request.value("maximumAge").isNil())
        retention.maximumAge = durationOf(request, "maximumAge", std::chrono::hours(0));
    retention.maximumCount = integerOf(request, "maximumCount");
    if (retention.maximumCount && *retention.maximumCount < 0)
        refuse("\"maximumCount\" must not be negative.");
    storeOf(request).setRetention(retention, counted(request));
}

void storeExport(Request& request) {
    storeOf(request).exportJSONLines(pathOf(request), optionalConversation(request, "conversation"),
                                     counted(request));
}

void observeConversations(Request& request) { Stores::of(request)->observeConversations(request); }
void observeMessages(Request& request) {
    Stores::of(request)->observeMessages(request, conversationOf(request, "id"));
}
void observeDamage(Request& request) { Stores::of(request)->observeDamage(request); }

void setObservationLimit(Request& request) {
    Stores::of(request)->observation(request).setLimit(request.int32("limit", 0));
    request.succeed("true");
}

void releaseObservation(Request& request) {
    Stores::of(request)->release(request);
    request.succeed("true");
}

}  // namespace vexim::c::handlers
