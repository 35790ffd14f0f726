#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {

class Class;

/// A declared instance variable. It lives in the object's storage, in slots of 16 bytes; a type
/// that is larger takes several.
class VEXIM_EXPORT InstanceVariable {
public:
    /// In bytes.
    static constexpr std::size_t kSlotSize = 16;

    // As declared.
    const std::string& name() const noexcept { return name_; }
    const std::string& typeEncoding() const noexcept { return typeEncoding_; }

    /// Where it starts in the object's storage, in bytes; a multiple of the slot size.
    std::size_t offset() const noexcept { return firstSlot_ * kSlotSize; }
    /// How many slots it takes.
    std::size_t slotCount() const noexcept { return slotCount_; }

private:
    friend class Class;
    friend class InstanceStorage;
    InstanceVariable(std::string name, std::string typeEncoding, std::size_t firstSlot);

    std::string name_;
    std::string typeEncoding_;
    std::size_t firstSlot_;
    std::size_t slotCount_;
};

/// The instance variables of one object, all zero at first. It trusts no declaration: each slot
/// remembers whether an object or plain bytes were stored last, and no write leaves the variable's
/// own slots. Different variables may be used from different threads; one variable is its user's to
/// guard.
class VEXIM_EXPORT InstanceStorage {
public:
    /// For one object of `cls`, with the variables of its superclasses.
    explicit InstanceStorage(const Class& cls);
    InstanceStorage(const InstanceStorage&) = delete;
    InstanceStorage& operator=(const InstanceStorage&) = delete;
    ~InstanceStorage();

    /// The object stored last; nil when there is none or plain bytes lie there.
    Value object(const InstanceVariable& variable) const;
    void setObject(const InstanceVariable& variable, Value object);
    /// Copies at most `size` bytes out of the variable's slots.
    void copyBytes(const InstanceVariable& variable, void* bytes, std::size_t size) const;
    /// Copies at most `size` bytes into the variable's slots.
    void setBytes(const InstanceVariable& variable, const void* bytes, std::size_t size);

private:
    struct alignas(InstanceVariable::kSlotSize) Slot {
        std::byte bytes[InstanceVariable::kSlotSize];
    };
    Value* objectAt(std::size_t slot) const;
    void dropObject(std::size_t slot);

    std::size_t slotCount_;
    std::unique_ptr<Slot[]> slots_;
    std::unique_ptr<bool[]> holdsObject_;  // by slot
};

}  // namespace vexim
