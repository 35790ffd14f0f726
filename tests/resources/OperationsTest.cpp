#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/VexIMLib.h"
#include "resources/OperationsFixture.h"
#include "support/Eventually.h"

using namespace vexim::testing;

namespace {

TEST_F(Operations, SendWhatTheServiceExpects) {
    const std::map<std::string, std::string> expected = {
        {"user fetch", "GET /ctx/u1"},
        {"user friends", "GET /ctx/u1/friends"},
        {"user friends in detail", "GET /ctx/u1/friends?detail"},
        {"user groups", "GET /ctx/u1/groups"},
        {"user groups in detail", "GET /ctx/u1/groups?detail"},
        {"user rooms", "GET /ctx/u1/rooms"},
        {"user rooms in detail", "GET /ctx/u1/rooms?detail"},
        {"user add friend", "POST /ctx/u1/friends/u2"},
        {"user friend info", "GET /ctx/u1/friends/u2"},
        {"user delete friend", "DELETE /ctx/u1/friends/u2"},
        {"user history", "GET /ctx/u1/friends/u2/chats?ts=1500&limit=20"},
        {"user update attributes", R"(POST /ctx/u1/attributes {"a":1,"c":3})"},
        {"user replace attributes", R"(PUT /ctx/u1/attributes {"a":1,"c":3})"},
        {"user fetch attributes", "GET /ctx/u1/attributes"},
        {"user get attribute", "GET /ctx/u1/attributes/a"},
        {"user delete attributes", "DELETE /ctx/u1/attributes"},
        {"group create", R"(POST /groups {"owner":"u1","name":"Team","members":["u2"]})"},
        {"group create without members", R"(POST /groups {"owner":"u1","name":"Team"})"},
        {"group fetch", "GET /groups/g1"},
        {"group history", "GET /groups/g1/chats?ts=1450000000500&limit=5"},
        {"group owner", R"(PUT /groups/g1 {"owner":"u2"})"},
        {"group update", R"(PUT /groups/g1 {"a":1,"c":3})"},
        {"group add members", R"(POST /groups/g1/members {"members":["u2","u3"]})"},
        {"group remove members", R"(DELETE /groups/g1/members {"members":["u1"]})"},
        {"group rename", R"(POST /groups/g1/attributes {"name":"Team"})"},
        {"group delete", "DELETE /groups/g1"},
        {"group update attributes", R"(POST /groups/g1/attributes {"a":1,"c":3})"},
        {"group replace attributes", R"(PUT /groups/g1/attributes {"a":1,"c":3})"},
        {"group fetch attributes", "GET /groups/g1/attributes"},
        {"group get attribute", "GET /groups/g1/attributes/a"},
        {"group delete attributes", "DELETE /groups/g1/attributes"},
        {"room create", R"(POST /rooms {"name":"Hall","members":["u2"]})"},
        {"room create without members", R"(POST /rooms {"name":"Hall","members":[]})"},
        {"room fetch", "GET /rooms/r9"},
        {"room rename", R"(PUT /rooms/r9 {"name":"new"})"},
        {"room add members", R"(POST /rooms/r9/members {"members":["u2","u3"]})"},
        {"room remove members", R"(DELETE /rooms/r9/members ["u1"])"},
        {"room delete", "DELETE /groups/r9"},
        {"room update attributes", R"(POST /rooms/r9/attributes {"a":1,"c":3})"},
        {"room replace attributes", R"(PUT /rooms/r9/attributes {"a":1,"c":3})"},
        {"room fetch attributes", "GET /rooms/r9/attributes"},
        {"room get attribute", "GET /rooms/r9/attributes/a"},
        {"room delete attributes", "DELETE /rooms/r9/attributes"},
        {"passenger create", R"(POST /passengers {"a":1,"c":3})"},
        {"passenger update", R"(POST /passengers {"a":1,"c":3,"id":"p1"})"},
        {"passenger fetch", "GET /passengers/p1"},
        {"passenger history", "GET /passengers/p1/chats/u1?ts=1450000000500&limit=0"},
        {"find users", "GET /ctx?_limit=20&_skip=0"},
        {"find groups", "GET /groups?_limit=20&_skip=0"},
        {"find rooms", "GET /rooms?_limit=20&_skip=0"},
    };
    ASSERT_EQ(expected.size(), allOperations().size());
    for (const Operation& operation : allOperations()) {
        resources = Resources();
        run(operation.name);
        EXPECT_EQ(service.takeRequests(), std::vector{expected.at(operation.name)})
            << operation.name;
    }
    Outcome outcome;
    resources.passenger->updatePassengerAttributes({{"id", "other"}}, outcome.boolean());
    ASSERT_TRUE(eventually([&] { return outcome.hasEnded(); }));
    EXPECT_EQ(service.takeRequests(), std::vector<std::string>{R"(POST /passengers {"id":"p1"})"});
}

TEST_F(Operations, ReadTheAnswerAndBringLocalStateInLine) {
    const struct {
        const char* operation;
        const char* answer;
        const char* outcome;
        const char* state;  ///< the line of the object's state afterwards; nullptr: as before
    } cases[] = {
        {"user fetch",
         R"({"friends":["u2","u3"],"groups":["g1"],"rooms":["r1"],"sessions":3,"online":true})",
         "yes",
         R"(user {"id":"u1","attributes":{"a":0,"b":2}} friends [u2, u3] groups [{"id":"g1"}] rooms ["r1"])"},
        {"user fetch", "{}", "yes",
         R"(user {"id":"u1","attributes":{"a":0,"b":2}} friends [] groups [] rooms [])"},
        {"user friends", R"(["u2",5])", "yes",
         R"(user {"id":"u1","attributes":{"a":0,"b":2}} friends [u2, 5])"},
        {"user friends in detail", R"([{"id":"u2","online":true},{}])", "yes",
         R"(user {"id":"u1","attributes":{"a":0,"b":2}} friends [u2 online, (null)])"},
        {"user groups", R"(["g1"])", "yes",
         R"(user {"id":"u1","attributes":{"a":0,"b":2}} groups [{"id":"g1"}])"},
        {"user groups in detail", R"([{"name":"x"}])", "yes",
         R"(user {"id":"u1","attributes":{"a":0,"b":2}} groups [{"name":"x"}])"},
        {"user rooms", R"(["r1"])", "yes",
         R"(user {"id":"u1","attributes":{"a":0,"b":2}} rooms [room {"id":"r1"}])"},
        {"user rooms in detail", R"([{"id":"r1","ts":1}])", "yes",
         R"(user {"id":"u1","attributes":{"a":0,"b":2}} rooms [room {"id":"r1","ts":1}])"},
        {"user add friend", R"({"success":true})", R"({"success":true})", nullptr},
        {"user add friend", "done", "data done", nullptr},
        {"user friend info", R"({"online":true,"id":"x"})", "u2 online", nullptr},
        {"user friend info", "[]", "nil", nullptr},
        {"user history",
         R"([{"from":{"id":"u2","type":0},"to":{"id":"u1","type":0},"content":{"body":"hi"}}])",
         "[from 0 user u2, to 0 user u1: hi]", nullptr},
        {"user history", "[]", "[]", nullptr},
        {"user update attributes", "{}", "yes",
         R"(user {"id":"u1","attributes":{"a":1,"b":2,"c":3}})"},
        {"user replace attributes", "{}", "yes", nullptr},
        {"user delete attributes", "{}", "yes", nullptr},
        {"user fetch attributes", R"({"z":1})", R"({"z":1})",
         R"(user {"id":"u1","attributes":{"z":1}})"},
        {"user fetch attributes", "[1]", "[1]", nullptr},
        {"group create", "\"g42\"", R"({"owner":"u1","name":"Team","members":["u2"],"id":"g42"})",
         nullptr},
        {"group create", "g\"4\"2", R"({"owner":"u1","name":"Team","members":["u2"],"id":"g42"})",
         nullptr},
        {"group create", R"({"id":"g42"})", "nil", nullptr},
        {"group create", R"(["g42"])", "nil", nullptr},
        {"group fetch", R"({"owner":"u9","members":["u9"]})", "yes",
         R"(group {"id":"g1","members":["u9"],"attributes":{"a":0,"b":2},"owner":"u9"})"},
        {"group history", R"([{"speaker":"u1","to":{"id":"g1","type":1}}])",
         "[from 1 user u1, to 1 group g1: nil]", nullptr},
        {"group history", "{}", "nil", nullptr},
        {"group owner", "{}", "yes",
         R"(group {"id":"g1","members":["u1","u2","u1"],"attributes":{"a":0,"b":2},"owner":"u2"})"},
        {"group add members", "{}", "yes",
         R"(group {"id":"g1","members":["u1","u2","u1","u2","u3"],"attributes":{"a":0,"b":2}})"},
        {"group remove members", "{}", "yes",
         R"(group {"id":"g1","members":["u2"],"attributes":{"a":0,"b":2}})"},
        {"group rename", "", "yes",
         R"(group {"id":"g1","members":["u1","u2","u1"],"attributes":{"a":0,"b":2,"name":"Team"}})"},
        {"group delete", "{}", "yes", nullptr},
        {"group replace attributes", "{}", "yes",
         R"(group {"id":"g1","members":["u1","u2","u1"],"attributes":{"a":1,"c":3}})"},
        {"group delete attributes", "{}", "yes", R"(group {"id":"g1","members":["u1","u2","u1"]})"},
        {"room create without members", "\"r42\"", R"({"name":"Hall","members":[],"id":"r42"})",
         nullptr},
        {"room create", R"({"id":"r42"})", "nil", nullptr},
        {"room fetch", R"({"name":"Hall"})", "yes",
         R"(room {"id":"r9","name":"Hall","members":["u1","u2","u1"],"attributes":{"a":0}})"},
        {"room rename", R"({"success":true})", "yes",
         R"(room {"id":"r9","name":"new","members":["u1","u2","u1"],"attributes":{"a":0}})"},
        {"room rename", R"({"success":false})", "no", nullptr},
        {"room rename", "{}", "no", nullptr},
        {"room rename", "[]", "no", nullptr},
        {"room add members", "{}", "yes",
         R"(room {"id":"r9","name":"old","members":["u1","u2","u1","u2","u3"],"attributes":{"a":0}})"},
        {"room remove members", "{}", "yes",
         R"(room {"id":"r9","name":"old","members":["u2"],"attributes":{"a":0}})"},
        {"room replace attributes", "{}", "yes",
         R"(room {"id":"r9","name":"old","members":["u1","u2","u1"],"attributes":{"a":1,"c":3}})"},
        {"room delete attributes", "{}", "yes",
         R"(room {"id":"r9","name":"old","members":["u1","u2","u1"]})"},
        {"passenger create", "\"abc\"", R"({"a":1,"c":3,"id":"abc"})", nullptr},
        {"passenger create", "\"\"", R"({"a":1,"c":3,"id":""})", nullptr},
        {"passenger create", "abc", "nil", nullptr},
        {"passenger update", "\"p2\"", "yes", R"(passenger {"id":"p2","a":1,"c":3})"},
        {"passenger update", "p2", "yes", nullptr},
        {"passenger update", R"({"id":"p2"})", "yes", nullptr},
        {"passenger fetch", R"({"nick":"x","id":"p3"})", "yes",
         R"(passenger {"id":"p3","nick":"x"})"},
        {"passenger fetch", "[]", "yes", nullptr},
        {"passenger history", R"([{"speaker":"p1"},{"from":{"id":"u1","type":1,"gid":"g"}}])",
         "[from 0 user p1, to -1: nil, from 1 user u1 group g, to -1: nil]", nullptr},
        {"passenger history", "{}", "nil", nullptr},
        {"find users", R"([{"id":"u1"},{"id":"u2","x":1}])", R"([{"id":"u1"}, {"id":"u2","x":1}])",
         nullptr},
        {"find groups", R"([{"x":1}])", R"([{"x":1}])", nullptr},
        {"find rooms", "{}", "nil", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.operation) + " answered " + c.answer);
        resources = Resources();
        const std::string before = resources.describe();
        service.answerWith(200, c.answer);
        EXPECT_EQ(run(c.operation).text(), c.outcome);
        const std::string after = resources.describe();
        if (c.state) {
            EXPECT_NE((after + "\n").find(std::string(c.state) + "\n"), std::string::npos) << after;
        } else {
            EXPECT_EQ(after, before);
        }
    }
}

TEST_F(Operations, OnMembersThatAreNotKnownSucceed) {
    resources.room = VXIMRoom::roomWithId("r9");
    resources.group = VXIMGroup::groupWithId("g1");
    for (const char* name : {"room add members", "room remove members", "group add members"})
        EXPECT_EQ(run(name).text(), "yes") << name;
    EXPECT_EQ(json(resources.room->members()), "nil") << "appending to no list gives none";
    EXPECT_EQ(json(resources.group->members()), R"(["u2","u3"])") << "a group always has one";
    Outcome removed;
    resources.group->removeMembers({"u2", "u3"}, removed.boolean());
    ASSERT_TRUE(eventually([&] { return removed.hasEnded(); }));
    EXPECT_EQ(json(resources.group->members()), "[]");
}

TEST_F(Operations, ConvertASingleAttribute) {
    const struct {
        const char* body;
        const char* value;
    } cases[] = {
        {"12.5", "12.5"},
        {"12", "12"},
        {"-3", "-3"},
        {"true", "true"},
        {"false", "false"},
        {"null", "null"},
        {"\"abc\"", "\"abc\""},
        {"\"\"", "\"\""},
        {"plain", "nil"},
        {"", "nil"},
        {"\"a", "nil"},
        {"\xff", "nil"},
        {"[1]", "[1]"},
        {R"({"a":1})", R"({"a":1})"},
        {"\"\xff\"", "nil"},
        {R"("a\"b")", R"("a\\\"b")"},  // the backslash stays in the value
        {"9223372036854775807", "9223372036854775807"},
    };
    for (const auto& c : cases) {
        service.answerWith(200, c.body);
        EXPECT_EQ(run("user get attribute").text(), c.value) << c.body;
    }
    service.answerWith(200, "\"");
    EXPECT_EQ(run("user get attribute").text(), "nil, VXIMErrorDomain 2");
}

TEST_F(Operations, RaiseForTheCallersMistakesBeforeAnyRequest) {
    auto unsavedGroup = VXIMGroup::groupWithName("Team", std::nullopt, "u1");
    auto nobody = VXIMUser::initWithDictionary({{"id", vexim::Value::null()}});
    auto& r = resources;
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"user without id", [] { VXIMUser::userWithId(nullptr); }},
        {"group without id", [] { VXIMGroup::groupWithId(nullptr); }},
        {"room without id", [] { VXIMRoom::roomWithId(nullptr); }},
        {"passenger without id", [] { VXIMPassenger::passengerWithId(nullptr); }},
        {"friend without id", [] { VXIMFriendInfo::infoWithId(nullptr); }},
        {"nil owner", [&] { r.group->changeOwner(nullptr, {}); }},
        {"nil group name", [&] { r.group->updateName(nullptr, {}); }},
        {"nil room name", [&] { r.room->updateName(nullptr, {}); }},
        {"a room to be made without a name", [] { VXIMRoom::createWithName(nullptr, {}); }},
        {"a group to be made of nothing", [] { VXIMGroup::createWithOwner(nullptr, nullptr, {}); }},
        {"nil friend", [&] { r.user->deleteFriend(nullptr, {}); }},
        {"nil user of a history",
         [&] { r.passenger->getHistoryMessagesWithUser(nullptr, 1, 1, {}); }},
        {"an unsaved group's fetch", [&] { unsavedGroup->fetchWithBlock({}); }},
        {"an unsaved group's history", [&] { unsavedGroup->getLatestMessagesBefore(1, 1, {}); }},
        {"an unsaved group's attributes", [&] { unsavedGroup->updateAttributes({}, {}); }},
        {"an unsaved group's deletion", [&] { unsavedGroup->deleteWithBlock({}); }},
        {"a null id", [&] { nobody->fetchWithCompletion({}); }},
        {"a condition that is no text",
         [] {
             auto query = VXIMQuery::query();
             query->whereAttribute("age", 5);
             query->findUserWithBlock({});
         }},
        {"attributes that are no JSON",
         [&] {
             r.user->updateAttributes({{"x", vexim::Data("x")}}, {});
         }},
    };
    for (const auto& [why, mistake] : cases) EXPECT_THROW(mistake(), vexim::Exception) << why;
    vexim::MainQueue::shared().drain();
    EXPECT_EQ(service.takeRequests(), std::vector<std::string>());
}

TEST_F(Operations, KeepTheirReceiverUntilTheyEndAndNeedNoCompletion) {
    std::weak_ptr<VXIMGroup> group = resources.group;
    resources.group->addMembers({"u9"}, {});
    resources.group = nullptr;
    EXPECT_FALSE(group.expired());
    EXPECT_TRUE(eventuallyElsewhere([&] { return group.expired(); }));
    EXPECT_EQ(service.takeRequests().size(), 1u);
}

TEST_F(Operations, OnAPassengerWithoutAnIdFailAtOnce) {
    auto passenger = VXIMPassenger::initWithDictionary({});
    Outcome update, fetch, history;
    passenger->updatePassengerAttributes({}, update.boolean());
    passenger->fetchWithCompletion(fetch.boolean());
    passenger->getHistoryMessagesWithUser("u1", 1, 1, history.objects<VXIMMessage>());
    EXPECT_EQ(update.text() + fetch.text() + history.text(),
              "no, VXIMErrorDomain 5004no, VXIMErrorDomain 5004nil, VXIMErrorDomain 5004");
    EXPECT_EQ(update.error()->localizedDescription(), "Cannot update a passenger with an empty id");
    EXPECT_EQ(fetch.error()->localizedDescription(), "Cannot find a passenger with an empty id");
    EXPECT_EQ(history.error()->localizedDescription(),
              "Cannot get history message with an empty passenger id");
    passenger->setPid("");
    passenger->fetchWithCompletion({});  // silent
    Outcome elsewhere;
    std::thread([&] { passenger->fetchWithCompletion(elsewhere.boolean()); }).join();
    EXPECT_FALSE(elsewhere.hasEnded()) << "on the main thread only";
    vexim::MainQueue::shared().drain();
    EXPECT_EQ(elsewhere.text(), fetch.text());
    passenger = VXIMPassenger::initWithDictionary({{"id", vexim::Value::null()}});
    Outcome null;
    passenger->fetchWithCompletion(null.boolean());
    EXPECT_EQ(null.text(), fetch.text());
    EXPECT_EQ(service.takeRequests(), std::vector<std::string>());
}

}  // namespace
