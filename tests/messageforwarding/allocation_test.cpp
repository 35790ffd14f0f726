// Counts what the program takes from the heap, to hold readers of dynamic properties to their promise.

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <new>

#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/internal/MessageForwarding/DynamicProperty.h"

namespace {
thread_local std::int64_t allocations = 0;
}

// Kept out of line: inlined, GCC takes the pair for a mismatched one.
[[gnu::noinline]] void* operator new(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size)) return memory;
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace {

using vexim::Class;
using vexim::Dictionary;

struct Meter : VXIMRuntimeObject {
    using VXIMRuntimeObject::VXIMRuntimeObject;

    static const Class& staticClass() {
        static const Class& cls =
            Class::declare("Meter", &VXIMRuntimeObject::staticClass(), {{"reading", "Tq,D,N"}, {"shared", "Tq,D"}});
        return cls;
    }
    const Class& runtimeClass() const override { return staticClass(); }
    std::string_view keyPathForProperty(std::string_view) const override {
        return "a key that is too long to lie in place.nested.value";
    }
};

TEST(DynamicProperty, AllocatesNothingInAGet) {
    static constinit const vexim::DynamicProperty<std::int64_t> reading{&Meter::staticClass, "reading"};
    static constinit const vexim::DynamicProperty<std::int64_t> shared{&Meter::staticClass, "shared"};
    const auto meter = vexim::create<Meter>(Dictionary{});
    reading.set(*meter, 7);
    EXPECT_EQ(reading.get(*meter) + shared.get(*meter), 14) << "the first get finds the way";
    const std::int64_t before = allocations;
    EXPECT_EQ(reading.get(*meter) + shared.get(*meter), 14);
    EXPECT_EQ(allocations, before);
}

}  // namespace
