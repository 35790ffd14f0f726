#include "VexIMLib/internal/MessageForwarding/DynamicProperty.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Runtime/Class.h"

namespace {

using vexim::Class;
using vexim::Dictionary;
using vexim::DynamicProperty;
using vexim::Value;

struct Account : VXIMRuntimeObject {
    using VXIMRuntimeObject::VXIMRuntimeObject;

    static const Class& staticClass() {
        static const Class& cls = Class::declare("Account", &VXIMRuntimeObject::staticClass(),
                                                 {{"uid", "T@\"NSString\",&,D,N"},
                                                  {"count", "Tq,D,N"},
                                                  {"level", "Ti,D,N"},
                                                  {"online", "TB,GisOnline,D,N"},
                                                  {"ratio", "Td,D,N"},
                                                  {"total", "TQ,D"},
                                                  {"attributes", "T@\"NSDictionary\",&,D,N"},
                                                  {"tags", "T@\"NSArray\",&,D,N"},
                                                  {"fixed", "Tq,R,D,N"},
                                                  {"settings", "Tq,D,N"}});
        return cls;
    }
    const Class& runtimeClass() const override { return staticClass(); }
    std::string_view keyPathForProperty(std::string_view property) const override {
        return property == "uid" ? "id" : VXIMRuntimeObject::keyPathForProperty(property);
    }
};

/// Computes "count", and stores "level" under another key path.
struct NestedAccount : Account {
    using Account::Account;

    static const Class& staticClass() {
        static const Class& cls =
            Class::declare("NestedAccount", &Account::staticClass(), {}, {},
                           {{"count", "q@:", [](vexim::Object&, vexim::Invocation& invocation) {
                                 const std::int64_t computed = 99;
                                 invocation.setReturnValue(&computed);
                             }}});
        return cls;
    }
    const Class& runtimeClass() const override { return staticClass(); }
    std::string_view keyPathForProperty(std::string_view property) const override {
        return property == "level" ? "nested.level" : Account::keyPathForProperty(property);
    }
};

constinit const DynamicProperty<std::optional<std::string>> kUid{&Account::staticClass, "uid"};
constinit const DynamicProperty<std::int64_t> kCount{&Account::staticClass, "count"};
constinit const DynamicProperty<std::int32_t> kLevel{&Account::staticClass, "level"};
constinit const DynamicProperty<bool> kOnline{&Account::staticClass, "online"};
constinit const DynamicProperty<double> kRatio{&Account::staticClass, "ratio"};
constinit const DynamicProperty<std::uint64_t> kTotal{&Account::staticClass, "total"};
constinit const DynamicProperty<std::optional<Dictionary>> kAttributes{&Account::staticClass,
                                                                       "attributes"};
constinit const DynamicProperty<std::optional<vexim::Array>> kTags{&Account::staticClass, "tags"};
constinit const DynamicProperty<Value> kAnyUid{&Account::staticClass, "uid"};
constinit const DynamicProperty<std::int64_t> kFixed{&Account::staticClass, "fixed"};

template <class F>
std::string raised(F&& call) {
    try {
        call();
    } catch (const vexim::Exception& exception) {
        return exception.name();
    }
    return "nothing";
}

TEST(DynamicProperty, ReadsAndWritesTheStoreInItsOwnType) {
    const auto account = vexim::create<Account>(Dictionary{});
    EXPECT_EQ(kUid.get(*account), std::nullopt);
    kUid.set(*account, "u1");
    kCount.set(*account, std::numeric_limits<std::int64_t>::min());
    kLevel.set(*account, -3);
    kRatio.set(*account, 0.25);
    kTotal.set(*account, std::numeric_limits<std::uint64_t>::max());
    kAttributes.set(*account, Dictionary{{"a", 1}});
    kTags.set(*account, vexim::Array{"x"});
    EXPECT_EQ(account->dictionaryRepresentation(),
              (Dictionary{{"id", "u1"},
                          {"count", std::numeric_limits<std::int64_t>::min()},
                          {"level", -3},
                          {"ratio", 0.25},
                          {"total", std::numeric_limits<std::uint64_t>::max()},
                          {"attributes", Dictionary{{"a", 1}}},
                          {"tags", vexim::Array{"x"}}}));
    EXPECT_EQ(kUid.get(*account), "u1");
    EXPECT_EQ(kCount.get(*account), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(kLevel.get(*account), -3);
    EXPECT_EQ(kRatio.get(*account), 0.25);
    EXPECT_EQ(kTotal.get(*account), std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(kAttributes.get(*account), (Dictionary{{"a", 1}}));
    EXPECT_EQ(kTags.get(*account), vexim::Array{"x"});
    kUid.set(*account, std::nullopt);
    EXPECT_FALSE(account->dictionaryRepresentation().contains("id"));
}

TEST(DynamicProperty, ConvertsNoObjects) {
    const auto account = vexim::create<Account>(
        Dictionary{{"id", 5}, {"attributes", "x"}, {"tags", Value::null()}, {"level", "5"}});
    EXPECT_EQ(kUid.get(*account), std::nullopt);
    EXPECT_EQ(kAnyUid.get(*account), 5);
    EXPECT_EQ(kAttributes.get(*account), std::nullopt);
    EXPECT_EQ(kTags.get(*account), std::nullopt);
    EXPECT_EQ(raised([&] { kLevel.get(*account); }), "NSInternalInconsistencyException");
}

TEST(DynamicProperty, FollowsTheConcreteClass) {
    const auto account = vexim::create<Account>(Dictionary{{"count", 1}, {"level", 2}});
    const auto nested = vexim::create<NestedAccount>(
        Dictionary{{"count", 1}, {"nested", Dictionary{{"level", 3}}}});
    for (int again = 0; again < 2; ++again) {
        EXPECT_EQ(kCount.get(*account), 1);
        EXPECT_EQ(kCount.get(*nested), 99) << "a method goes before forwarding";
        EXPECT_EQ(kLevel.get(*account), 2);
        EXPECT_EQ(kLevel.get(*nested), 3);
    }
    kCount.set(*nested, 7);
    EXPECT_EQ(nested->objectForKey("count"), 7) << "the setter is still dynamic";
}

TEST(DynamicProperty, SendsTheMessagesThatACompilerWould) {
    static int run = 0;  // each has a class that nobody has used yet
    static const Class* cls = nullptr;
    cls = &Class::declare("FreshAccount" + std::to_string(++run), &Account::staticClass());
    struct FreshAccount : Account {
        using Account::Account;
        const Class& runtimeClass() const override { return *cls; }
    };
    const auto account = vexim::create<FreshAccount>(Dictionary{{"online", true}, {"fixed", 4}});
    EXPECT_EQ(raised([&] { kOnline.get(*account); }), "NSInvalidArgumentException")
        << "isOnline is not known yet";
    kOnline.set(*account, true);
    EXPECT_TRUE(kOnline.get(*account)) << "it is since the property was reached";
    kFixed.set(*account, 5);
    EXPECT_EQ(kFixed.get(*account), 4) << "the setter's form of a read-only property reads";

    static constinit const DynamicProperty<std::int64_t> settings{&Account::staticClass,
                                                                  "settings"};
    EXPECT_EQ(raised([&] { settings.get(*account); }), "NSInvalidArgumentException")
        << "a getter that begins with set leads nowhere";
    static constinit const DynamicProperty<std::int64_t> missing{&Account::staticClass, "missing"};
    EXPECT_EQ(raised([&] { missing.set(*account, 1); }), "NSInvalidArgumentException");
    static constinit const DynamicProperty<std::int64_t> wrong{&Account::staticClass, "level"};
    EXPECT_EQ(raised([&] { wrong.get(*account); }), "NSInternalInconsistencyException")
        << "declared with another type";
}

TEST(DynamicProperty, IsFoundOutOnceByManyThreads) {
    static constinit const DynamicProperty<std::uint64_t> total{&Account::staticClass, "total"};
    const auto shared = vexim::create<Account>(Dictionary{});
    {
        std::vector<std::jthread> threads;
        for (std::uint64_t i = 0; i < 4; ++i) {
            threads.emplace_back([&shared, i] {
                for (int round = 0; round < 500; ++round) {
                    total.set(*shared, i);  // atomic: one object, many threads
                    EXPECT_LT(total.get(*shared), 4u);
                    const auto mine = vexim::create<NestedAccount>(Dictionary{{"total", i}});
                    EXPECT_EQ(total.get(*mine), i);
                }
            });
        }
    }
    EXPECT_LT(total.get(*shared), 4u);
}

}  // namespace
