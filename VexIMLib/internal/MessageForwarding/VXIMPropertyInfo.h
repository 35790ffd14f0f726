#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

/// A lock with a name, to help when debugging a deadlock. It is not recursive.
class VXIMNamedLock {
public:
    explicit VXIMNamedLock(std::string name) : name_(std::move(name)) {}
    const std::string& name() const noexcept { return name_; }
    void lock() { mutex_.lock(); }
    bool tryLock() { return mutex_.try_lock(); }
    void unlock() { mutex_.unlock(); }

private:
    const std::string name_;
    std::mutex mutex_;
};

/// The record of one dynamic property of one concrete class. Immutable; usable from any thread.
class VXIMPropertyInfo final : public vexim::Object {
public:
    enum class AssociationPolicy : std::int64_t { Assign = 1, Weak = 2, Strong = 3, Copy = 4 };

    using Object::Object;
    ~VXIMPropertyInfo() override;
    /// nullptr if the selector belongs to no property, or to one that is not dynamic.
    static std::shared_ptr<VXIMPropertyInfo> propertyInfoWithSelector(vexim::Selector selector,
                                                                      const vexim::Class& cls);
    /// nullptr if the class has no such dynamic property, or for nullopt.
    static std::shared_ptr<VXIMPropertyInfo> initWithClass(const vexim::Class& cls,
                                                           const std::optional<std::string>& name);
    bool initialise(const vexim::Class& cls, const std::optional<std::string>& name);

    /// The concrete class, which may have inherited the property.
    const vexim::Class& cls() const noexcept { return *cls_; }
    const std::string& name() const noexcept { return name_; }
    /// nullopt when the property declares none.
    const std::optional<std::string>& typeEncoding() const noexcept { return typeEncoding_; }
    /// The instance variable that holds the value; nullptr means the store.
    const vexim::InstanceVariable* ivar() const noexcept { return ivar_; }
    bool isAtomic() const noexcept { return isAtomic_; }
    /// Only Copy makes a difference; in all other cases the value is held strongly.
    AssociationPolicy associationPolicy() const noexcept { return associationPolicy_; }
    /// Null for a read-only property without a custom setter.
    vexim::Selector setterSelector() const noexcept { return setterSelector_; }
    vexim::Selector getterSelector() const noexcept { return getterSelector_; }

    /// Serialises accesses to an atomic property, for all objects of the class. Made on the first
    /// call.
    VXIMNamedLock& valueAccesslock() const;

private:
    void readAttributes(const vexim::Property& property);
    void findInstanceVariable();
    bool takeInstanceVariable(const vexim::Class& owner,
                              const std::optional<std::string>& variable);

    const vexim::Class* cls_ = nullptr;
    std::string name_;
    std::optional<std::string> typeEncoding_;
    const vexim::InstanceVariable* ivar_ = nullptr;
    bool isAtomic_ = true;
    bool isDynamic_ = false;
    bool isReadOnly_ = false;
    AssociationPolicy associationPolicy_ = AssociationPolicy::Assign;
    std::optional<std::string> getterName_;
    std::optional<std::string> setterName_;
    std::optional<std::string> ivarName_;
    vexim::Selector setterSelector_;
    vexim::Selector getterSelector_;

    mutable vexim::Mutex valueAccesslockCreation_;
    mutable std::atomic<VXIMNamedLock*> valueAccesslock_{nullptr};  // owned; set once
};
