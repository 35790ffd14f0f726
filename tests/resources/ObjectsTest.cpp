#include <gtest/gtest.h>

#include <string>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/VexIMLib.h"
#include "VexIMLib/internal/Resources/ResourceErrors.h"
#include "support/Describe.h"

using namespace vexim::testing;

namespace {

TEST(Resources, RefuseRecordsThatNameNobody) {
    EXPECT_EQ(VXIMUser::initWithDictionary(dictionaryFrom(R"({"name":"x"})")), nullptr);
    EXPECT_EQ(VXIMRoom::roomWithDictionary(dictionaryFrom(R"({"name":"x"})")), nullptr);
    EXPECT_EQ(VXIMGroup::groupWithDictionary({}), nullptr);
    EXPECT_EQ(json(VXIMGroup::groupWithDictionary(dictionaryFrom(R"({"name":"x"})"))->groupId()),
              "nil");
    EXPECT_NE(VXIMUser::userWithId("u1"), VXIMUser::userWithId("u1"));
}

TEST(Resources, ReadTheirRecordsThroughTheirKeyPaths) {
    auto user = VXIMUser::initWithDictionary(dictionaryFrom(
        R"({"id":"u1","sessions":3,"online":true,"ts":1450000000000,"attributes":{"a":1}})"));
    EXPECT_EQ(json(user->uid()), "\"u1\"");
    EXPECT_EQ(user->sessionCount(), 3);
    EXPECT_TRUE(user->online());
    EXPECT_EQ(user->updatedAt().timeIntervalSince1970(), 1450000000);
    EXPECT_EQ(json(user->attributes()), R"({"a":1})");
    EXPECT_EQ(VXIMUser::userWithId("u1")->updatedAt(), vexim::Date());

    auto group = VXIMGroup::groupWithDictionary(dictionaryFrom(
        R"({"id":"g1","name":"top","attributes":{"name":"nested"},"recent":{"content":{"body":"hi"}}})"));
    EXPECT_EQ(json(group->name()), "\"nested\"");
    group->setName("changed");
    EXPECT_EQ(json(group->dictionaryRepresentation().get("attributes")), R"({"name":"changed"})");
    EXPECT_EQ(group->recentMessage()->text(), "hi");
    EXPECT_NE(group->recentMessage(), group->recentMessage());
    EXPECT_FALSE(VXIMGroup::groupWithId("g2")->recentMessage());

    auto room = VXIMRoom::roomWithDictionary(
        dictionaryFrom(R"({"id":"r1","name":"top","ts":1450000000123})"));
    EXPECT_EQ(json(room->name()), "\"top\"");
    EXPECT_EQ(room->createTs(), 1450000000.123);
    EXPECT_EQ(json(room->members()), "nil");

    auto passenger = VXIMPassenger::passengerWithId("p1");
    EXPECT_EQ(json(passenger->pid()), "\"p1\"");
    EXPECT_EQ(json(passenger->valueForKey("pid")), "nil");
    EXPECT_EQ(json(passenger->dictionaryRepresentation()), R"({"id":"p1"})");
}

TEST(Resources, AGroupAlwaysHasAMemberList) {
    auto group = VXIMGroup::groupWithName("Team", std::nullopt, nullptr);
    EXPECT_EQ(json(group->dictionaryRepresentation()), R"({"name":"Team"})");
    EXPECT_EQ(json(group->name()), "nil") << "the creation form holds the name elsewhere";
    EXPECT_EQ(json(group->members()), "[]");
    EXPECT_EQ(json(VXIMGroup::groupWithDictionary(
                       vexim::Dictionary{{"id", "g"}, {"members", vexim::Value::null()}})
                       ->members()),
              "[]")
        << "null is missing";
    EXPECT_EQ(json(group->dictionaryRepresentation()), R"({"name":"Team","members":[]})");
}

TEST(Resources, MergeAttributesLocally) {
    const struct {
        const char* why;
        const char* record;
        const char* merged;
    } cases[] = {
        {"entries given win", R"({"id":"r1","attributes":{"a":0,"b":2}})", R"({"a":1,"b":2})"},
        {"none yet", R"({"id":"r1"})", R"({"a":1})"},
        {"null is none", R"({"id":"r1","attributes":null})", R"({"a":1})"},
        {"text is none", R"({"id":"r1","attributes":"x"})", R"({"a":1})"},
    };
    for (const auto& c : cases) {
        auto room = VXIMRoom::roomWithDictionary(dictionaryFrom(c.record));
        room->addAttrsFromDictionary({{"a", 1}});
        EXPECT_EQ(json(room->attributes()), c.merged) << c.why;
    }
}

TEST(Resources, KeyPathsOverWhatIsNoDictionary) {
    auto group =
        VXIMGroup::groupWithDictionary(dictionaryFrom(R"({"id":"g1","attributes":"text"})"));
    EXPECT_EQ(json(group->name()), "nil");
    EXPECT_THROW(group->setName("x"), vexim::Exception);
}

TEST(Resources, MakeErrorsThatSayWhatAnApplicationNeeds) {
    using namespace vexim;
    const auto cause = [](const char* reason) {
        return Error::make("D", 1, Dictionary{{kLocalizedFailureReasonKey, reason}});
    };
    const Exception raised(kInvalidArgumentException, "the reason");
    const std::pair<ErrorPtr, const char*> cases[] = {
        {errors::disconnected(), "Message cannot send when connection disconnected"},
        {errors::notTaken(cause("it is too long")), "Message cannot send: it is too long."},
        {errors::connectionLost(nullptr), "The connection was lost."},
        {errors::connectionLost("ping timeout"), "The connection was lost: ping timeout."},
        {errors::connectionLost("It is over."), "The connection was lost: It is over."},
        {errors::unusableAnswer(raised),
         "The service's answer cannot be used: NSInvalidArgumentException: the reason"},
        {errors::unsendable(raised), "Message cannot send: NSInvalidArgumentException: the reason"},
    };
    for (const auto& [error, words] : cases) EXPECT_EQ(error->localizedDescription(), words);
    EXPECT_TRUE(errors::disconnected()->info(kTemporaryKey).boolValue());
    const auto kept = cause("it is too long");
    EXPECT_EQ(errors::notTaken(kept)->underlyingError(), kept);
}

class Visitor : public VXIMPassenger {
public:
    using VXIMPassenger::VXIMPassenger;
};

TEST(Passenger, IsOfTheReceivingClass) {
    std::shared_ptr<Visitor> visitor = VXIMPassenger::passengerWithId<Visitor>("p1");
    EXPECT_EQ(json(visitor->pid()), "\"p1\"");
}

TEST(Query, CombinesItsParameters) {
    using Build = void (*)(VXIMQuery&);
    const struct {
        const char* why;
        Build build;
        const char* params;
    } cases[] = {
        {"a new one", [](VXIMQuery&) {}, R"({"_limit":"20","_skip":"0"})"},
        {"a condition", [](VXIMQuery& q) { q.whereAttribute("gender", "f"); },
         R"({"gender":"f","_limit":"20","_skip":"0"})"},
        {"the last condition of an attribute counts, nil removes it",
         [](VXIMQuery& q) {
             q.whereAttribute("a", "1");
             q.whereAttribute("a", "2");
             q.whereAttribute("b", "3");
             q.whereAttribute("b", nullptr);
         },
         R"({"a":"2","_limit":"20","_skip":"0"})"},
        {"sort keys add up",
         [](VXIMQuery& q) {
             q.orderByAscending("name");
             q.addDescendingOrder("age");
         },
         R"({"_sort":"name,-age","_limit":"20","_skip":"0"})"},
        {"and are forgotten",
         [](VXIMQuery& q) {
             q.orderByAscending("name");
             q.addDescendingOrder("age");
             q.orderByDescending("x");
         },
         R"({"_sort":"-x","_limit":"20","_skip":"0"})"},
        {"descriptors append",
         [](VXIMQuery& q) {
             q.orderByAscending("a");
             q.orderBySortDescriptors({{"b", false}, {std::nullopt, true}, {"c", true}});
         },
         R"({"_sort":"a,-b,c","_limit":"20","_skip":"0"})"},
        {"one descriptor replaces, unless it has no key",
         [](VXIMQuery& q) {
             q.orderByAscending("a");
             q.orderBySortDescriptor({"b", false});
             q.orderBySortDescriptor({std::nullopt, true});
         },
         R"({"_sort":"-b","_limit":"20","_skip":"0"})"},
        {"a limit of 0 is one", [](VXIMQuery& q) { q.setLimit(0); },
         R"({"_limit":"0","_skip":"0"})"},
        {"negative paging is left out",
         [](VXIMQuery& q) {
             q.setLimit(-1);
             q.setSkip(-1);
         },
         "{}"},
        {"conditions named like parameters: they win over the sort and lose to paging",
         [](VXIMQuery& q) {
             q.orderByAscending("a");
             q.whereAttribute("_sort", "mine");
             q.whereAttribute("_limit", "mine");
             q.whereAttribute("_skip", "mine");
             q.setSkip(-1);
         },
         R"({"_sort":"mine","_limit":"20","_skip":"mine"})"},
        {"collections written in place",
         [](VXIMQuery& q) {
             q.order().emplace_back("");
             q.order().emplace_back("a");
             q.where().set("b", "c");
         },
         R"({"_sort":",a","b":"c","_limit":"20","_skip":"0"})"},
    };
    for (const auto& c : cases) {
        auto query = VXIMQuery::query();
        c.build(*query);
        EXPECT_EQ(json(query->combinedParams()), c.params) << c.why;
    }
}

}  // namespace
