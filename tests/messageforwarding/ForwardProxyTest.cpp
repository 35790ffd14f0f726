#include "VexIMLib/internal/MessageForwarding/VXIMMessageForwardProxy.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/VXIMRuntimeObject.h"
#include "support/LogCapture.h"
#include "support/Race.h"
#include "support/Raised.h"

namespace {

using vexim::Class;
using vexim::Dictionary;
using vexim::Exception;
using vexim::Invocation;
using vexim::MethodSignature;
using vexim::Value;
using vexim::testing::LogCapture;
using vexim::testing::raised;

/// Has a property for each type and each kind of access.
struct Sample : VXIMRuntimeObject {
    using VXIMRuntimeObject::VXIMRuntimeObject;

    static const Class& staticClass() {
        static const Class& cls = Class::declare("Sample", &VXIMRuntimeObject::staticClass(),
                                                 {{"asChar", "Tc,D,N"},
                                                  {"asUnsignedChar", "TC,D,N"},
                                                  {"asBool", "TB,D,N"},
                                                  {"asShort", "Ts,D,N"},
                                                  {"asUnsignedShort", "TS,D,N"},
                                                  {"asInt", "Ti,D,N"},
                                                  {"asUnsignedInt", "TI,D,N"},
                                                  {"asLong", "Tl,D,N"},
                                                  {"asUnsignedLong", "TL,D,N"},
                                                  {"asLongLong", "Tq,D,N"},
                                                  {"asUnsignedLongLong", "TQ,D,N"},
                                                  {"asFloat", "Tf,D,N"},
                                                  {"asDouble", "Td,D,N"},
                                                  {"asLongDouble", "TD,D,N"},
                                                  {"text", "T@\"NSString\",&,D,N"},
                                                  {"copied", "T@,C,D,N"},
                                                  {"kept", "T@,&,D,N"},
                                                  {"frame", "T{CGSize=dd},D,N"},
                                                  {"kind", "T#,D,N"},
                                                  {"action", "T:,D,N"},
                                                  {"name", "T*,D,N"},
                                                  {"pointer", "T^v,D,N"},
                                                  {"row", "T[4i],D,N"},
                                                  {"choice", "T(U=iq),D,N"},
                                                  {"bits", "Tb3,D,N"},
                                                  {"untyped", "D,N"},
                                                  {"size", "Tq,R,D,N"},
                                                  {"open", "TB,GisOpen,D,N"},
                                                  {"guarded", "Tq,D"},
                                                  {"other", "Tq,D"},
                                                  {"sturdy", "T@,C,D"}});
        return cls;
    }
    const Class& runtimeClass() const override { return staticClass(); }
    std::string_view keyPathForProperty(std::string_view property) const override {
        if (property == "guarded") return "counters.guarded";
        return VXIMRuntimeObject::keyPathForProperty(property);
    }
    static std::shared_ptr<Sample> initWithDictionary(Dictionary dictionary) {
        return vexim::create<Sample>(std::move(dictionary));
    }
};

class ForwardProxy : public testing::Test {
protected:
    std::shared_ptr<Sample> sample = Sample::initWithDictionary({});
    std::shared_ptr<VXIMMessageForwardProxy> proxy = VXIMRuntimeObject::messageForwardProxy();
};

TEST_F(ForwardProxy, BoxesAndUnboxesEachScalar) {
    const struct {
        const char* property;
        Value set;
        Value stored;
    } cases[] = {
        {"asChar", 200, -56},
        {"asUnsignedChar", -1, 255},
        {"asBool", 7, true},
        {"asShort", 40000, -25536},
        {"asUnsignedShort", -1, 65535},
        {"asInt", std::int64_t{1} << 31, std::int64_t{-2147483648}},
        {"asUnsignedInt", -1, 4294967295},
        {"asLong", std::numeric_limits<long>::max(), std::numeric_limits<long>::max()},
        {"asUnsignedLong", -1, std::numeric_limits<unsigned long>::max()},
        {"asLongLong", INT64_MIN, INT64_MIN},
        {"asUnsignedLongLong", 5, 5},
        {"asFloat", 0.1, static_cast<double>(0.1F)},
        {"asDouble", 0.1, 0.1},
        {"asLongDouble", 0.1, 0.1},
    };
    for (const auto& [property, set, stored] : cases) {
        SCOPED_TRACE(property);
        sample->perform(vexim::Property::defaultSetterName(property), {set});
        EXPECT_EQ(sample->objectForKey(property), stored);
        EXPECT_EQ(sample->perform(property), stored);
    }
}

TEST_F(ForwardProxy, ReadsAbsentAndNullAsZero) {
    for (const char* property : {"asChar", "asBool", "asInt", "asLongLong", "asUnsignedLongLong",
                                 "asFloat", "asDouble", "asLongDouble", "text"}) {
        sample->setObjectForKey(nullptr, property);
        const Value absent = sample->perform(property);
        sample->setObjectForKey(Value::null(), property);
        EXPECT_EQ(sample->perform(property), absent) << property;
        EXPECT_TRUE(absent.isNil() || absent.description() == "0") << property;
    }
    std::array<double, 2> frame{1, 2};
    Invocation invocation(sample->methodSignatureForSelector("frame"), *sample, "frame");
    invocation.setReturnValue(&frame);
    invocation.invoke();
    invocation.getReturnValue(&frame);
    EXPECT_EQ(frame, (std::array<double, 2>{})) << "a structure too";
}

TEST_F(ForwardProxy, RefusesTypesAndValuesInTheirOwnWords) {
    sample->addEntriesFromDictionary({{"asInt", "5"},
                                      {"asBool", vexim::Array()},
                                      {"frame", 5},
                                      {"kind", 5},
                                      {"bits", "5"},
                                      {"untyped", true},
                                      {"text", 5}});
    const std::pair<const char*, const char*> cases[] = {
        {"asInt", "NSInternalInconsistencyException: Unsupported type encoding: i"},
        {"asBool", "NSInternalInconsistencyException: Unsupported type encoding: B"},
        {"frame", "NSInternalInconsistencyException: Unsupported type encoding {CGSize=dd}!"},
        {"kind", "NSInternalInconsistencyException: Unsupported type encoding #!"},
        {"bits", "NSInternalInconsistencyException: Unsupported type encoding: b3"},
        {"untyped", "NSInternalInconsistencyException: Unsupported type encoding (null)!"},
        {"text", "nothing"},
        {"setFrame:", "NSInternalInconsistencyException: Unsupported type encoding {CGSize=dd}!"},
        {"setKind:", "NSInternalInconsistencyException: Unsupported type encoding #!"},
        {"setAction:", "NSInternalInconsistencyException: Unsupported type encoding :!"},
        {"setName:", "NSInternalInconsistencyException: Unsupported type encoding *!"},
        {"setPointer:", "NSInternalInconsistencyException: Unsupported type encoding ^v!"},
        {"setRow:", "NSInternalInconsistencyException: Unsupported type encoding [4i]!"},
        {"setChoice:", "NSInternalInconsistencyException: Unsupported type encoding (U=iq)!"},
        {"setBits:", "NSInternalInconsistencyException: Unsupported type encoding b3!"},
    };
    for (const auto& [selector, exception] : cases)
        EXPECT_EQ(raised([&] { sample->perform(selector); }), exception) << selector;
    EXPECT_EQ(sample->perform("text"), 5) << "an object is returned whatever its class";
}

TEST_F(ForwardProxy, RefusesAWrongNumberOfArguments) {
    const auto wide = MethodSignature::signatureWithObjCTypes("v@:qq");
    const auto none = MethodSignature::signatureWithObjCTypes("v@:");
    const auto getter = MethodSignature::signatureWithObjCTypes("q@:q");
    const std::tuple<const MethodSignature&, const char*, const char*> cases[] = {
        {*wide, "setAsInt:", "NSInvalidArgumentException: Setter should only take 1 argument."},
        {*none, "setAsInt:", "NSInvalidArgumentException: Setter should only take 1 argument."},
        {*getter, "asInt", "NSInvalidArgumentException: Getter should take no argument."},
        {*getter, "setSize:", "NSInvalidArgumentException: Getter should take no argument."},
    };
    for (const auto& [signature, selector, exception] : cases) {
        Invocation invocation(signature, *sample, selector);
        EXPECT_EQ(raised([&] { proxy->proxyForwardInvocation(invocation); }), exception);
    }
}

TEST_F(ForwardProxy, ServesTheSetterFormOfAReadOnlyPropertyAsAGetter) {
    sample->setObjectForKey(7, "size");
    EXPECT_EQ(sample->perform("setSize:", {100}), 7) << "the argument is ignored";
    EXPECT_EQ(sample->objectForKey("size"), 7);
}

TEST_F(ForwardProxy, LearnsACustomNameWithThePlainOne) {
    static int run = 0;  // each run needs a class that nobody has used yet
    static const Class* cls = nullptr;
    const std::string name = "FreshSample" + std::to_string(++run);
    cls = &Class::declare(name, &Sample::staticClass());
    struct FreshSample : Sample {
        using Sample::Sample;
        const Class& runtimeClass() const override { return *cls; }
    };
    auto fresh = vexim::create<FreshSample>(Dictionary{{"open", true}});
    EXPECT_NE(raised([&] {
                  fresh->perform("isOpen");
              }).find("-[" + name + " isOpen]: unrecognized selector"),
              std::string::npos);
    EXPECT_EQ(fresh->perform("open"), true);
    EXPECT_EQ(fresh->perform("isOpen"), true);
}

struct Copyable : vexim::Object {
    using Object::Object;
    std::shared_ptr<Object> copy() const override { return vexim::create<Copyable>(); }
};

TEST_F(ForwardProxy, CopiesOnlyWhereThePolicySaysSo) {
    const auto object = vexim::create<Copyable>();
    sample->perform("setKept:", {object});
    EXPECT_EQ(sample->objectForKey("kept").asObject(), object);
    sample->perform("setCopied:", {object});
    EXPECT_NE(sample->objectForKey("copied").asObject(), object);
    EXPECT_TRUE(sample->objectForKey("copied").as<Copyable>());

    Dictionary mine{{"a", 1}};
    sample->perform("setCopied:", {mine});
    mine.set("a", 2);
    EXPECT_EQ(sample->perform("copied").get("a"), 1);
    sample->perform("setCopied:", {nullptr});
    EXPECT_FALSE(sample->dictionaryRepresentation().contains("copied"))
        << "nil stays nil and removes the key";
}

TEST_F(ForwardProxy, LeavesTheLockOfAnAtomicPropertyHeldAfterAnException) {
    static const Class& cls = Class::declare("StuckSample", &Sample::staticClass());
    struct StuckSample : Sample {
        using Sample::Sample;
        const Class& runtimeClass() const override { return cls; }
    };
    auto stuck = vexim::create<StuckSample>(Dictionary{{"other", "text"}, {"counters", "text"}});
    auto& other =
        proxy->subclassInfoForSubclass(cls)->propertyInfoForSelector("other")->valueAccesslock();
    auto& guarded =
        proxy->subclassInfoForSubclass(cls)->propertyInfoForSelector("guarded")->valueAccesslock();

    EXPECT_NE(raised([&] { stuck->perform("other"); }), "nothing");
    EXPECT_FALSE(other.tryLock());
    stuck->perform("setAsInt:", {1});
    EXPECT_EQ(stuck->perform("guarded"), 0) << "another property's lock is its own";
    other.unlock();
    EXPECT_NE(raised([&] { stuck->perform("setGuarded:", {1}); }), "nothing")
        << "the store's exception too";
    EXPECT_FALSE(guarded.tryLock());
    guarded.unlock();

    stuck->setObjectForKey(3, "other");
    EXPECT_EQ(stuck->perform("other"), 3);
    EXPECT_TRUE(other.tryLock()) << "an access without an exception lets go";
    other.unlock();
}

TEST_F(ForwardProxy, SerialisesAnAtomicProperty) {
    constexpr int kRounds = 2000;
    {
        std::jthread writer([this] {
            for (int i = 1; i <= kRounds; ++i) sample->perform("setOther:", {i});
        });
        std::jthread reader([this] {
            std::int64_t last = 0;
            for (int i = 0; i < kRounds; ++i) {
                const std::int64_t now = sample->perform("other").integer();
                EXPECT_GE(now, last);
                last = now;
            }
        });
    }
    EXPECT_EQ(sample->perform("other"), kRounds);
}

struct Backed : VXIMRuntimeObject {
    using VXIMRuntimeObject::VXIMRuntimeObject;

    static const Class& staticClass() {
        static const Class& base = Class::declare("BackedByBase", &VXIMRuntimeObject::staticClass(),
                                                  {{"inherited", "Ti,N,V_kept"}}, {{"_kept", "i"}});
        static const Class& cls = Class::declare("BackedSample", &base,
                                                 {{"inherited", "Ti,D,N"},
                                                  {"title", "T@,C,D,N"},
                                                  {"wide", "TD,D,N"},
                                                  {"frame", "T{CGRect=dddd},D,N"},
                                                  {"plain", "Tq,D,N"},
                                                  {"clash", "Tq,D,N"},
                                                  {"first", "Tq,D"},
                                                  {"second", "Tq,D"}},
                                                 {{"_title", "@"},
                                                  {"_wide", "D"},
                                                  {"_frame", "{CGRect=dddd}"},
                                                  {"_clash", "@"},
                                                  {"_first", "q"},
                                                  {"_second", "q"}});
        return cls;
    }
    const Class& runtimeClass() const override { return staticClass(); }
};

class BackedProxy : public testing::Test {
protected:
    LogCapture log;  // drops the warnings, which another test checks
    std::shared_ptr<Backed> backed =
        vexim::create<Backed>(Dictionary{{"title", "in the store"}, {"inherited", 1}});
};

TEST_F(BackedProxy, KeepsValuesInTheInstanceVariableInsteadOfTheStore) {
    EXPECT_TRUE(backed->perform("title").isNil());
    EXPECT_EQ(backed->perform("inherited"), 0);
    backed->perform("setTitle:", {"in the object"});
    backed->perform("setInherited:", {-5});
    backed->perform("setPlain:", {6});
    EXPECT_EQ(backed->perform("title"), "in the object");
    EXPECT_EQ(backed->perform("inherited"), -5);
    EXPECT_EQ(backed->dictionaryRepresentation(),
              (Dictionary{{"title", "in the store"}, {"inherited", 1}, {"plain", 6}}));

    const auto object = vexim::create<Copyable>();
    backed->perform("setTitle:", {object});
    EXPECT_NE(backed->perform("title").asObject(), object) << "the copy policy holds here too";
    backed->perform("setTitle:", {Value::null()});
    EXPECT_TRUE(backed->perform("title").isNull()) << "only the store's null reads as nil";
    backed->perform("setTitle:", {nullptr});
    EXPECT_TRUE(backed->perform("title").isNil());
}

TEST_F(BackedProxy, ReadsOneWordOfWhatIsStoredWhole) {
    const std::array<double, 4> frame{1, 2, 3, 4};
    Invocation set(backed->methodSignatureForSelector("setFrame:"), *backed, "setFrame:");
    set.setArgument(&frame, 2);
    set.invoke();
    Invocation get(backed->methodSignatureForSelector("frame"), *backed, "frame");
    std::array<double, 4> back{9, 9, 9, 9};
    get.setReturnValue(&back);
    get.invoke();
    get.getReturnValue(&back);
    EXPECT_EQ(back, (std::array<double, 4>{1, 0, 0, 0}));

    backed->perform("setWide:", {1.0});
    EXPECT_EQ(backed->perform("wide") == Value(1.0), sizeof(long double) == sizeof(double))
        << "a long double loses its exponent";
    backed->perform("setClash:", {5});
    EXPECT_EQ(backed->perform("clash"), 5) << "no type is checked";
}

// Two atomic properties have separate locks, so their first accesses may make the object's storage
// at the same time.
TEST_F(BackedProxy, MakesItsStorageOnceAcrossThreads) {
    std::vector<std::shared_ptr<Backed>> objects(200);
    for (auto& object : objects) object = vexim::create<Backed>(Dictionary{});
    const auto writing = [&](const char* setter, int value) {
        return [&objects, setter, value](int i) {
            objects[static_cast<std::size_t>(i)]->perform(setter, {value});
        };
    };
    vexim::testing::race(200, writing("setFirst:", 1), writing("setSecond:", 2));
    for (const auto& object : objects) {
        ASSERT_EQ(object->perform("first"), 1);
        ASSERT_EQ(object->perform("second"), 2);
    }
}

TEST(ForwardProxyRegistry, KeepsOneProxyForEachRootClass) {
    static const Class& root = Class::declare("OtherRoot", &VXIMRuntimeObject::staticClass());
    const auto first = VXIMMessageForwardProxy::proxyForRootClass(root);
    EXPECT_EQ(VXIMMessageForwardProxy::proxyForRootClass(root), first);
    EXPECT_NE(VXIMRuntimeObject::messageForwardProxy(), first);
    VXIMMessageForwardProxy::addProxy(nullptr);
    const auto second = VXIMMessageForwardProxy::initWithRootClass(root);
    VXIMMessageForwardProxy::addProxy(second);
    EXPECT_EQ(VXIMMessageForwardProxy::proxyForRootClass(root), second)
        << "a later one replaces an earlier";

    EXPECT_EQ(second->subclassInfoForSubclass(Sample::staticClass()), nullptr)
        << "not derived from its root";
    EXPECT_EQ(second->methodSignatureForSelector("asInt", Sample::staticClass()), nullptr);
    ASSERT_NE(second->subclassInfoForSubclass(root), nullptr) << "a class is its own subclass";
    EXPECT_EQ(second->subclassInfoForSubclass(root), second->subclassInfoForSubclass(root));
}

TEST_F(ForwardProxy, InvokesWhatIsNotItsOwnAsItIs) {
    static const Class& root = Class::declare("ElsewhereRoot", &VXIMRuntimeObject::staticClass());
    const auto elsewhere = VXIMMessageForwardProxy::proxyForRootClass(root);
    sample->setObjectForKey(3, "asLongLong");
    Invocation foreign(sample->methodSignatureForSelector("asLongLong"), *sample, "asLongLong");
    elsewhere->proxyForwardInvocation(foreign);
    std::int64_t result = 0;
    foreign.getReturnValue(&result);
    EXPECT_EQ(result, 3);

    Invocation unknown(MethodSignature::signatureWithObjCTypes("q@:"), *sample, "foo");
    EXPECT_NE(raised([&] {
                  proxy->proxyForwardInvocation(unknown);
              }).find("-[Sample foo]: unrecognized selector"),
              std::string::npos);
}

}  // namespace
