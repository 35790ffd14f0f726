#include "VexIMLib/VXIMRoom.h"

#include <utility>

#include "VexIMLib/internal/MessageForwarding/DynamicProperty.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Resources/ResourceOperations.h"

using namespace vexim::resources;
using vexim::Array;
using vexim::Dictionary;
using vexim::Value;

namespace {

constinit const vexim::DynamicProperty<Value> kRoomId{&VXIMRoom::staticClass, "roomId"};
constinit const vexim::DynamicProperty<Value> kName{&VXIMRoom::staticClass, "name"};
constinit const vexim::DynamicProperty<Value> kMembers{&VXIMRoom::staticClass, "members"};

}  // namespace

const vexim::Class& VXIMRoom::staticClass() {
    static const vexim::Class& cls =
        vexim::Class::declare("VXIMRoom", &VXIMRuntimeObject::staticClass(),
                              {{"roomId", "T@\"NSString\",&,D,N"},
                               {"name", "T@\"NSString\",&,D,N"},
                               {"members", "T@\"NSArray\",&,D,N"},
                               {"attributes", "T@\"NSDictionary\",&,D,N"}});
    return cls;
}

const vexim::Class& VXIMRoom::runtimeClass() const { return staticClass(); }

std::string_view VXIMRoom::keyPathForProperty(std::string_view property) const {
    if (property == "roomId") return "id";
    return VXIMRuntimeObject::keyPathForProperty(property);
}

std::shared_ptr<VXIMRoom> VXIMRoom::roomWithId(Value roomId) {
    return roomWithDictionary(Dictionary{{"id", std::move(roomId)}});
}

std::shared_ptr<VXIMRoom> VXIMRoom::roomWithDictionary(Dictionary dictionary) {
    return initWithDictionary(std::move(dictionary));
}

std::shared_ptr<VXIMRoom> VXIMRoom::initWithDictionary(Dictionary dictionary) {
    return vexim::create<VXIMRoom>(std::move(dictionary));
}

bool VXIMRoom::initialise(Dictionary dictionary) {
    return dictionary.contains("id") && VXIMRuntimeObject::initialise(std::move(dictionary));
}

Value VXIMRoom::roomId() const { return kRoomId.get(*this); }
Value VXIMRoom::name() const { return kName.get(*this); }
void VXIMRoom::setName(Value name) { kName.set(*this, std::move(name)); }
Value VXIMRoom::members() const { return kMembers.get(*this); }
void VXIMRoom::setMembers(Value members) { kMembers.set(*this, std::move(members)); }
double VXIMRoom::createTs() const { return objectForKey("ts").doubleValue() / 1000.0; }

const char* VXIMRoom::pathPrefix() const { return "/rooms"; }
Value VXIMRoom::resourceId() const { return roomId(); }
VXIMAttributedObject::LocalCopy VXIMRoom::localAttributes() const {
    return LocalCopy::FollowsServer;
}

void VXIMRoom::createWithName(Value name, VXIMRoomCompletion block) {
    createWithName(std::move(name), std::nullopt, std::move(block));
}

void VXIMRoom::createWithName(Value name, std::optional<Array> members, VXIMRoomCompletion block) {
    const Dictionary form{{"name", std::move(name)},
                          {"members", std::move(members).value_or(Array())}};
    VXIMHTTPRequest::post(
        "/rooms", form,
        endingWith<std::shared_ptr<VXIMRoom>>(
            std::move(block), nullptr,
            [form](const Value& result, const vexim::ErrorPtr&) -> std::shared_ptr<VXIMRoom> {
                // The new id must be a plain string. Anything else is a failure, even without an
                // error.
                if (!result.isData()) return nullptr;
                Dictionary record = form;
                record.set("id", bareId(*result.asData()));
                return roomWithDictionary(std::move(record));
            }));
}

void VXIMRoom::fetchWithBlock(VXIMBooleanCompletion block) {
    VXIMHTTPRequest::get(resourcePath(), std::nullopt,
                         endingWithRecord(std::move(block), sharedAs<VXIMRoom>()));
}

void VXIMRoom::updateName(Value name, VXIMBooleanCompletion block) {
    VXIMHTTPRequest::put(
        resourcePath(), Dictionary{{"name", name}},
        endingWith(
            std::move(block), false,
            [self = sharedAs<VXIMRoom>(), name](const Value& result, const vexim::ErrorPtr& error) {
                // No error is not enough here: the service must say that it succeeded.
                const bool succeeded = !error && result.get("success").boolValue();
                if (succeeded) self->setName(name);
                return succeeded;
            }));
}

void VXIMRoom::addMembers(Array userIds, VXIMBooleanCompletion block) {
    VXIMHTTPRequest::post(
        resourcePath("/members"), Dictionary{{"members", userIds}},
        endingWithMembers(std::move(block), sharedAs<VXIMRoom>(), userIds, appending));
}

void VXIMRoom::removeMembers(Array userIds, VXIMBooleanCompletion block) {
    // The service wants the plain list here, unlike when removing from a group or adding to a room.
    VXIMHTTPRequest::deletePath(
        resourcePath("/members"), userIds,
        endingWithMembers(std::move(block), sharedAs<VXIMRoom>(), userIds, removing));
}

void VXIMRoom::deleteWithBlock(VXIMBooleanCompletion block) {
    // Not under "/rooms": the service deletes rooms where it deletes groups.
    VXIMHTTPRequest::deletePath("/groups/" + pathId(roomId(), "The id of a VXIMRoom"), nullptr,
                                endingWithSuccess(std::move(block)));
}
