#include "VexIMLib/VXIMPassenger.h"

#include <optional>
#include <utility>

#include "VexIMLib/internal/MessageForwarding/DynamicProperty.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Resources/ResourceOperations.h"

using namespace vexim::resources;
using vexim::Dictionary;
using vexim::ErrorPtr;
using vexim::Value;

namespace {

constinit const vexim::DynamicProperty<Value> kPid{&VXIMPassenger::staticClass, "pid"};

bool isEmptyId(const Value& id) { return id.isNilOrNull() || id == ""; }

/// The id in an answer that is only a JSON string; nullopt for any other answer.
std::optional<std::string> quotedId(const Value& answer) {
    const auto text = answer.isData() ? textOf(*answer.asData()) : answer.asString();
    if (!text || text->size() < 2 || !text->starts_with('"') || !text->ends_with('"'))
        return std::nullopt;
    return text->substr(1, text->size() - 2);
}

}  // namespace

const vexim::Class& VXIMPassenger::staticClass() {
    static const vexim::Class& cls = vexim::Class::declare(
        "VXIMPassenger", &VXIMRuntimeObject::staticClass(), {{"pid", "T@\"NSString\",&,D,N"}});
    return cls;
}

const vexim::Class& VXIMPassenger::runtimeClass() const { return staticClass(); }

std::string_view VXIMPassenger::keyPathForProperty(std::string_view property) const {
    if (property == "pid") return "id";
    return VXIMRuntimeObject::keyPathForProperty(property);
}

std::shared_ptr<VXIMPassenger> VXIMPassenger::initWithDictionary(Dictionary dictionary) {
    return vexim::create<VXIMPassenger>(std::move(dictionary));
}

Value VXIMPassenger::pid() const { return kPid.get(*this); }
void VXIMPassenger::setPid(Value pid) { kPid.set(*this, std::move(pid)); }

void VXIMPassenger::createOrUpdatePassengerWithAttributes(Dictionary attributes,
                                                          VXIMPassengerCompletion completion) {
    VXIMHTTPRequest::post(
        "/passengers", attributes,
        endingWith<std::shared_ptr<VXIMPassenger>>(
            std::move(completion), nullptr,
            [attributes](const Value& result,
                         const ErrorPtr& error) -> std::shared_ptr<VXIMPassenger> {
                if (error) return nullptr;
                // A text without an id just gives no passenger. An object or an array is never a
                // valid answer, so it is an error.
                if (result.isDictionary() || result.isArray()) {
                    throw vexim::Exception(vexim::kInvalidArgumentException,
                                           "The passenger's id is not a string.");
                }
                const auto id = quotedId(result);
                if (!id) return nullptr;
                auto passenger = initWithDictionary(attributes);
                passenger->setPid(*id);
                return passenger;
            }));
}

void VXIMPassenger::updatePassengerAttributes(Dictionary attributes,
                                              VXIMBooleanCompletion completion) {
    if (isEmptyId(pid())) {
        return endAtOnce(
            std::move(completion), false,
            vexim::errors::emptyPassengerId("Cannot update a passenger with an empty id"));
    }
    Dictionary body = attributes;
    body.set("id", pid());
    VXIMHTTPRequest::post(
        "/passengers", std::move(body),
        endingWithSuccess(std::move(completion), [self = self(), attributes](const Value& result) {
            const auto id = quotedId(result);
            if (!id) return;
            self->addEntriesFromDictionary(attributes);
            self->setPid(*id);
        }));
}

void VXIMPassenger::fetchWithCompletion(VXIMBooleanCompletion completion) {
    if (isEmptyId(pid())) {
        return endAtOnce(
            std::move(completion), false,
            vexim::errors::emptyPassengerId("Cannot find a passenger with an empty id"));
    }
    VXIMHTTPRequest::get(
        "/passengers/" + pathId(pid(), "The passenger's id"), std::nullopt,
        endingWithSuccess(std::move(completion), [self = self()](const Value& result) {
            if (result.isDictionary()) self->addEntriesFromDictionary(*result.asDictionary());
        }));
}

void VXIMPassenger::getHistoryMessagesWithUser(Value userId, double beforeTime, std::int32_t limit,
                                               VXIMMessagesCompletion completion) {
    if (isEmptyId(pid())) {
        using Messages = std::optional<std::vector<std::shared_ptr<VXIMMessage>>>;
        return endAtOnce<Messages>(std::move(completion), std::nullopt,
                                   vexim::errors::emptyPassengerId(
                                       "Cannot get history message with an empty passenger id"));
    }
    const std::string path = "/passengers/" + pathId(pid(), "The passenger's id") + "/chats/" +
                             pathId(userId, "The user's id");
    auto asUserMessages =
        [self = self(), completion = std::move(completion)](
            const std::optional<std::vector<std::shared_ptr<VXIMMessage>>>& messages,
            const ErrorPtr& error) {
            for (const auto& message :
                 messages.value_or(std::vector<std::shared_ptr<VXIMMessage>>())) {
                // Older records do not say who wrote it; then it was a user.
                const auto& sender = message->sender();
                if (sender->type() == VXIMMessageTargetTypeUnknown)
                    sender->setType(VXIMMessageTargetTypeUser);
            }
            if (completion) completion(messages, error);
        };
    VXIMHTTPRequest::get(path, historyParams(beforeTime, limit),
                         endingWithMessages(std::move(asUserMessages)));
}
