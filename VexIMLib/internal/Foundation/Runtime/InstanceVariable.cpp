#include "VexIMLib/Foundation/Runtime/InstanceVariable.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/Foundation/Runtime/TypeEncoding.h"

namespace vexim {

static_assert(sizeof(Value) <= InstanceVariable::kSlotSize &&
              alignof(Value) <= InstanceVariable::kSlotSize);

InstanceVariable::InstanceVariable(std::string name, std::string typeEncoding,
                                   std::size_t firstSlot)
    : name_(std::move(name)),
      typeEncoding_(std::move(typeEncoding)),
      firstSlot_(firstSlot),
      slotCount_(
          std::max<std::size_t>(1, (readType(typeEncoding_).size + kSlotSize - 1) / kSlotSize)) {}

InstanceStorage::InstanceStorage(const Class& cls)
    : slotCount_(cls.instanceSlotCount()),
      slots_(std::make_unique<Slot[]>(slotCount_)),
      holdsObject_(std::make_unique<bool[]>(slotCount_)) {}

InstanceStorage::~InstanceStorage() {
    for (std::size_t index = 0; index < slotCount_; ++index) dropObject(index);
}

Value* InstanceStorage::objectAt(std::size_t slot) const {
    return holdsObject_[slot] ? std::launder(reinterpret_cast<Value*>(slots_[slot].bytes))
                              : nullptr;
}

void InstanceStorage::dropObject(std::size_t slot) {
    if (Value* held = objectAt(slot)) {
        std::destroy_at(held);
        std::memset(slots_[slot].bytes, 0, sizeof slots_[slot].bytes);
        holdsObject_[slot] = false;
    }
}

Value InstanceStorage::object(const InstanceVariable& variable) const {
    const Value* held = objectAt(variable.firstSlot_);
    return held ? *held : Value();
}

void InstanceStorage::setObject(const InstanceVariable& variable, Value object) {
    dropObject(variable.firstSlot_);
    new (slots_[variable.firstSlot_].bytes) Value(std::move(object));
    holdsObject_[variable.firstSlot_] = true;
}

void InstanceStorage::copyBytes(const InstanceVariable& variable, void* bytes,
                                std::size_t size) const {
    std::memcpy(bytes, &slots_[variable.firstSlot_],
                std::min(size, variable.slotCount_ * InstanceVariable::kSlotSize));
}

void InstanceStorage::setBytes(const InstanceVariable& variable, const void* bytes,
                               std::size_t size) {
    dropObject(variable.firstSlot_);
    std::memcpy(&slots_[variable.firstSlot_], bytes,
                std::min(size, variable.slotCount_ * InstanceVariable::kSlotSize));
}

}  // namespace vexim
