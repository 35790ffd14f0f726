// Counts heap allocations, because reading a dynamic property must not allocate.

#include <gtest/gtest.h>

#include "VexIMLib/Foundation/Runtime/Class.h"
#include "VexIMLib/internal/MessageForwarding/DynamicProperty.h"
#include "support/CountedHeap.h"

namespace {

using vexim::Class;
using vexim::Dictionary;

struct Meter : VXIMRuntimeObject {
    using VXIMRuntimeObject::VXIMRuntimeObject;

    static const Class& staticClass() {
        static const Class& cls = Class::declare("Meter", &VXIMRuntimeObject::staticClass(),
                                                 {{"reading", "Tq,D,N"}, {"shared", "Tq,D"}});
        return cls;
    }
    const Class& runtimeClass() const override { return staticClass(); }
    std::string_view keyPathForProperty(std::string_view) const override {
        return "a key that is too long to lie in place.nested.value";
    }
};

struct SecondMeter final : Meter {
    using Meter::Meter;
    const Class& runtimeClass() const override {
        static const Class& cls = Class::declare("SecondMeter", &Meter::staticClass());
        return cls;
    }
};

TEST(DynamicProperty, AllocatesNothingInAGet) {
    static constinit const vexim::DynamicProperty<std::int64_t> reading{&Meter::staticClass,
                                                                        "reading"};
    static constinit const vexim::DynamicProperty<std::int64_t> shared{&Meter::staticClass,
                                                                       "shared"};
    const std::shared_ptr<Meter> meters[] = {vexim::create<Meter>(Dictionary{}),
                                             vexim::create<SecondMeter>(Dictionary{})};
    std::int64_t before = 0;
    for (int again = 0; again < 2; ++again) {  // each class caches its look-up in the first round
        before = vexim::testing::heapAllocations();
        for (const auto& meter : meters) {
            if (again == 0) reading.set(*meter, 7);
            EXPECT_EQ(reading.get(*meter) + shared.get(*meter), 14);
        }
    }
    EXPECT_EQ(vexim::testing::heapAllocations(), before);
}

}  // namespace
