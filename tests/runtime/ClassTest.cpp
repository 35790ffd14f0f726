#include "VexIMLib/Foundation/Runtime/Class.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <thread>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"

namespace vexim {
namespace {

const Class& animal() {
    static const Class& cls = Class::declare(
        "Animal", &Object::staticClass(), {{"name", "T@\"NSString\",C,D,N"}, {"legs", "Ti,D,N"}},
        {{"_tag", "q"}, {"_box", "{R=dddd}"}, {"_owner", "@"}});
    return cls;
}

const Class& bird() {
    static const Class& cls =
        Class::declare("Bird", &animal(), {{"legs", "Tq,R,D"}},
                       {{"_tag", "d"}, {"_song", "@"}, {"_place", "{P=ddd}"}});
    return cls;
}

TEST(Selector, IsOneForEachText) {
    EXPECT_EQ(Selector("setUid:"), Selector(std::string("setUid:")));
    EXPECT_NE(Selector("uid"), Selector("Uid"));
    EXPECT_NE(Selector(""), Selector());
    EXPECT_TRUE(Selector().isNull());
    EXPECT_EQ(Selector().text(), "");

    std::vector<Selector> seen(4);
    {
        std::vector<std::jthread> threads;
        for (Selector& one : seen)
            threads.emplace_back([&one] { one = Selector("madeOnFourThreadsAtOnce"); });
    }
    for (const Selector one : seen) EXPECT_EQ(one, seen.front());
}

TEST(Property, SplitsItsAttributes) {
    using List = std::vector<PropertyAttribute>;
    const std::pair<const char*, List> cases[] = {
        {"T@\"NSString\",&,D,N", {{"T", "@\"NSString\""}, {"&", ""}, {"D", ""}, {"N", ""}}},
        {"TB,GisOpen,SmakeOpen:,V_open",
         {{"T", "B"}, {"G", "isOpen"}, {"S", "makeOpen:"}, {"V", "_open"}}},
        {",,D,", {{"D", ""}}},
        {"", {}},
    };
    for (const auto& [attributes, list] : cases)
        EXPECT_EQ(Property("p", attributes).attributeList(), list) << attributes;
    EXPECT_EQ(Property("p", "TB,D").attributeValue("D"), "");
    EXPECT_EQ(Property("p", "TB,D").attributeValue("V"), std::nullopt);
}

TEST(Property, NamesItsSetter) {
    const std::pair<const char*, const char*> cases[] = {
        {"title", "setTitle:"}, {"URL", "setURL:"},  {"_x", "set_x:"},   {"x", "setX:"},
        {"état", "setÉtat:"},   {"ßig", "setSSig:"}, {"жук", "setЖук:"}, {"9lives", "set9lives:"},
        {"ẁ", "setẀ:"},         {"", "set:"},
    };
    for (const auto& [name, setter] : cases) EXPECT_EQ(Property::defaultSetterName(name), setter);
    EXPECT_EQ(Property::defaultSetterName("\xE1"), "set\xE1:")
        << "text that is cut short stays as it is";
}

TEST(Class, LooksUpwards) {
    EXPECT_TRUE(bird().isSubclassOf(bird()));
    EXPECT_TRUE(bird().isSubclassOf(Object::staticClass()));
    EXPECT_FALSE(animal().isSubclassOf(bird()));

    EXPECT_EQ(bird().property("name"), animal().property("name")) << "inherited";
    EXPECT_EQ(bird().property("legs")->attributes(), "Tq,R,D") << "declared anew";
    EXPECT_EQ(bird().property("wings"), nullptr);
    EXPECT_EQ(bird().instanceVariable("_owner"), animal().instanceVariable("_owner"));
    EXPECT_EQ(bird().instanceVariable("_tag")->typeEncoding(), "d");
}

TEST(Class, RefusesASecondOneOfTheSameName) {
    animal();
    try {
        Class::declare("Animal", nullptr);
        FAIL();
    } catch (const Exception& exception) {
        EXPECT_EQ(exception.name(), kInternalInconsistencyException);
    }
}

TEST(InstanceVariable, TakesSlotsOfSixteenBytesAfterTheInheritedOnes) {
    EXPECT_EQ(animal().instanceVariable("_tag")->offset(), 0u);
    EXPECT_EQ(animal().instanceVariable("_box")->offset(), 16u);
    EXPECT_EQ(animal().instanceVariable("_box")->slotCount(), 2u);
    EXPECT_EQ(animal().instanceVariable("_owner")->offset(), 48u);
    EXPECT_EQ(bird().instanceVariable("_tag")->offset(), 64u);
    EXPECT_EQ(bird().instanceVariable("_place")->slotCount(), 2u) << "a slot is used in part";
    EXPECT_EQ(bird().instanceSlotCount(), 8u);
}

struct Thing : Object {
    using Object::Object;
};

class InstanceStorageTest : public testing::Test {
protected:
    const InstanceVariable& variable(const char* name) { return *bird().instanceVariable(name); }

    InstanceStorage storage{bird()};
};

TEST_F(InstanceStorageTest, StartsAtZeroAndReleasesItsObjects) {
    EXPECT_TRUE(storage.object(variable("_song")).isNil());
    std::int64_t word = -1;
    storage.copyBytes(variable("_tag"), &word, sizeof word);
    EXPECT_EQ(word, 0);

    auto song = create<Thing>();
    const std::weak_ptr<Object> watch = song;
    {
        InstanceStorage another(bird());
        another.setObject(variable("_song"), song);
        another.setObject(variable("_owner"), song);
        another.setObject(variable("_song"), nullptr);
        song.reset();
        EXPECT_EQ(another.object(variable("_owner")).asObject(), watch.lock());
        EXPECT_FALSE(watch.expired());
    }
    EXPECT_TRUE(watch.expired());
}

// Declarations and properties may disagree about a type. Then values read as something else, but no
// memory is corrupted or leaked.
TEST_F(InstanceStorageTest, SurvivesTypesThatDisagree) {
    const std::weak_ptr<Object> watch = [this] {
        auto song = create<Thing>();
        storage.setObject(variable("_song"), song);
        return std::weak_ptr<Object>(song);
    }();
    const double number = 2.5;
    storage.setBytes(variable("_song"), &number, sizeof number);
    EXPECT_TRUE(watch.expired()) << "plain bytes replace an object";
    EXPECT_TRUE(storage.object(variable("_song")).isNil());
    double both[2] = {};
    storage.copyBytes(variable("_song"), both, sizeof both);
    EXPECT_EQ(both[0], number);
    EXPECT_EQ(both[1], 0) << "nothing of the object stays";

    storage.setObject(variable("_tag"), "a text that is too long to lie in place");
    EXPECT_EQ(storage.object(variable("_tag")).asString(),
              "a text that is too long to lie in place");

    unsigned char large[64];
    std::memset(large, 0xFF, sizeof large);
    storage.setBytes(variable("_box"), large, sizeof large);
    unsigned char back[64] = {};
    storage.copyBytes(variable("_owner"), back, sizeof back);
    EXPECT_EQ(back[0], 0) << "the neighbour is untouched";
    storage.setBytes(variable("_owner"), large, 1);
    storage.copyBytes(variable("_box"), back, sizeof back);
    EXPECT_EQ(std::memcmp(back, large, 32), 0);
    EXPECT_EQ(back[32], 0);
}

}  // namespace
}  // namespace vexim
