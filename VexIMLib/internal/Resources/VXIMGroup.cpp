#include "VexIMLib/VXIMGroup.h"

#include <utility>

#include "VexIMLib/internal/MessageForwarding/DynamicProperty.h"
#include "VexIMLib/internal/Networking/VXIMHTTPRequest.h"
#include "VexIMLib/internal/Resources/ResourceOperations.h"

using namespace vexim::resources;
using vexim::Array;
using vexim::Dictionary;
using vexim::Value;

namespace {

constinit const vexim::DynamicProperty<Value> kGroupId{&VXIMGroup::staticClass, "groupId"};
constinit const vexim::DynamicProperty<Value> kName{&VXIMGroup::staticClass, "name"};
constinit const vexim::DynamicProperty<Value> kOwner{&VXIMGroup::staticClass, "owner"};
constinit const vexim::DynamicProperty<Value> kMembers{&VXIMGroup::staticClass, "members"};

}  // namespace

const vexim::Class& VXIMGroup::staticClass() {
    // The getter of "members" is a method, because it also writes; only its setter is dynamic.
    static const vexim::Class& cls = vexim::Class::declare(
        "VXIMGroup", &VXIMRuntimeObject::staticClass(),
        {{"groupId", "T@\"NSString\",&,D,N"},
         {"name", "T@\"NSString\",&,D,N"},
         {"owner", "T@\"NSString\",&,D,N"},
         {"members", "T@\"NSArray\",&,D,N"},
         {"attributes", "T@\"NSDictionary\",&,D,N"}},
        {}, {{"members", "@@:", [](vexim::Object& self, vexim::Invocation& invocation) {
                  const Value members = static_cast<VXIMGroup&>(self).members();
                  invocation.setReturnValue(&members);
              }}});
    return cls;
}

const vexim::Class& VXIMGroup::runtimeClass() const { return staticClass(); }

std::string_view VXIMGroup::keyPathForProperty(std::string_view property) const {
    if (property == "name") return "attributes.name";
    if (property == "groupId") return "id";
    return VXIMRuntimeObject::keyPathForProperty(property);
}

std::shared_ptr<VXIMGroup> VXIMGroup::groupWithId(Value groupId) {
    return initWithDictionary(Dictionary{{"id", std::move(groupId)}});
}

std::shared_ptr<VXIMGroup> VXIMGroup::groupWithDictionary(Dictionary dictionary) {
    return initWithDictionary(std::move(dictionary));
}

std::shared_ptr<VXIMGroup> VXIMGroup::initWithDictionary(Dictionary dictionary) {
    return vexim::create<VXIMGroup>(std::move(dictionary));
}

std::shared_ptr<VXIMGroup> VXIMGroup::groupWithName(Value name, std::optional<Array> members,
                                                    Value owner) {
    Dictionary form;
    form.setOrRemove("owner", std::move(owner));
    form.setOrRemove("name", std::move(name));
    if (members) form.set("members", *std::move(members));
    return initWithDictionary(std::move(form));
}

bool VXIMGroup::initialise(Dictionary dictionary) {
    return !dictionary.empty() && VXIMRuntimeObject::initialise(std::move(dictionary));
}

Value VXIMGroup::groupId() const { return kGroupId.get(*this); }
Value VXIMGroup::name() const { return kName.get(*this); }
void VXIMGroup::setName(Value name) { kName.set(*this, std::move(name)); }
Value VXIMGroup::owner() const { return kOwner.get(*this); }
void VXIMGroup::setOwner(Value owner) { kOwner.set(*this, std::move(owner)); }
void VXIMGroup::setMembers(Value members) { kMembers.set(*this, std::move(members)); }

Value VXIMGroup::members() {
    Value members = objectForKey("members");
    if (!members.isNilOrNull()) return members;  // null counts as missing, as for a room
    setObjectForKey(Array(), "members");
    return Array();
}

std::shared_ptr<VXIMMessage> VXIMGroup::recentMessage() const {
    const Value recent = objectForKey("recent");
    return recent.isDictionary() ? VXIMMessage::initWithPayloadDictionary(*recent.asDictionary())
                                 : nullptr;
}

const char* VXIMGroup::pathPrefix() const { return "/groups"; }
Value VXIMGroup::resourceId() const { return groupId(); }
VXIMAttributedObject::LocalCopy VXIMGroup::localAttributes() const {
    return LocalCopy::FollowsServer;
}

void VXIMGroup::createWithOwner(Value owner, Value name, VXIMGroupCompletion block) {
    createWithOwner(std::move(owner), std::move(name), std::nullopt, std::move(block));
}

void VXIMGroup::createWithOwner(Value owner, Value name, std::optional<Array> members,
                                VXIMGroupCompletion block) {
    auto group = groupWithName(std::move(name), std::move(members), std::move(owner));
    if (!group)
        throw vexim::Exception(vexim::kInvalidArgumentException,
                               "A group needs an owner, a name or members.");
    group->createWithBlock(
        [group, block = std::move(block)](bool succeeded, const vexim::ErrorPtr& error) {
            if (block) block(succeeded ? group : nullptr, error);
        });
}

void VXIMGroup::createWithBlock(VXIMBooleanCompletion block) {
    VXIMHTTPRequest::post(
        "/groups", dictionaryRepresentation(),
        endingWith(std::move(block), false,
                   [self = sharedAs<VXIMGroup>()](const Value& result, const vexim::ErrorPtr&) {
                       // The new id must be a plain string. Anything else is a failure, even
                       // without an error.
                       if (!result.isData()) return false;
                       self->setObjectForKey(bareId(*result.asData()), "id");
                       return true;
                   }));
}

void VXIMGroup::fetchWithBlock(VXIMBooleanCompletion block) {
    VXIMHTTPRequest::get(resourcePath(), std::nullopt,
                         endingWithRecord(std::move(block), sharedAs<VXIMGroup>()));
}

void VXIMGroup::getLatestMessagesBefore(double timestamp, std::int32_t limit,
                                        VXIMMessagesCompletion completion) {
    VXIMHTTPRequest::get(resourcePath("/chats"), historyParams(timestamp, limit),
                         endingWithMessages(std::move(completion)));
}

void VXIMGroup::changeOwner(Value owner, VXIMBooleanCompletion block) {
    updateWithAttributes(Dictionary{{"owner", std::move(owner)}}, std::move(block));
}

void VXIMGroup::updateWithAttributes(Dictionary attributes, VXIMBooleanCompletion block) {
    VXIMHTTPRequest::put(resourcePath(), attributes,
                         endingWithSuccess(std::move(block), [self = sharedAs<VXIMGroup>(),
                                                              attributes](const Value&) {
                             self->addEntriesFromDictionary(attributes);
                         }));
}

void VXIMGroup::addMembers(Array userIds, VXIMBooleanCompletion block) {
    VXIMHTTPRequest::post(
        resourcePath("/members"), Dictionary{{"members", userIds}},
        endingWithMembers(std::move(block), sharedAs<VXIMGroup>(), userIds, appending));
}

void VXIMGroup::removeMembers(Array userIds, VXIMBooleanCompletion block) {
    VXIMHTTPRequest::deletePath(
        resourcePath("/members"), Dictionary{{"members", userIds}},
        endingWithMembers(std::move(block), sharedAs<VXIMGroup>(), userIds, removing));
}

void VXIMGroup::updateName(Value name, VXIMBooleanCompletion block) {
    updateAttributes(Dictionary{{"name", std::move(name)}}, std::move(block));
}

void VXIMGroup::deleteWithBlock(VXIMBooleanCompletion block) {
    VXIMHTTPRequest::deletePath(resourcePath(), nullptr, endingWithSuccess(std::move(block)));
}
