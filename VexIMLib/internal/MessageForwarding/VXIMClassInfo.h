#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/internal/MessageForwarding/VXIMPropertyInfo.h"

/// What forwarding has found out about one concrete class. It only grows. Usable from any thread.
class VXIMClassInfo final : public vexim::Object {
public:
    template <class T>
    using Map = std::unordered_map<std::string, T>;

    using Object::Object;
    static std::shared_ptr<VXIMClassInfo> subclassInfoWithClass(const vexim::Class& cls);
    bool initialise(const vexim::Class& cls);

    const vexim::Class& representClass() const noexcept { return *representClass_; }

    /// The record of the property that the selector belongs to, nullptr when there is none. A
    /// failure is not remembered. An accessor's custom name is known only after the property was
    /// reached by its plain name or its "setXxx:" form.
    std::shared_ptr<VXIMPropertyInfo> propertyInfoForSelector(vexim::Selector selector);
    /// "v@:q" for the setter of a `q` property, "q@:" for everything else that leads to it; nullptr
    /// without a property.
    std::shared_ptr<const vexim::MethodSignature> forwardMethodSignatureForSelector(
        vexim::Selector selector);

    // Copies of the caches, by selector text and by property name.
    Map<std::shared_ptr<const vexim::MethodSignature>> methodSignatures() const;
    Map<std::string> propertyNamesKeyedBySeletor() const;
    Map<std::shared_ptr<VXIMPropertyInfo>> propertyInfos() const;

private:
    const vexim::Class* representClass_ = nullptr;

    // Recursive: finding a signature asks for the record, and a log sink that hears of a record may
    // use a property itself.
    mutable std::recursive_mutex dataAccessLock_;  // guards the three caches
    Map<std::shared_ptr<const vexim::MethodSignature>> methodSignatures_;
    Map<std::string> propertyNamesKeyedBySeletor_;
    Map<std::shared_ptr<VXIMPropertyInfo>> propertyInfos_;
};
