#include "VexIMLib/VXIMRuntimeObject.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/internal/MessageForwarding/VXIMMessageForwardProxy.h"

using vexim::Class;
using vexim::Dictionary;
using vexim::Value;

namespace {

/// A key path as its first component and the rest; nullopt when there is no rest.
struct SplitPath {
    std::string_view first;
    std::optional<std::string_view> rest;

    explicit SplitPath(std::string_view path) {
        const auto dot = path.find('.');
        first = path.substr(0, dot);
        if (dot != std::string_view::npos) rest = path.substr(dot + 1);
    }
};

/// Whether a key path has only one component. Checks eight bytes at a time: most are short, and
/// calling memchr costs more.
bool isKey(std::string_view path) noexcept {
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    if (path.size() < 8) {
        for (const char c : path) {
            if (c == '.') return false;
        }
        return true;
    }
    const auto hasDot = [](const char* bytes) {
        std::uint64_t word;
        std::memcpy(&word, bytes, sizeof word);
        word ^= kOnes * '.';
        return ((word - kOnes) & ~word & kOnes * 0x80) != 0;
    };
    const char* at = path.data();
    const char* const end = at + path.size();
    for (; end - at > 8; at += 8) {
        if (hasDot(at)) return false;
    }
    return !hasDot(end - 8);  // may overlap earlier bytes
}

/// The platform's name for the class that would hold such a value.
const char* className(const Value& value) {
    switch (value.kind()) {
        case Value::Kind::Nil: return "nil";
        case Value::Kind::Null: return "NSNull";
        case Value::Kind::Boolean: return "__NSCFBoolean";
        case Value::Kind::Integer:
        case Value::Kind::Unsigned:
        case Value::Kind::Real: return "__NSCFNumber";
        case Value::Kind::String: return "__NSCFString";
        case Value::Kind::Data: return "NSConcreteData";
        case Value::Kind::Array: return "__NSArrayM";
        case Value::Kind::Dictionary: return "__NSDictionaryM";
        case Value::Kind::Object: return "NSObject";
    }
    return "";
}

[[noreturn]] void raiseUnknownKey(const Value& holder, std::string_view key) {
    const auto object = holder.asObject();
    char address[2 + 2 * sizeof(void*) + 1];
    std::snprintf(address, sizeof address, "%p",
                  object ? static_cast<const void*>(object.get()) : &holder);
    throw vexim::Exception(vexim::kUnknownKeyException,
                           "[<" + (object ? object->runtimeClass().name() : className(holder)) +
                               " " + address +
                               "> setValue:forUndefinedKey:]: this class is not key value "
                               "coding-compliant for the key " +
                               std::string(key) + ".");
}

/// Writes the value. All components but the last must be dictionaries or missing. Each dictionary
/// on the way is unshared, so earlier copies do not change.
void writePath(Dictionary& dictionary, const SplitPath& path, Value object) {
    if (!path.rest) return dictionary.setOrRemove(path.first, std::move(object));
    dictionary.update(path.first, [&path, &object](Value& nested) {
        if (nested.isNil()) nested = Dictionary();
        writePath(nested.mutableDictionary(), SplitPath(*path.rest), std::move(object));
    });
}

// The class's operations as methods, for messages sent by name. (Keys must be strings.)

template <Value (VXIMRuntimeObject::*read)(std::string_view) const>
vexim::Method reader(const char* selector) {
    return {selector, "@@:@", [](vexim::Object& self, vexim::Invocation& invocation) {
                Value key;
                invocation.getArgument(&key, 2);
                const Value result =
                    (static_cast<VXIMRuntimeObject&>(self).*read)(key.asStringView().value_or(""));
                invocation.setReturnValue(&result);
            }};
}

template <void (VXIMRuntimeObject::*write)(Value, std::string_view)>
vexim::Method writer(const char* selector) {
    return {selector, "v@:@@", [](vexim::Object& self, vexim::Invocation& invocation) {
                Value value;
                Value key;
                invocation.getArgument(&value, 2);
                invocation.getArgument(&key, 3);
                (static_cast<VXIMRuntimeObject&>(self).*write)(std::move(value),
                                                               key.asStringView().value_or(""));
            }};
}

std::vector<vexim::Method> ownMethods() {
    using Self = VXIMRuntimeObject;
    return {
        {"dictionaryRepresentation", "@@:",
         [](vexim::Object& self, vexim::Invocation& invocation) {
             const Value dictionary = static_cast<Self&>(self).dictionaryRepresentation();
             invocation.setReturnValue(&dictionary);
         }},
        {"addEntriesFromDictionary:", "v@:@",
         [](vexim::Object& self, vexim::Invocation& invocation) {
             Value entries;
             invocation.getArgument(&entries, 2);
             if (entries.isDictionary())
                 static_cast<Self&>(self).addEntriesFromDictionary(*entries.asDictionary());
         }},
        {"keyPathForProperty:", "@@:@",
         [](vexim::Object& self, vexim::Invocation& invocation) {
             Value property;
             invocation.getArgument(&property, 2);
             const Value keyPath =
                 static_cast<Self&>(self).keyPathForProperty(property.asStringView().value_or(""));
             invocation.setReturnValue(&keyPath);
         }},
        reader<&Self::valueForKey>("valueForKey:"),
        writer<&Self::setValueForKey>("setValue:forKey:"),
        reader<&Self::valueForKeyPath>("valueForKeyPath:"),
        writer<&Self::setValueForKeyPath>("setValue:forKeyPath:"),
        reader<&Self::objectForKey>("objectForKey:"),
        writer<&Self::setObjectForKey>("setObject:forKey:"),
        reader<&Self::objectForKeyedSubscript>("objectForKeyedSubscript:"),
        writer<&Self::setObjectForKeyedSubscript>("setObject:forKeyedSubscript:"),
        reader<&Self::objectForKeyPath>("objectForKeyPath:"),
        writer<&Self::setObjectForKeyPath>("setObject:forKeyPath:"),
        reader<&Self::valueForPropertyName>("valueForPropertyName:"),
        writer<&Self::setValueForPropertyName>("setValue:forPropertyName:"),
    };
}

}  // namespace

VXIMRuntimeObject::~VXIMRuntimeObject() { delete instanceStorage_.load(std::memory_order_acquire); }

const Class& VXIMRuntimeObject::staticClass() {
    static const Class& cls =
        Class::declare("VXIMRuntimeObject", &Object::staticClass(), {}, {}, ownMethods());
    return cls;
}

const Class& VXIMRuntimeObject::runtimeClass() const { return staticClass(); }

std::shared_ptr<VXIMRuntimeObject> VXIMRuntimeObject::init() { return initWithDictionary({}); }

std::shared_ptr<VXIMRuntimeObject> VXIMRuntimeObject::initWithDictionary(Dictionary dictionary) {
    return vexim::create<VXIMRuntimeObject>(std::move(dictionary));
}

bool VXIMRuntimeObject::initialise(Dictionary dictionary) {
    dataStore_ = Dictionary();
    addEntriesFromDictionary(dictionary);
    return true;
}

void VXIMRuntimeObject::addEntriesFromDictionary(const Dictionary& entries) {
    // an observer or the caller may write the original meanwhile
    const Dictionary held = entries;
    for (const auto& [key, value] : held) setValueForKey(value, key);
}

std::string_view VXIMRuntimeObject::keyPathForProperty(std::string_view property) const {
    return property;
}

Value VXIMRuntimeObject::valueForKey(std::string_view key) const { return objectForKey(key); }

void VXIMRuntimeObject::setValueForKey(Value value, std::string_view key) {
    willChangeValueForKey(key);
    setObjectForKey(std::move(value), key);
    didChangeValueForKey(key);
}

Value VXIMRuntimeObject::objectForKey(std::string_view key) const { return dataStore_.get(key); }

void VXIMRuntimeObject::setObjectForKey(Value object, std::string_view key) {
    dataStore_.setOrRemove(key, std::move(object));
}

Value VXIMRuntimeObject::objectForKeyedSubscript(std::string_view key) const {
    return objectForKey(key);
}

void VXIMRuntimeObject::setObjectForKeyedSubscript(Value object, std::string_view key) {
    setObjectForKey(std::move(object), key);
}

Value VXIMRuntimeObject::valueForKeyPath(std::string_view keyPath) const {
    return objectForKeyPath(keyPath);
}

void VXIMRuntimeObject::setValueForKeyPath(Value value, std::string_view keyPath) {
    setObjectForKeyPath(std::move(value), keyPath);
}

Value VXIMRuntimeObject::objectForKeyPath(std::string_view keyPath) const {
    SplitPath path(keyPath);
    const Value* reached = &dataStore_.get(path.first);
    for (; path.rest; reached = &reached->get(path.first)) path = SplitPath(*path.rest);
    return *reached;
}

void VXIMRuntimeObject::setObjectForKeyPath(Value object, std::string_view keyPath) {
    const SplitPath path(keyPath);
    if (!path.rest) return setObjectForKey(std::move(object), keyPath);
    // Check the way first, so that a write that fails changes nothing.
    const Dictionary* dictionary = &dataStore_;
    for (SplitPath way = path; way.rest; way = SplitPath(*way.rest)) {
        const Value& next = dictionary->get(way.first);
        if (next.isNil()) {
            if (object.isNil()) return;  // nothing to remove, so create nothing
            break;                       // the write creates the rest
        }
        dictionary = next.asDictionary();
        if (!dictionary) raiseUnknownKey(next, keyPath.substr(keyPath.rfind('.') + 1));
    }
    writePath(dataStore_, path, std::move(object));
}

Value VXIMRuntimeObject::valueForPropertyName(std::string_view property) const {
    const std::string_view path = keyPathForProperty(property);
    return isKey(path) ? dataStore_.get(path) : objectForKeyPath(path);
}

void VXIMRuntimeObject::setValueForPropertyName(Value value, std::string_view property) {
    const std::string_view path = keyPathForProperty(property);
    if (!isKey(path)) return setObjectForKeyPath(std::move(value), path);
    if (value.isNil()) return setObjectForKey(Value(), path);
    dataStore_.set(path, std::move(value));
}

std::string VXIMRuntimeObject::description() const {
    return Object::description() + " " + dataStore_.description();
}

std::shared_ptr<VXIMMessageForwardProxy> VXIMRuntimeObject::messageForwardProxy() {
    return VXIMMessageForwardProxy::proxyForRootClass(VXIMRuntimeObject::staticClass());
}

std::shared_ptr<const vexim::MethodSignature> VXIMRuntimeObject::methodSignatureForSelector(
    vexim::Selector selector) const {
    if (auto signature = Object::methodSignatureForSelector(selector)) return signature;
    return messageForwardProxy()->methodSignatureForSelector(selector, runtimeClass());
}

void VXIMRuntimeObject::forwardInvocation(vexim::Invocation& invocation) {
    messageForwardProxy()->proxyForwardInvocation(invocation);
}

vexim::InstanceStorage& VXIMRuntimeObject::instanceStorage() {
    auto* storage = instanceStorage_.load(std::memory_order_acquire);
    if (!storage) {
        auto fresh = std::make_unique<vexim::InstanceStorage>(runtimeClass());
        // An accessor on another thread may have been first; then use its storage.
        if (instanceStorage_.compare_exchange_strong(storage, fresh.get(),
                                                     std::memory_order_acq_rel))
            storage = fresh.release();
    }
    return *storage;
}
