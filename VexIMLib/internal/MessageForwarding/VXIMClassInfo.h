#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/internal/MessageForwarding/VXIMPropertyInfo.h"

/// A cache of what forwarding knows about one concrete class. It only grows. Usable from any
/// thread.
class VXIMClassInfo final : public vexim::Object {
public:
    template <class T>
    using Map = std::unordered_map<std::string, T>;

    using Object::Object;
    static std::shared_ptr<VXIMClassInfo> subclassInfoWithClass(const vexim::Class& cls);
    bool initialise(const vexim::Class& cls);

    const vexim::Class& representClass() const noexcept { return *representClass_; }

    /// The record of the selector's property; nullptr if there is none. Failures are not cached. A
    /// custom accessor name is known only after the property was found by its plain name or its
    /// "setXxx:" form.
    std::shared_ptr<VXIMPropertyInfo> propertyInfoForSelector(vexim::Selector selector);
    /// "v@:q" for the setter of a `q` property, "q@:" for all its other selectors; nullptr if there
    /// is no property.
    std::shared_ptr<const vexim::MethodSignature> forwardMethodSignatureForSelector(
        vexim::Selector selector);

    // Copies of the caches, by selector text and by property name.
    Map<std::shared_ptr<const vexim::MethodSignature>> methodSignatures() const;
    Map<std::string> propertyNamesKeyedBySeletor() const;
    Map<std::shared_ptr<VXIMPropertyInfo>> propertyInfos() const;

private:
    const vexim::Class* representClass_ = nullptr;

    // Recursive: finding a signature looks up the record, and a log sink that is called meanwhile
    // may itself use a property.
    mutable std::recursive_mutex dataAccessLock_;  // guards the three caches
    Map<std::shared_ptr<const vexim::MethodSignature>> methodSignatures_;
    Map<std::string> propertyNamesKeyedBySeletor_;
    Map<std::shared_ptr<VXIMPropertyInfo>> propertyInfos_;
};
