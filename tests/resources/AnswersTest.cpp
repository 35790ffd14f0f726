// Answers that are not what an operation expects: its completion runs once, on the main thread, and
// a failure changes nothing.

#include <algorithm>
#include <ctime>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/Exception.h"
#include "VexIMLib/VexIMLib.h"
#include "resources/OperationsFixture.h"
#include "support/ServicePage.h"
#include "support/WrongKinds.h"

namespace vexim::testing {
namespace {

class Answers : public Operations {
protected:
    void SetUp() override { setKeepsFinishedDelegates(false); }  // or every answer stays in memory
    void TearDown() override { setKeepsFinishedDelegates(true); }

    /// Runs the operation on fresh objects against that answer; checks that an error has changed
    /// nothing.
    const Outcome& runAgainst(const Operation& operation, int status, const std::string& answer) {
        resources = Resources();
        const std::string before = resources.describe();
        service.answerWith(status, answer);
        const Outcome& outcome = run(operation.name);
        if (outcome.error()) {
            EXPECT_TRUE(outcome.text().starts_with("no, ") || outcome.text().starts_with("nil, "))
                << outcome.text();
            EXPECT_EQ(resources.describe(), before) << outcome.text();
        }
        return outcome;
    }
};

TEST_F(Answers, OfAnyShapeEndTheOperation) {
    std::string deep = "{\"friends\":";
    for (int i = 0; i < 400; ++i) deep += "[";
    for (int i = 0; i < 400; ++i) deep += "]";
    deep += "}";
    const std::vector<std::string> answers = {
        "",
        " ",
        "{}",
        "[]",
        "[[]]",
        "[{}]",
        "[null]",
        "[5,true]",
        R"(["u1"])",
        R"([{"id":null}])",
        R"([{"id":{"id":1}},5])",
        "null",
        "true",
        "5",
        "plain text",
        "\"",
        "\"\"",
        "\"quoted\"",
        "\xff\xfe",
        "\"\xff\"",
        "{\"cut\":",
        R"({"id":5,"members":"none","attributes":7,"success":"maybe","friends":{},"groups":5,"rooms":"x","recent":[]})",
        R"({"id":null,"members":null,"attributes":null,"success":null,"friends":null,"groups":null,"rooms":null})",
        R"({"friends":[null,{}],"groups":[[]],"rooms":[{}]})",
        R"([{"from":5,"to":[],"content":"x","ts":{},"speaker":{}}])",
        deep,
    };
    for (const std::string& answer : answers) {
        for (const Operation& operation : allOperations()) {
            SCOPED_TRACE(std::string(operation.name) + " answered " + answer.substr(0, 80));
            runAgainst(operation, 200, answer);
        }
    }
}

TEST_F(Answers, PassTheServicesErrorOn) {
    for (const Operation& operation : allOperations()) {
        EXPECT_EQ(
            describe(
                runAgainst(operation, 400, R"({"errorCode":4711,"errorMessage":"no"})").error()),
            "VXErrorDomain 4711")
            << operation.name;
    }
}

TEST_F(Answers, AnErrorNamesWhatIsWrongWithAListAndLeavesTheFormerOne) {
    const struct {
        const char* operation;
        const char* answer;
        const char* named;
    } cases[] = {
        {"user rooms in detail", R"([{"id":"r1"},{"name":"x"}])", "room"},
        {"user groups in detail", R"([{}])", "group"},
        {"user friends in detail", R"(["u1"])", "not a dictionary"},
        {"user fetch", R"({"friends":5})", "friends"},
        {"user fetch", R"({"groups":null})", "groups"},
        {"user history", "{}", "history"},
        {"group history", "[5]", "not a dictionary"},
        {"group fetch", "[]", "not a dictionary"},
        {"room fetch", "text", "not a dictionary"},
        {"passenger create", "{}", "id"},
        {"find users", R"([{"name":"x"}])", "user"},
        {"find rooms", "[[]]", "not a dictionary"},
    };
    service.answerWith(200, R"(["x1"])");
    for (const char* list : {"user friends", "user groups", "user rooms"}) run(list);
    const std::string before = resources.describe();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.operation);
        service.answerWith(200, c.answer);
        const Outcome& outcome = run(c.operation);
        EXPECT_EQ(resources.describe(), before);
        ASSERT_TRUE(outcome.error());
        EXPECT_EQ(describe(outcome.error()), "VXIMErrorDomain 2");
        EXPECT_NE(outcome.error()->localizedDescription().find(c.named), std::string::npos)
            << outcome.error()->localizedDescription();
    }
}

TEST_F(Answers, OfTenMegabytesAreReadLikeOthers) {
    Array records;
    for (int i = 0; i < 1000; ++i)
        records.append(
            Dictionary{{"id", "u" + std::to_string(i)}, {"name", std::string(10'000, 'x')}});
    const std::string list = json(records);
    const std::string text = '"' + std::string(10 << 20, 'x') + '"';
    const std::string record =
        R"({"id":"g1","success":true,"members":)" + list + R"(,"friends":["u1"]})";
    for (const std::string* answer : {&list, &text, &record}) {
        for (const Operation& operation : allOperations()) {
            SCOPED_TRACE(std::string(operation.name) + " answered " + answer->substr(0, 30));
            runAgainst(operation, 200, *answer);
        }
    }
}

/// Every friend listens for presence by its id. No choice of ids may make this take quadratic time.
TEST_F(Answers, ManyIdsOfAnyKindTakeTheirTimeOnly) {
    const auto cost = [&](const std::function<std::string(int)>& id) {
        std::string list = "[";
        for (int i = 0; i < 50'000; ++i) list += (i == 0 ? "" : ",") + id(i);
        service.answerWith(200, list + "]");
        const std::clock_t start = std::clock();
        EXPECT_EQ(run("user friends").text().substr(0, 1), "y");
        return std::clock() - start;
    };
    const auto texts = cost([](int i) { return "\"u" + std::to_string(i) + "\""; });
    EXPECT_LT(cost([](int i) { return std::to_string(i); }), 10 * texts);
    EXPECT_LT(cost([](int i) { return std::to_string(i) + ".5"; }), 10 * texts);
    EXPECT_LT(cost([](int i) { return "{\"id\":" + std::to_string(i) + "}"; }), 10 * texts);
    EXPECT_LT(cost([](int i) { return "[" + std::to_string(i) + "]"; }), 10 * texts);
}

/// "POST /groups/:/members" of "POST /groups/g1/members?x {…}": every second part of a path is an
/// id.
std::string shapeOf(const std::string& request) {
    std::istringstream words(request);
    std::string method, target, part, shape;
    words >> method >> target;
    const auto query = std::min(target.find('?'), target.size());
    std::istringstream parts(target.substr(1, query - 1));
    for (bool isId = false; std::getline(parts, part, '/'); isId = !isId)
        shape += "/" + (isId ? ":" : part);
    return method + " " + shape + (target.substr(query) == "?detail" ? "?detail" : "");
}

/// The recorded answers of the service, by the shape of the request; its refusals under "error".
std::multimap<std::string, std::string> recordedAnswers() {
    std::multimap<std::string, std::string> answers;
    for (const PageExample& example : examplesIn(readServicePage())) {
        if (example.kind != "http") continue;
        const auto status = example.text.find("\n\n") + 2;
        const auto answer = example.text.find('\n', status) + 1;
        answers.emplace(example.text[status] == '2' ? shapeOf(example.text) : "error",
                        example.text.substr(answer));
    }
    return answers;
}

/// Reads all properties. One of a wrong type may raise, but nothing worse may happen.
void readEverything(Resources& r) {
    const std::function<void()> readers[] = {
        [&] { r.user->uid(); },
        [&] { r.user->sessionCount(); },
        [&] { r.user->online(); },
        [&] { r.user->updatedAt(); },
        [&] { r.user->attributes(); },
        [&] { r.group->name(); },
        [&] { r.group->owner(); },
        [&] { r.group->members(); },
        [&] { r.group->recentMessage(); },
        [&] { r.group->attributes(); },
        [&] { r.room->name(); },
        [&] { r.room->members(); },
        [&] { r.room->createTs(); },
        [&] { r.room->attributes(); },
        [&] { r.passenger->pid(); },
        [&] { r.group->description(); },
        [&] { r.passenger->valueForKeyPath("id.name.x"); },
    };
    for (const auto& read : readers) {
        try {
            read();
        } catch (const Exception&) {
            continue;
        }
    }
}

TEST_F(Answers, EveryWrongKindInEveryPlaceOfARecordedAnswer) {
    const std::set<std::string> ignoresTheAnswer = {"user delete friend",
                                                    "user update attributes",
                                                    "user replace attributes",
                                                    "user delete attributes",
                                                    "group owner",
                                                    "group update",
                                                    "group add members",
                                                    "group remove members",
                                                    "group rename",
                                                    "group delete",
                                                    "group update attributes",
                                                    "group replace attributes",
                                                    "group delete attributes",
                                                    "room add members",
                                                    "room remove members",
                                                    "room delete",
                                                    "room update attributes",
                                                    "room replace attributes",
                                                    "room delete attributes"};
    const auto recorded = recordedAnswers();
    service.answerWith(200, "{}");
    for (const Operation& operation : allOperations()) {
        run(operation.name);
        const std::string shape = shapeOf(service.takeRequests().at(0));
        const auto [first, last] = recorded.equal_range(shape);
        EXPECT_NE(first, last) << "no example of " << shape;
        for (auto answer = first; answer != last; ++answer) {
            const Outcome& right = runAgainst(operation, 200, answer->second);
            EXPECT_FALSE(right.error()) << operation.name << ": " << right.text();
            const std::string after = resources.describe();
            for (const Wrong& wrong :
                 everyWrongKind(parseJSON(answer->second, JSONFragments::Allow).value)) {
                SCOPED_TRACE(operation.name + (": " + wrong.what));
                const Outcome& outcome = runAgainst(operation, 200, wrong.text);
                readEverything(resources);
                if (!ignoresTheAnswer.contains(operation.name)) continue;
                EXPECT_EQ(outcome.text(), "yes");
                EXPECT_EQ(resources.describe(), after);
            }
        }
        service.takeRequests();
    }
}

TEST_F(Answers, EveryWrongKindInEveryPlaceOfARefusal) {
    const auto recorded = recordedAnswers();
    const auto wrongs = everyWrongKind(parseJSON(recorded.find("error")->second).value);
    for (const Operation& operation : allOperations()) {
        for (const Wrong& wrong : wrongs) {
            SCOPED_TRACE(operation.name + (": " + wrong.what));
            ASSERT_TRUE(runAgainst(operation, 404, wrong.text).error());
        }
    }
}

/// A fetch may store fields of a wrong type, which the next operation then uses.
TEST_F(Answers, LocalFieldsOfAWrongKindFailAnOperationAtMost) {
    const Resources right;
    const auto tryAll = [&](const char* which, const Dictionary& record, auto place) {
        for (const Wrong& wrong : everyWrongKind(record)) {
            const JSONResult parsed = parseJSON(wrong.text);
            // not an object, or one with another id
            if (parsed.value.get("id") != record.get("id")) continue;
            for (const Operation& operation : allOperations()) {
                if (!std::string(operation.name).starts_with(which)) continue;
                SCOPED_TRACE(operation.name + (" with " + wrong.what));
                resources = Resources();
                place(*parsed.value.asDictionary());
                const std::string before = resources.describe();
                if (run(operation.name).error()) {
                    EXPECT_EQ(resources.describe(), before);
                }
            }
        }
    };
    service.answerWith(200, R"({"success":true})");
    tryAll("user", right.user->dictionaryRepresentation(), [&](const Dictionary& record) {
        resources.user = VXIMUser::initWithDictionary(record);
    });
    tryAll("group", right.group->dictionaryRepresentation(), [&](const Dictionary& record) {
        resources.group = VXIMGroup::groupWithDictionary(record);
    });
    tryAll("room", right.room->dictionaryRepresentation(), [&](const Dictionary& record) {
        resources.room = VXIMRoom::roomWithDictionary(record);
    });
}

}  // namespace
}  // namespace vexim::testing
