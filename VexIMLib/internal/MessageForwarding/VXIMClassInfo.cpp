#include "VexIMLib/internal/MessageForwarding/VXIMClassInfo.h"

using vexim::MethodSignature;
using vexim::Selector;

std::shared_ptr<VXIMClassInfo> VXIMClassInfo::subclassInfoWithClass(const vexim::Class& cls) {
    return vexim::create<VXIMClassInfo>(cls);
}

bool VXIMClassInfo::initialise(const vexim::Class& cls) {
    representClass_ = &cls;
    return true;
}

std::shared_ptr<VXIMPropertyInfo> VXIMClassInfo::propertyInfoForSelector(Selector selector) {
    const std::lock_guard lock(dataAccessLock_);
    if (const auto name = propertyNamesKeyedBySeletor_.find(selector.text());
        name != propertyNamesKeyedBySeletor_.end()) {
        if (const auto known = propertyInfos_.find(name->second); known != propertyInfos_.end())
            return known->second;
    }
    auto info = VXIMPropertyInfo::propertyInfoWithSelector(selector, *representClass_);
    if (!info) return nullptr;
    propertyNamesKeyedBySeletor_[selector.text()] = info->name();
    for (const Selector accessor : {info->setterSelector(), info->getterSelector()}) {
        if (!accessor.isNull()) propertyNamesKeyedBySeletor_[accessor.text()] = info->name();
    }
    propertyInfos_[info->name()] = info;
    return info;
}

std::shared_ptr<const MethodSignature> VXIMClassInfo::forwardMethodSignatureForSelector(
    Selector selector) {
    const std::lock_guard lock(dataAccessLock_);
    if (const auto known = methodSignatures_.find(selector.text());
        known != methodSignatures_.end())
        return known->second;
    const auto info = propertyInfoForSelector(selector);
    if (!info) return nullptr;
    std::string type = info->typeEncoding().value_or("(null)");  // as nil is printed
    // signatures know objects, not their classes
    if (type.starts_with('@')) type = "@";
    const bool isSetter = info->setterSelector() == selector;
    auto signature = MethodSignature::signatureWithObjCTypes(isSetter ? "v@:" + type : type + "@:");
    methodSignatures_[selector.text()] = signature;
    return signature;
}

VXIMClassInfo::Map<std::shared_ptr<const MethodSignature>> VXIMClassInfo::methodSignatures() const {
    const std::lock_guard lock(dataAccessLock_);
    return methodSignatures_;
}

VXIMClassInfo::Map<std::string> VXIMClassInfo::propertyNamesKeyedBySeletor() const {
    const std::lock_guard lock(dataAccessLock_);
    return propertyNamesKeyedBySeletor_;
}

VXIMClassInfo::Map<std::shared_ptr<VXIMPropertyInfo>> VXIMClassInfo::propertyInfos() const {
    const std::lock_guard lock(dataAccessLock_);
    return propertyInfos_;
}
