// What waits to be received: one answer for each request, whatever ends it first; bounds; the
// descriptor; waking.

#include "VexIMLib/C/internal/Mailbox.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "VexIMLib/C/internal/Arguments.h"
#include "VexIMLib/C/internal/Operations.h"
#include "VexIMLib/C/internal/Records.h"
#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim::c {
namespace {

constexpr std::size_t kRoomy = 1 << 20;
const std::string kError = R"({"code":1})";

/// All that waits, a line each: "answer 1", "error 2", "event x", "overflow 3 0".
std::string taken(Mailbox& box) {
    std::string lines;
    for (std::string text; box.receive(0, text);) {
        const Value item = parseJSON(text).value;
        const auto part = [&item](const char* name) { return item.get(name).description(); };
        if (!lines.empty()) lines += ", ";
        if (item.get("name") == "overflow") {
            lines += "overflow " + part("events") + " " + part("answers");
        } else {
            lines += part("@type") + " " +
                     (item.get("@type") == "event" ? part("name") : part("@extra"));
        }
    }
    return lines;
}

std::string event(const std::string& name) { return R"({"@type":"event","name":")" + name + "\"}"; }

bool isReadable(int descriptor) {
    pollfd polled{descriptor, POLLIN, 0};
    return ::poll(&polled, 1, 0) == 1;
}

TEST(Mailbox, AnswersEachRequestOnceWhateverEndsItFirst) {
    const auto box = std::make_shared<Mailbox>(kRoomy);
    const auto now = Clock::TimePoint(std::chrono::hours(1));
    std::vector<Mailbox::RequestId> ids;
    for (const char* extra : {"1", "2", "3", "4"}) ids.push_back(box->open(extra, 10).value());
    EXPECT_TRUE(box->setDeadline(ids[1], now));
    EXPECT_FALSE(box->setDeadline(ids[2], now + std::chrono::seconds(1)))
        << "a later one needs no other timer";

    box->answer(ids[0], Outcome::Answer, "true");
    box->expire(now, kError);
    std::size_t cancelled = 0;
    box->cancel("3", 0, kError, cancelled);
    EXPECT_EQ(cancelled, 1u);
    EXPECT_EQ(box->nextDeadline(), std::nullopt) << "what was answered is not overdue any more";
    box->close(kError);
    for (const auto id : ids) box->answer(id, Outcome::Answer, "true");
    EXPECT_EQ(taken(*box), "answer 1, error 2, error 3, error 4");
    EXPECT_TRUE(box->isSpent());
    EXPECT_EQ(box->open("5", 10), std::nullopt);
}

TEST(Mailbox, CancelsTheTransferOfWhatIsEnded) {
    const auto box = std::make_shared<Mailbox>(kRoomy);
    const auto transfer = VXIMTransfer::transfer();
    const auto id = box->open("1", 10).value();
    ASSERT_TRUE(box->attach(id, transfer));
    const auto ended = box->close(kError);
    ASSERT_EQ(ended.size(), 1u);
    EXPECT_EQ(ended.front(), transfer);
    EXPECT_FALSE(box->attach(id, transfer)) << "it has been answered";
}

TEST(Mailbox, DropsEventsBeforeAnswersAndSaysHowMany) {
    const auto box = std::make_shared<Mailbox>(2000);
    const auto id = box->open("1", 10).value();
    box->event(event("first"));
    for (int i = 0; i < 50; ++i)
        box->event(event("one of many, with a name that is not short at all"));
    box->answer(id, Outcome::Answer, "true");
    const std::string lines = taken(*box);
    EXPECT_TRUE(lines.starts_with("event first, event one of many")) << lines;
    EXPECT_NE(lines.find("overflow "), lines.npos) << lines;
    EXPECT_TRUE(lines.ends_with(" 0, answer 1")) << lines;
    box->event(event("later"));
    EXPECT_EQ(taken(*box), "event later") << "there is room again";
}

TEST(Mailbox, RefusesRequestsAndAtLastDropsAnswersWhenNobodyReceives) {
    const auto box = std::make_shared<Mailbox>(5000);
    int opened = 0;
    for (int i = 0; i < 1000; ++i) opened += box->open("7", 100).has_value();
    EXPECT_GT(opened, 2);
    EXPECT_LT(opened, 10);
    EXPECT_LE(box->size(), 5u * 5000) << "memory is bounded";
    EXPECT_NE(taken(*box).find("error 7, overflow 0 "), std::string::npos);
}

TEST(Mailbox, TakesAnyLimit) {
    for (const std::size_t limit : {~std::size_t{0} / 4 + 1, ~std::size_t{0} / 2}) {
        const auto box = std::make_shared<Mailbox>(limit);
        box->answer(box->open("1", 10).value(), Outcome::Answer, "true");
        EXPECT_EQ(taken(*box), "answer 1") << limit;
    }
}

TEST(Mailbox, ItsDescriptorIsReadableWhileSomethingWaits) {
    const auto box = std::make_shared<Mailbox>(kRoomy);
    box->event(event("before"));
    const int descriptor = box->descriptor().value();
    EXPECT_TRUE(isReadable(descriptor)) << "also for what came before it was asked for";
    EXPECT_EQ(taken(*box), "event before");
    EXPECT_FALSE(isReadable(descriptor));
    box->event(event("a"));
    box->event(event("b"));
    MainQueue::shared()
        .drain();  // on the main thread it wakes the receiver after the current function
    EXPECT_TRUE(isReadable(descriptor));
    EXPECT_EQ(taken(*box), "event a, event b");
    EXPECT_FALSE(isReadable(descriptor));
}

TEST(Mailbox, WakesWhoWaitsAlsoWhenItIsClosed) {
    const auto box = std::make_shared<Mailbox>(kRoomy);
    const auto id = box->open("1", 10).value();
    std::vector<std::string> got;
    std::thread receiver([&box, &got] {
        for (std::string text; box->receive(60, text);) got.push_back(text);
    });
    std::thread([&box, id] { box->answer(id, Outcome::Answer, "true"); }).join();
    std::thread([&box] { box->close(kError); }).join();
    receiver.join();  // it must not wait its whole minute
    EXPECT_EQ(got.size(), 1u);
}

TEST(Records, WriteWhatIsShortByThemselves) {
    for (const double number :
         {0.0, 0.5, 1.0, 12.345, 999.999, 1700000000.0, 1700000000.1, 1700000000.12, 1700000000.123,
          1700000000.1234, 9e11, 9e15, 0.0005, -1.5, 0.1 + 0.2, 1e300}) {
        std::string text = "[";
        write(text, number);
        EXPECT_EQ(parseJSON(text + "]").value.get(0), Value(number)) << text;
    }
    const std::string letters(46, 'x');
    for (const std::string& words :
         {std::string(), std::string("a"), std::string("b\"c"), std::string("d\\e"),
          std::string("\n"), std::string("\0f", 2), std::string("\x7f"),
          std::string("gr\xc3\xbc\xc3\x9f e"), letters, letters + "y", letters.substr(1) + "\""}) {
        std::string text;
        write(text, std::string_view(words));
        EXPECT_EQ(text, writeJSON(Value(words), JSONFragments::Allow).text);
    }
    std::string broken;
    write(broken, std::string_view("\xff!"));
    EXPECT_EQ(broken, "\"?!\"");
}

TEST(Mailbox, GivesMemoryBackForTheNextEvent) {
    const auto box = std::make_shared<Mailbox>(kRoomy);
    std::string received(500, 'x');
    const void* const memory = received.data();
    box->event(event("a"));
    ASSERT_TRUE(box->receive(0, received));
    EXPECT_EQ(received, event("a"));
    const std::string blank = box->blank();
    EXPECT_EQ(blank, "");
    EXPECT_EQ(blank.data(), memory);
    EXPECT_EQ(box->blank().capacity(), std::string().capacity()) << "there was one";
}

TEST(Arguments, AreCheckedAgainstTheTable) {
    struct Case {
        const char* why;
        const char* arguments;
        std::optional<InterfaceError> problem;
    };
    const auto parameters =
        parseParameters("id: id, members: ids?, limit: int32?, detail: boolean?");
    for (const auto& [why, arguments, problem] : std::initializer_list<Case>{
             {"all there", R"({"id":"g","members":["a",1],"limit":-3,"detail":false,"@extra":1})",
              std::nullopt},
             {"a number is an id", R"({"id":7})", std::nullopt},
             {"null is left out", R"({"id":"g","limit":null})", std::nullopt},
             {"missing", R"({})", InterfaceError::MissingArgument},
             {"missing, for null", R"({"id":null})", InterfaceError::MissingArgument},
             {"an empty id", R"({"id":""})", InterfaceError::WrongArgument},
             {"a real is no id", R"({"id":1.0})", InterfaceError::WrongArgument},
             {"true is no number", R"({"id":"g","limit":true})", InterfaceError::WrongArgument},
             {"1 is no boolean", R"({"id":"g","detail":1})", InterfaceError::WrongArgument},
             {"too large for 32 bits", R"({"id":"g","limit":2147483648})",
              InterfaceError::WrongArgument},
             {"an array with something else", R"({"id":"g","members":["a",null]})",
              InterfaceError::WrongArgument},
             {"unknown", R"({"id":"g","member":[]})", InterfaceError::UnknownArgument},
             {"a typo behind the @", R"({"id":"g","@timout":1})", InterfaceError::UnknownArgument},
         }) {
        const auto found = findProblem(parameters, *parseJSON(arguments).value.asDictionary());
        EXPECT_EQ(found ? std::optional(found->code) : std::nullopt, problem) << why;
    }
}

TEST(Operations, OfTheStoreAreKnownAsSuchWithoutIt) {
    const auto problem = unknownOperation("VXIMMessageStore.open");
    EXPECT_EQ(problem.code, InterfaceError::WithoutStore);
    EXPECT_NE(problem.description.find("libvexim-c-store1"), std::string::npos)
        << problem.description;
    EXPECT_EQ(unknownOperation("VXIMMessageStores.open").code, InterfaceError::UnknownOperation);
}

}  // namespace
}  // namespace vexim::c
