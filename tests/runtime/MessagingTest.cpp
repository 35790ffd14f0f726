#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <string>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Runtime/Class.h"
#include "support/Raised.h"

namespace vexim {
namespace {

using testing::raised;

using Rectangle = std::array<double, 8>;

/// A class with its own methods, and one message that it only forwards.
struct Adder : Object {
    using Object::Object;
    std::int64_t sum = 0;

    static const Class& staticClass() {
        static const Class& cls = Class::declare(
            "Adder", &Object::staticClass(), {}, {},
            {{"add:and:", "v@:qi",
              [](Object& self, Invocation& invocation) {
                  std::int64_t wide;
                  std::int32_t narrow;
                  invocation.getArgument(&wide, 2);
                  invocation.getArgument(&narrow, 3);
                  static_cast<Adder&>(self).sum += wide + narrow;
              }},
             {"echo:", "@@:@",
              [](Object&, Invocation& invocation) {
                  Value value;
                  invocation.getArgument(&value, 2);
                  invocation.setReturnValue(&value);
              }},
             {"mirror:", "{R=dddddddd}@:{R=dddddddd}", [](Object&, Invocation& invocation) {
                  Rectangle rectangle;
                  invocation.getArgument(&rectangle, 2);
                  std::swap(rectangle.front(), rectangle.back());
                  invocation.setReturnValue(&rectangle);
              }}});
        return cls;
    }
    const Class& runtimeClass() const override { return staticClass(); }

    std::shared_ptr<const MethodSignature> methodSignatureForSelector(
        Selector selector) const override {
        if (selector == Selector("answer")) return MethodSignature::signatureWithObjCTypes("q@:");
        return Object::methodSignatureForSelector(selector);
    }
    void forwardInvocation(Invocation& invocation) override {
        const std::int64_t answer = 42;
        invocation.setReturnValue(&answer);
    }
};

class Messaging : public ::testing::Test {
protected:
    std::shared_ptr<Adder> adder = create<Adder>();
};

TEST_F(Messaging, FindsMethodsFirstAndForwardsWhatHasASignatureOnly) {
    adder->perform("add:and:", {40, 2.9});
    EXPECT_EQ(adder->sum, 42);
    adder->perform("add:and:", {Value::null()});
    EXPECT_EQ(adder->sum, 42) << "null and what is missing are 0";
    EXPECT_EQ(adder->perform("description"), adder->description()) << "inherited";
    EXPECT_EQ(adder->perform("answer"), 42);
    EXPECT_TRUE(adder->respondsToSelector("add:and:"));
    EXPECT_FALSE(adder->respondsToSelector("answer"));
}

TEST_F(Messaging, PassesObjectsThrough) {
    const Value text = "a text that is too long to lie in place";
    EXPECT_EQ(adder->perform("echo:", {text}), text);
    EXPECT_EQ(adder->perform("echo:", {adder}).asObject(), adder);
    EXPECT_TRUE(adder->perform("echo:").isNil()) << "a missing argument is nil";
    EXPECT_EQ(adder->perform("echo:", {1, 2, 3}), 1) << "those beyond the signature are ignored";
    EXPECT_EQ(adder.use_count(), 1) << "the invocation lets go of its arguments";
}

TEST_F(Messaging, RaisesAsThePlatformDoes) {
    const std::string instance =
        adder->description().substr(std::string("<Adder: ").size(), std::string::npos);
    EXPECT_EQ(raised([&] { adder->perform("foo"); }),
              "NSInvalidArgumentException: -[Adder foo]: unrecognized selector sent to instance " +
                  instance.substr(0, instance.size() - 1));
    EXPECT_NE(raised([&] {
                  adder->perform("add:and:", {"1", 2});
              }),
              "nothing")
        << "text is no number";
    EXPECT_NE(raised([&] { adder->perform("mirror:", {1}); }), "nothing")
        << "a structure cannot be passed boxed";
    EXPECT_NE(raised([&] { adder->perform("mirror:"); }), "nothing") << "nor returned";
    const auto signature = MethodSignature::signatureWithObjCTypes("q@:");
    Invocation unknown(signature, *adder, "foo");
    EXPECT_NE(raised([&] { unknown.invoke(); }), "nothing") << "nor is it forwarded";
    EXPECT_NE(raised([&] { Invocation(nullptr, *adder, "answer"); }), "nothing");
}

TEST_F(Messaging, CarriesStructuresThatAreLargerThanItsOwnBuffer) {
    const auto signature = adder->methodSignatureForSelector("mirror:");
    Invocation invocation(signature, *adder, "mirror:");
    Rectangle rectangle{1, 2, 3, 4, 5, 6, 7, 8};
    invocation.setArgument(&rectangle, 2);
    invocation.invoke();
    invocation.getReturnValue(&rectangle);
    EXPECT_EQ(rectangle, (Rectangle{8, 2, 3, 4, 5, 6, 7, 1}));
}

TEST_F(Messaging, RefusesAnInvocationOfOtherTypesThanTheMethods) {
    const auto other = MethodSignature::signatureWithObjCTypes("@@:c");
    Invocation invocation(other, *adder, "echo:");
    EXPECT_NE(raised([&] { invocation.invoke(); }), "nothing");
    char c = 0;
    for (const std::size_t index : {0u, 1u, 3u}) {
        EXPECT_NE(raised([&] { invocation.setArgument(&c, index); }), "nothing") << index;
    }
}

}  // namespace
}  // namespace vexim
