#include "VexIMLib/internal/Resources/ResourceOperations.h"

#include <algorithm>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Foundation/Scalars.h"
#include "VexIMLib/internal/Foundation/Text/UTF8.h"

namespace vexim::resources {

namespace {

[[noreturn]] void raise(const char* what, const char* complaint) {
    throw Exception(kInvalidArgumentException, std::string(what) + complaint);
}

}  // namespace

std::string pathId(const Value& id, const char* what) {
    if (id.isNilOrNull()) raise(what, " must not be nil.");
    return id.description();
}

Dictionary historyParams(double timestampInSeconds, std::int32_t limit) {
    return {{"ts", std::to_string(truncateToInt64(timestampInSeconds * 1000.0))},
            {"limit", std::to_string(limit)}};
}

const Dictionary& requireDictionary(const Value& answer, const char* what) {
    if (const Dictionary* dictionary = answer.asDictionary()) return *dictionary;
    raise(what, " is not a dictionary.");
}

const Array& requireArray(const Value& answer, const char* what) {
    if (const Array* array = answer.asArray()) return *array;
    raise(what, " is not an array.");
}

const Array& requireArrayOrNil(const Value& answer, const char* what) {
    static const Array empty;
    return answer.isNil() ? empty : requireArray(answer, what);
}

std::optional<std::string> textOf(const Data& body) {
    if (!detail::isValidUTF8(body.view())) return std::nullopt;
    return std::string(body.view());
}

Value bareId(const Data& body) {
    auto text = textOf(body);
    if (text) std::erase(*text, '"');
    return text;
}

std::vector<std::shared_ptr<VXIMMessage>> messagesFrom(const Array& history) {
    return objectsFrom(history, "message", [](const Value& element) {
        return VXIMMessage::initWithPayloadDictionary(
            requireDictionary(element, "An element of the history"));
    });
}

Value appending(const Value& members, const Array& ids) {
    if (members.isNil()) return members;
    Array changed = requireArray(members, "The member list");
    changed.appendAll(ids);
    return changed;
}

Value removing(const Value& members, const Array& ids) {
    if (members.isNil()) return members;
    Array changed = requireArray(members, "The member list");
    for (const Value& id : ids) changed.removeAll(id);
    return changed;
}

VXIMResultCompletion endingWithSuccess(VXIMBooleanCompletion completion) {
    return endingWithSuccess(std::move(completion), [](const Value&) {});
}

VXIMResultCompletion endingWithMessages(VXIMMessagesCompletion completion) {
    using Messages = std::optional<std::vector<std::shared_ptr<VXIMMessage>>>;
    return endingWith<Messages>(std::move(completion), std::nullopt,
                                [](const Value& result, const ErrorPtr&) -> Messages {
                                    if (!result.isArray()) return std::nullopt;
                                    return messagesFrom(*result.asArray());
                                });
}

void runOnMain(std::function<void()> function) {
    if (MainQueue::shared().isMainThread()) return function();
    MainQueue::shared().async(std::move(function));
}

}  // namespace vexim::resources
