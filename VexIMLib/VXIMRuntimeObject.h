#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Runtime/InstanceVariable.h"
#include "VexIMLib/Foundation/Value.h"

class VXIMMessageForwardProxy;

/// The base class of the server's resources. Its state is one dictionary, the data store, which
/// holds the server's object as it came. Derived classes declare dynamic properties. Each one has a
/// key path, through which it reads and writes the store.
///
/// Keys and key paths ("attributes.name") name places in the store, not properties. A missing
/// value, at any depth, reads as nil; setting nil removes the entry. Dictionaries are values: a
/// later write never changes one that was read before.
///
/// Use an object from one thread at a time. (Only the accessors of an atomic property lock each
/// other out.)
///
/// A derived class, as its source file writes it (its header declares `staticClass`, `runtimeClass`
/// and the typed accessors; `DynamicProperty` is in internal/MessageForwarding/DynamicProperty.h):
///
///     const vexim::Class& VXIMUser::staticClass() {
///         static const vexim::Class& cls = vexim::Class::declare(
///             "VXIMUser", &VXIMRuntimeObject::staticClass(), {
///             {"uid", "T@\"NSString\",&,D,N"}, {"sessionCount", "Tq,D,N"}, {"online", "TB,D,N"},
///             {"attributes", "T@\"NSDictionary\",&,D,N"}});
///         return cls;
///     }
///     const vexim::Class& VXIMUser::runtimeClass() const { return staticClass(); }
///
///     constinit const vexim::DynamicProperty<std::int64_t> kSessionCount{
///         &VXIMUser::staticClass, "sessionCount"};
///     std::int64_t VXIMUser::sessionCount() const { return kSessionCount.get(*this); }
///
///     std::string_view VXIMUser::keyPathForProperty(std::string_view property) const {
///         if (property == "uid") return "id";
///         if (property == "sessionCount") return "sessions";
///         return VXIMRuntimeObject::keyPathForProperty(property);
///     }
///     std::shared_ptr<VXIMUser> VXIMUser::initWithDictionary(vexim::Dictionary dictionary) {
///         return vexim::create<VXIMUser>(std::move(dictionary));
///     }
class VEXIM_EXPORT VXIMRuntimeObject : public vexim::Object {
public:
    using Object::Object;
    ~VXIMRuntimeObject() override;

    static const vexim::Class& staticClass();
    const vexim::Class& runtimeClass() const override;

    /// Makes an object with an empty store.
    static std::shared_ptr<VXIMRuntimeObject> init();
    /// Makes an object whose store starts with these entries.
    static std::shared_ptr<VXIMRuntimeObject> initWithDictionary(vexim::Dictionary dictionary);
    /// The factories call this. A derived class returns false to refuse the dictionary; otherwise
    /// it calls this function.
    virtual bool initialise(vexim::Dictionary dictionary);

    /// Calls `setValueForKey` for each entry, in order. Dots in keys have no meaning.
    void addEntriesFromDictionary(const vexim::Dictionary& entries);
    /// A copy of the store. Later writes do not change it.
    vexim::Dictionary dictionaryRepresentation() const { return dataStore_; }
    /// The store itself. Read and write it in place; key observers are not notified.
    vexim::Dictionary& dataStore() noexcept { return dataStore_; }
    const vexim::Dictionary& dataStore() const noexcept { return dataStore_; }

    /// The key path of a declared property in the store. Derived classes return a literal or call
    /// the base. The result must live as long as the argument.
    virtual std::string_view keyPathForProperty(std::string_view property) const;

    // One key of the store; dots in it have no meaning. Subscripts and `object…` are other names
    // for the same entry. The setters raise nothing.
    vexim::Value valueForKey(std::string_view key) const override;
    /// Sets an entry; nil removes it. Only this setter notifies the key's observers.
    virtual void setValueForKey(vexim::Value value, std::string_view key);
    vexim::Value objectForKey(std::string_view key) const;
    void setObjectForKey(vexim::Value object, std::string_view key);
    vexim::Value objectForKeyedSubscript(std::string_view key) const;
    void setObjectForKeyedSubscript(vexim::Value object, std::string_view key);

    // An entry at any depth: keys separated by dots.
    vexim::Value valueForKeyPath(std::string_view keyPath) const;
    void setValueForKeyPath(vexim::Value value, std::string_view keyPath);
    vexim::Value objectForKeyPath(std::string_view keyPath) const;
    /// Makes the missing dictionaries on the way, unless `object` is nil. If something on the way
    /// is not a dictionary, nothing changes and it raises NSUnknownKeyException.
    void setObjectForKeyPath(vexim::Value object, std::string_view keyPath);

    // The accessors of dynamic properties call these.
    virtual vexim::Value valueForPropertyName(std::string_view property) const;
    virtual void setValueForPropertyName(vexim::Value value, std::string_view property);

    /// "<VXIMUser: 0x5580…> {id = u1; }"
    std::string description() const override;

    /// The proxy of the class VXIMRuntimeObject, the same for all derived classes.
    static std::shared_ptr<VXIMMessageForwardProxy> messageForwardProxy();
    std::shared_ptr<const vexim::MethodSignature> methodSignatureForSelector(
        vexim::Selector selector) const final;
    void forwardInvocation(vexim::Invocation& invocation) final;

private:
    friend class VXIMMessageForwardProxy;
    vexim::InstanceStorage& instanceStorage();

    vexim::Dictionary dataStore_;
    std::atomic<vexim::InstanceStorage*> instanceStorage_{nullptr};  // made on first use, owned
};
