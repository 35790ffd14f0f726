#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {

class Class;

/// A declared instance variable. It is stored in the object, in slots of 16 bytes; a larger type
/// takes several slots. `Class::declare` makes it, and it lives as long as its class: until the
/// process ends. Any thread may read it.
class VEXIM_EXPORT InstanceVariable {
public:
    /// The size of a slot in bytes: enough for a `Value` and for every number.
    static constexpr std::size_t kSlotSize = 16;

    // As declared: the name, which often begins with an underscore, and the type, see
    // TypeEncoding.h.
    const std::string& name() const noexcept { return name_; }
    const std::string& typeEncoding() const noexcept { return typeEncoding_; }

    /// Its offset in the object's storage, in bytes; a multiple of the slot size.
    std::size_t offset() const noexcept { return firstSlot_ * kSlotSize; }
    /// How many slots it takes.
    std::size_t slotCount() const noexcept { return slotCount_; }

private:
    friend class Class;
    friend class InstanceStorage;
    InstanceVariable(std::string name, std::string typeEncoding, std::size_t firstSlot);

    std::string name_;
    std::string typeEncoding_;
    std::size_t firstSlot_;  // after those of the superclasses
    std::size_t slotCount_;  // at least 1
};

/// The instance variables of one object, all zero at first. Wrong declarations do no harm: each
/// slot remembers whether an object or plain bytes were stored last, and a write stays in the
/// variable's slots. Different variables may be used from different threads; protect each one
/// yourself.
///
///     vexim::InstanceStorage storage(Song::staticClass());
///     const vexim::InstanceVariable* title = Song::staticClass().instanceVariable("_title");
///     storage.setObject(*title, "Yesterday");
class VEXIM_EXPORT InstanceStorage {
public:
    /// Storage for one object of `cls`, including the variables of its superclasses. Its size never
    /// changes, as a class never gets new variables.
    explicit InstanceStorage(const Class& cls);
    InstanceStorage(const InstanceStorage&) = delete;
    InstanceStorage& operator=(const InstanceStorage&) = delete;
    ~InstanceStorage();

    /// The stored object; nil if there is none or plain bytes were stored last.
    Value object(const InstanceVariable& variable) const;
    /// Stores an object or any other value, and releases what was there. nil stores nothing.
    void setObject(const InstanceVariable& variable, Value object);
    /// Copies at most `size` bytes out of the variable's slots. `bytes` must have room for `size`.
    /// A variable that was never set gives zeros.
    ///
    ///     std::int64_t seconds = 0;
    ///     storage.copyBytes(*length, &seconds, sizeof seconds);
    void copyBytes(const InstanceVariable& variable, void* bytes, std::size_t size) const;
    /// Copies at most `size` bytes into the variable's slots. An object that was there is released.
    void setBytes(const InstanceVariable& variable, const void* bytes, std::size_t size);

private:
    /// Room for any value, suitably aligned.
    struct alignas(InstanceVariable::kSlotSize) Slot {
        std::byte bytes[InstanceVariable::kSlotSize];
    };
    /// The object in a slot; nullptr if plain bytes are there.
    Value* objectAt(std::size_t slot) const;
    /// Releases the object in a slot, if there is one, and zeroes the slot.
    void dropObject(std::size_t slot);

    std::size_t slotCount_;
    // in the order of declaration, superclasses first
    std::unique_ptr<Slot[]> slots_;
    std::unique_ptr<bool[]> holdsObject_;  // by slot
};

}  // namespace vexim
