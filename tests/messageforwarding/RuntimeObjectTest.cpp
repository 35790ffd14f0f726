#include "VexIMLib/VXIMRuntimeObject.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/Foundation/Runtime/Class.h"

namespace {

using vexim::Array;
using vexim::Class;
using vexim::Dictionary;
using vexim::Value;

/// Its "pid" is stored under "id" and its "name" among the attributes. It needs at least one entry.
struct Traveller : VXIMRuntimeObject {
    using VXIMRuntimeObject::VXIMRuntimeObject;

    static const Class& staticClass() {
        static const Class& cls =
            Class::declare("Traveller", &VXIMRuntimeObject::staticClass(),
                           {{"pid", "T@\"NSString\",&,D,N"}, {"name", "T@\"NSString\",&,D,N"}});
        return cls;
    }
    const Class& runtimeClass() const override { return staticClass(); }
    bool initialise(Dictionary dictionary) override {
        return !dictionary.empty() && VXIMRuntimeObject::initialise(std::move(dictionary));
    }
    std::string_view keyPathForProperty(std::string_view property) const override {
        if (property == "pid") return "id";
        if (property == "name") return "attributes.name";
        return VXIMRuntimeObject::keyPathForProperty(property);
    }
};

class RuntimeObject : public testing::Test {
protected:
    std::shared_ptr<VXIMRuntimeObject> object = VXIMRuntimeObject::init();
};

TEST_F(RuntimeObject, IsMadeOfADictionaryWhoseKeysAreTakenAsTheyStand) {
    EXPECT_TRUE(object->dictionaryRepresentation().empty());
    const auto made =
        VXIMRuntimeObject::initWithDictionary({{"a.b", 1}, {"a", Dictionary{{"b", 2}}}});
    EXPECT_EQ(made->objectForKey("a.b"), 1);
    EXPECT_EQ(made->objectForKeyPath("a.b"), 2);
    EXPECT_EQ(made->dictionaryRepresentation().keys(), (std::vector<std::string>{"a.b", "a"}))
        << "in the dictionary's order";
    EXPECT_EQ(vexim::create<Traveller>(Dictionary{}), nullptr) << "a derived class may refuse";
}

TEST_F(RuntimeObject, TellsKeysFromKeyPathsWhereverTheDotStands) {
    for (std::size_t length = 0; length <= 18; ++length) {
        for (std::size_t at = 0; at <= length; ++at) {
            const std::string path = std::string(at, '/') + '.' + std::string(length - at, 'k');
            object->setValueForPropertyName(Value(length), path);
            EXPECT_EQ(object->objectForKeyPath(path), Value(length)) << path;
            EXPECT_EQ(object->valueForPropertyName(path), Value(length)) << path;
            EXPECT_TRUE(object->objectForKey(path).isNil()) << path;
        }
        const std::string key(length, '/');
        object->setValueForPropertyName("whole", key);
        EXPECT_EQ(object->objectForKey(key), "whole") << key;
        EXPECT_EQ(object->valueForPropertyName(key), "whole") << key;
        object->setValueForPropertyName(nullptr, key);
        EXPECT_TRUE(object->dataStore().find(key) == nullptr) << key;
    }
}

TEST_F(RuntimeObject, ReadsKeyPaths) {
    object->addEntriesFromDictionary({{"text", "x"},
                                      {"null", Value::null()},
                                      {"list", Array{Dictionary{{"b", 1}}}},
                                      {"a", Dictionary{{"b", Dictionary{{"c", 7}}}, {"", 8}}},
                                      {"", 9}});
    const std::pair<const char*, Value> cases[] = {
        {"text", "x"},
        {"a.b.c", 7},
        {"a.", 8},
        {"", 9},
        {".", nullptr},
        {"a.x.c", nullptr},
        {"a.b.c.d", nullptr},
        {"text.b", nullptr},
        {"list.b", nullptr},
        {"null.b", nullptr},
    };
    for (const auto& [path, value] : cases) EXPECT_EQ(object->valueForKeyPath(path), value) << path;
}

TEST_F(RuntimeObject, WritesKeyPaths) {
    const struct {
        const char* why;
        Dictionary before;
        const char* path;
        Value value;
        Dictionary after;
    } cases[] = {
        {"a path without a dot", {}, "a", 1, {{"a", 1}}},
        {"missing dictionaries are made",
         {},
         "a.b.c",
         1,
         {{"a", Dictionary{{"b", Dictionary{{"c", 1}}}}}}},
        {"neighbours stay",
         {{"a", Dictionary{{"x", 1}}}},
         "a.b",
         2,
         {{"a", Dictionary{{"x", 1}, {"b", 2}}}}},
        {"a dictionary at the end is replaced",
         {{"a", Dictionary{{"x", 1}}}},
         "a",
         Dictionary(),
         {{"a", Dictionary()}}},
        {"null is a value", {}, "a.b", Value::null(), {{"a", Dictionary{{"b", Value::null()}}}}},
        {"nil makes nothing", {}, "a.b", nullptr, {}},
        {"nil makes nothing further down",
         {{"a", Dictionary()}},
         "a.b.c",
         nullptr,
         {{"a", Dictionary()}}},
        {"nil removes, and leaves the dictionary",
         {{"a", Dictionary{{"b", 1}}}},
         "a.b",
         nullptr,
         {{"a", Dictionary()}}},
        {"nil removes a dictionary", {{"a", Dictionary{{"b", 1}}}}, "a", nullptr, {}},
        {"an empty component is a key", {}, "a.", 1, {{"a", Dictionary{{"", 1}}}}},
    };
    for (const auto& [why, before, path, value, after] : cases) {
        const auto made = VXIMRuntimeObject::initWithDictionary(before);
        made->setValueForKeyPath(value, path);
        EXPECT_EQ(made->dictionaryRepresentation(), after) << why;
    }
}

TEST_F(RuntimeObject, RaisesWhereAPathMeetsNoDictionaryAndChangesNothing) {
    const struct {
        Value inTheWay;
        const char* className;
    } cases[] = {
        {"text", "__NSCFString"},  {5, "__NSCFNumber"},
        {0.5, "__NSCFNumber"},     {true, "__NSCFBoolean"},
        {Value::null(), "NSNull"}, {vexim::Data("x"), "NSConcreteData"},
        {Array{1}, "__NSArrayM"},  {object, "VXIMRuntimeObject"},
    };
    for (const auto& [inTheWay, className] : cases) {
        for (const auto& [path, value] : {std::pair<const char*, Value>{"a.b.name", 1},
                                          {"a.b.name", nullptr},
                                          {"a.b.x.name", 1}}) {
            SCOPED_TRACE(className);
            const Dictionary before{{"a", Dictionary{{"b", inTheWay}}}};
            const auto made = VXIMRuntimeObject::initWithDictionary(before);
            try {
                made->setObjectForKeyPath(value, path);
                ADD_FAILURE() << "nothing raised";
            } catch (const vexim::Exception& exception) {
                EXPECT_EQ(exception.name(), "NSUnknownKeyException");
                EXPECT_EQ(exception.reason().find("[<" + std::string(className) + " 0x"), 0u)
                    << exception.reason();
                EXPECT_NE(
                    exception.reason().find(
                        "> setValue:forUndefinedKey:]: this class is not key value coding-compliant for "
                        "the key name."),
                    std::string::npos);
            }
            EXPECT_EQ(made->dictionaryRepresentation(), before);
        }
    }
}

TEST_F(RuntimeObject, NeverChangesWhatWasReadBefore) {
    const Dictionary given{{"attributes", Dictionary{{"name", "first"}}}};
    object->addEntriesFromDictionary(given);
    const Dictionary earlier = object->dictionaryRepresentation();
    const Value nested = object->objectForKey("attributes");
    object->setObjectForKeyPath("second", "attributes.name");
    EXPECT_EQ(object->objectForKeyPath("attributes.name"), "second");
    EXPECT_EQ(earlier, given);
    EXPECT_EQ(nested.get("name"), "first");
}

TEST_F(RuntimeObject, TellsObserversOfSetValueForKeyAlone) {
    const auto observer = std::make_shared<int>();
    std::vector<std::string> heard;
    for (const char* key : {"k", "a.b"}) {
        object->addObserver(observer, key,
                            [&heard](vexim::Object&, const vexim::KeyValueChange& change) {
                                heard.push_back(change.key + "=" + change.newValue.description());
                            });
    }
    object->setObjectForKey(1, "k");
    object->setObjectForKeyedSubscript(2, "k");
    object->setValueForKeyPath(3, "k");
    object->setValueForPropertyName(4, "k");
    EXPECT_TRUE(heard.empty());
    object->setValueForKey(5, "k");
    object->addEntriesFromDictionary({{"a.b", 6}});
    object->setValueForKey(nullptr, "k");
    EXPECT_EQ(heard, (std::vector<std::string>{"k=5", "a.b=6", "k=(null)"}));
    EXPECT_TRUE(object->objectForKeyedSubscript("k").isNil());

    Dictionary entries{{"k", 7}, {"l", 8}};
    object->addObserver(observer, "k", [&entries](vexim::Object&, const vexim::KeyValueChange&) {
        entries.set("l", 9);  // too late
    });
    object->addEntriesFromDictionary(entries);
    EXPECT_EQ(object->objectForKey("l"), 8);
}

TEST_F(RuntimeObject, TellsPropertiesFromKeys) {
    const auto traveller =
        vexim::create<Traveller>(Dictionary{{"id", "p1"}, {"name", "a store's key"}});
    EXPECT_EQ(traveller->perform("pid"), "p1");
    EXPECT_TRUE(traveller->valueForKey("pid").isNil());
    EXPECT_EQ(traveller->valueForKey("id"), "p1");
    EXPECT_TRUE(traveller->perform("name").isNil());
    traveller->perform("setName:", {"Nils"});
    EXPECT_EQ(traveller->dictionaryRepresentation(),
              (Dictionary{{"id", "p1"},
                          {"name", "a store's key"},
                          {"attributes", Dictionary{{"name", "Nils"}}}}));
    EXPECT_FALSE(traveller->respondsToSelector("pid"));
    EXPECT_TRUE(traveller->respondsToSelector("description"));
    EXPECT_EQ(traveller->perform("description"),
              traveller->Object::description() + " " +
                  traveller->dictionaryRepresentation().description());
}

TEST_F(RuntimeObject, UnderstandsItsOwnOperationsByName) {
    const auto traveller = vexim::create<Traveller>(Dictionary{{"id", "p1"}});
    traveller->perform("setValue:forPropertyName:", {"Nils", "name"});
    traveller->perform("setObject:forKeyPath:", {7, "a.b"});
    traveller->perform("addEntriesFromDictionary:", {Dictionary{{"c", 8}}});
    traveller->perform("setObject:forKey:", {nullptr, "id"});
    EXPECT_EQ(
        traveller->perform("dictionaryRepresentation"),
        (Dictionary{
            {"attributes", Dictionary{{"name", "Nils"}}}, {"a", Dictionary{{"b", 7}}}, {"c", 8}}));
    EXPECT_EQ(traveller->perform("keyPathForProperty:", {"name"}), "attributes.name");
    EXPECT_EQ(traveller->perform("objectForKeyPath:", {"a.b"}), 7);
    EXPECT_TRUE(traveller->respondsToSelector("valueForKey:"));
}

}  // namespace
