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

/// The base of the server's resources. Its state is one dictionary, the data store, which holds a
/// server object as it came; derived classes declare dynamic properties that read and write it
/// through a key path for each property.
///
/// Keys and key paths ("attributes.name") name places in the store, not properties. A missing
/// value, at any depth, reads as nil; setting nil removes. Dictionaries are values: what was read
/// before is never changed by a later write.
///
/// One object is used from one thread at a time. (An atomic property's accessors exclude each
/// other, nothing else does.)
///
/// A derived class, as its source file writes it (its header declares `staticClass`, `runtimeClass`
/// and the typed accessors; `DynamicProperty` is in internal/MessageForwarding/DynamicProperty.h):
///
///     const vexim::Class& VXIMUser::staticClass() {
///         static const vexim::Class& cls = vexim::Class::declare("VXIMUser",
///         &VXIMRuntimeObject::staticClass(), {
///             {"uid", "T@\"NSString\",&,D,N"}, {"sessionCount", "Tq,D,N"}, {"online", "TB,D,N"},
///             {"attributes", "T@\"NSDictionary\",&,D,N"}});
///         return cls;
///     }
///     const vexim::Class& VXIMUser::runtimeClass() const { return staticClass(); }
///
///     constinit const vexim::DynamicProperty<std::int64_t> kSessionCount{&VXIMUser::staticClass,
///     "sessionCount"}; std::int64_t VXIMUser::sessionCount() const { return
///     kSessionCount.get(*this); }
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

    /// An object with an empty store.
    static std::shared_ptr<VXIMRuntimeObject> init();
    /// An object whose store begins with these entries.
    static std::shared_ptr<VXIMRuntimeObject> initWithDictionary(vexim::Dictionary dictionary);
    /// What the factories run. A derived class may refuse by answering false; otherwise it calls
    /// this one.
    virtual bool initialise(vexim::Dictionary dictionary);

    /// `setValueForKey` for each entry in order; dots in keys are not interpreted.
    void addEntriesFromDictionary(const vexim::Dictionary& entries);
    /// The store as it is now; later writes do not show in it.
    vexim::Dictionary dictionaryRepresentation() const { return dataStore_; }
    /// The store itself, to be read and written in place; observers of keys hear nothing of it.
    vexim::Dictionary& dataStore() noexcept { return dataStore_; }
    const vexim::Dictionary& dataStore() const noexcept { return dataStore_; }

    /// The place of a declared property in the store. Derived classes answer with a literal or pass
    /// the name on; the answer must live as long as the argument.
    virtual std::string_view keyPathForProperty(std::string_view property) const;

    // One key of the store; dots in it are not interpreted. Subscripts and `object…` are other
    // names for the same place.
    vexim::Value valueForKey(std::string_view key) const override;
    /// nil removes. The only writer that tells the key's observers.
    virtual void setValueForKey(vexim::Value value, std::string_view key);
    vexim::Value objectForKey(std::string_view key) const;
    void setObjectForKey(vexim::Value object, std::string_view key);
    vexim::Value objectForKeyedSubscript(std::string_view key) const;
    void setObjectForKeyedSubscript(vexim::Value object, std::string_view key);

    // A place at any depth: keys, separated by dots.
    vexim::Value valueForKeyPath(std::string_view keyPath) const;
    void setValueForKeyPath(vexim::Value value, std::string_view keyPath);
    vexim::Value objectForKeyPath(std::string_view keyPath) const;
    /// Makes missing dictionaries on the way unless `object` is nil. Where something on the way is
    /// no dictionary, that stays, and NSUnknownKeyException is raised.
    void setObjectForKeyPath(vexim::Value object, std::string_view keyPath);

    // What the accessors of dynamic properties come down to.
    virtual vexim::Value valueForPropertyName(std::string_view property) const;
    virtual void setValueForPropertyName(vexim::Value value, std::string_view property);

    /// "<VXIMUser: 0x5580…> {id = u1; }"
    std::string description() const override;

    /// The proxy of the root class VXIMRuntimeObject, whatever the derived class.
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
