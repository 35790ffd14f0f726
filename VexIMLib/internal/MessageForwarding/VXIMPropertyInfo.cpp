#include "VexIMLib/internal/MessageForwarding/VXIMPropertyInfo.h"

#include <utility>

#include "VexIMLib/Foundation/Log.h"
#include "VexIMLib/VXIMPropertyNameFromSelector.h"

using vexim::Class;
using vexim::Property;
using vexim::Selector;

std::shared_ptr<VXIMPropertyInfo> VXIMPropertyInfo::propertyInfoWithSelector(Selector selector,
                                                                             const Class& cls) {
    return initWithClass(cls, VXIMPropertyNameFromSelector(cls, selector));
}

std::shared_ptr<VXIMPropertyInfo> VXIMPropertyInfo::initWithClass(
    const Class& cls, const std::optional<std::string>& name) {
    return vexim::create<VXIMPropertyInfo>(cls, name);
}

VXIMPropertyInfo::~VXIMPropertyInfo() { delete valueAccesslock_.load(std::memory_order_acquire); }

bool VXIMPropertyInfo::initialise(const Class& cls, const std::optional<std::string>& name) {
    const Property* property = name ? cls.property(*name) : nullptr;
    if (!property) return false;
    cls_ = &cls;
    name_ = *name;
    readAttributes(*property);
    if (!isDynamic_) return false;

    if (!setterName_ && !isReadOnly_) setterName_ = Property::defaultSetterName(name_);
    if (setterName_) setterSelector_ = Selector(*setterName_);
    getterSelector_ = Selector(getterName_.value_or(name_));
    findInstanceVariable();
    return true;
}

void VXIMPropertyInfo::readAttributes(const Property& property) {
    for (const auto& [letter, value] : property.attributeList()) {
        switch (letter.front()) {
            case 'C': associationPolicy_ = AssociationPolicy::Copy; break;
            case '&': associationPolicy_ = AssociationPolicy::Strong; break;
            case 'W': associationPolicy_ = AssociationPolicy::Weak; break;
            case 'D': isDynamic_ = true; break;
            case 'R': isReadOnly_ = true; break;
            case 'N': isAtomic_ = false; break;
            case 'G': getterName_ = value; break;
            case 'S': setterName_ = value; break;
            case 'V': ivarName_ = value; break;
            case 'T': typeEncoding_ = value; break;
            default:
                vexim::log(vexim::LogLevel::Warning,
                           "VXIMRuntimeObject: unsupported property attribute: " + letter);
        }
    }
}

// The first one found counts: the variable that the property names, the one of a superclass's
// property of that name, then the two usual names in the class itself.
void VXIMPropertyInfo::findInstanceVariable() {
    if (takeInstanceVariable(*cls_, ivarName_)) return;
    for (const Class* owner = cls_->superclass(); owner; owner = owner->superclass()) {
        const Property* property = owner->property(name_);
        if (property && takeInstanceVariable(*owner, property->attributeValue("V"))) return;
    }
    if (takeInstanceVariable(*cls_, "_" + name_)) return;
    takeInstanceVariable(*cls_, name_);
}

bool VXIMPropertyInfo::takeInstanceVariable(const Class& owner,
                                            const std::optional<std::string>& variable) {
    ivar_ = variable ? owner.instanceVariable(*variable) : nullptr;
    if (!ivar_) return false;
    vexim::log(vexim::LogLevel::Warning, "Warning: Value will be stored in ivar, because ivar `" +
                                             ivar_->name() + "` decleared for property `" + name_ +
                                             "` was found on class `" + owner.name() + "`.");
    return true;
}

VXIMNamedLock& VXIMPropertyInfo::valueAccesslock() const {
    if (auto* lock = valueAccesslock_.load(std::memory_order_acquire)) return *lock;
    vexim::MutexLock creation(valueAccesslockCreation_);
    auto* lock = valueAccesslock_.load(std::memory_order_relaxed);
    if (!lock) {
        lock = new VXIMNamedLock("com.vexora.clouddata.object.subclass." + cls_->name() + "." +
                                 name_ + ".valueAccessLock");
        valueAccesslock_.store(lock, std::memory_order_release);
    }
    return *lock;
}
