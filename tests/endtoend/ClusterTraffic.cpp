// The library while nodes, and their database, come and go (`scripts/cluster 3 --trouble kill --
// build/dev/tests/endtoend/cluster_traffic`): completions run exactly once, no message comes twice
// or in another order than its sender's, and every loss is reported.

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <set>

#include "endtoend/EndToEnd.h"

namespace vexim::testing {
namespace {

constexpr int kBurst = 10;
constexpr auto kPatience = std::chrono::seconds(60);

int secondsToRun() {
    const char* text = std::getenv("VEXIM_SECONDS");
    return text == nullptr ? 30 : std::atoi(text);
}

struct Traffic {
    explicit Traffic(const std::string& origin)
        : alice(join(origin, "alice")),
          bob(join(origin, "bob")) {}

    static std::shared_ptr<Person> join(const std::string& origin, const std::string& user) {
        auto person = Person::make(origin, [](VXIMClientConfiguration& c) {
            c.setAutoReconnect(true);
            c.setReconnectAttempts(-1);
            c.setReconnectWait(1);
        });
        bool isIn = false;
        person->client->loginWithUserId(user,
                                        [&](bool succeeded, const ErrorPtr&) { isIn = succeeded; });
        EXPECT_TRUE(eventually([&] { return isIn; }));
        return person;
    }

    static int count(const Person& person, const std::string& line) {
        return static_cast<int>(std::count(person.heard.begin(), person.heard.end(), line));
    }
    static bool isIn(const Person& person) {
        return person.client->status() == VXIMClientStatusOpened;
    }

    /// Sends a burst, and waits until all of it has come back or the connection has reported a
    /// loss.
    void sendBurst() {
        ASSERT_TRUE(eventually([&] { return isIn(*alice); }, kPatience)) << "the client comes back";
        const int cuts = count(*alice, "didDisconnect");
        std::string last;
        for (int i = 0; i < kBurst; ++i) {
            last = std::to_string(++sent);
            alice->client->sendMessageToFriend(
                VXIMMessage::messageWithText(last), "bob",
                once([this](bool, const ErrorPtr&) { ++completed; }));
        }
        ASSERT_TRUE(eventually([&] { return completed == sent; }, kPatience))
            << "each completion comes";
        ASSERT_TRUE(eventually(
            [&] {
                return count(*alice, "friend bob: " + last) > 0 ||
                       count(*alice, "didDisconnect") > cuts;
            },
            kPatience))
            << "message " << last << " is neither acknowledged nor is its loss told";
    }

    std::shared_ptr<Person> alice;
    std::shared_ptr<Person> bob;
    int sent = 0;
    int completed = 0;
};

/// The numbers that a person heard, which must rise. `cuts` gets how many disconnects came before
/// each.
std::vector<int> numbersIn(const Person& person, const std::string& prefix,
                           std::map<int, int>& cuts) {
    std::vector<int> numbers;
    int disconnects = 0;
    for (const std::string& line : person.heard) {
        if (line == "didDisconnect") ++disconnects;
        if (!line.starts_with(prefix)) continue;
        const int number = std::stoi(line.substr(prefix.size()));
        if (!numbers.empty()) {
            EXPECT_GT(number, numbers.back()) << "twice, or out of order";
        }
        numbers.push_back(number);
        cuts[number] = disconnects;
    }
    return numbers;
}

/// The service's history of the two users, the newest first.
std::vector<int> history() {
    std::vector<int> numbers;
    bool isDone = false;
    VXIMUser::userWithId("alice")->getLatestChatsWithFriend(
        "bob", 0, 1000,
        [&](const std::optional<std::vector<std::shared_ptr<VXIMMessage>>>& list,
            const ErrorPtr& error) {
            EXPECT_FALSE(error);
            if (list) {
                for (const auto& message : *list)
                    numbers.push_back(std::stoi(message->text().value_or("0")));
            }
            isDone = true;
        });
    EXPECT_TRUE(eventually([&] { return isDone; }, kPatience));
    return numbers;
}

TEST(ClusterTraffic, EveryLossIsTold) {
    const char* url = std::getenv("VEXIM_SERVICE_URL");
    ASSERT_NE(url, nullptr) << "run it with scripts/cluster";
    Traffic traffic(url);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(secondsToRun());
    while (std::chrono::steady_clock::now() < end && !::testing::Test::HasFatalFailure())
        traffic.sendBurst();
    ASSERT_FALSE(::testing::Test::HasFatalFailure());

    // Until one message comes back: then the fate of all earlier ones is known.
    const auto isThrough = [&] {
        return Traffic::count(*traffic.bob, "friend alice: " + std::to_string(traffic.sent)) > 0;
    };
    for (int tries = 0; tries < 20 && !isThrough(); ++tries) {
        ASSERT_TRUE(eventually([&] { return Traffic::isIn(*traffic.bob); }, kPatience));
        traffic.sendBurst();
        ASSERT_FALSE(::testing::Test::HasFatalFailure());
        (void)eventually([&] { return isThrough() || !Traffic::isIn(*traffic.bob); },
                         std::chrono::seconds(5));
    }
    ASSERT_TRUE(isThrough());

    std::map<int, int> acknowledgedAt;
    std::map<int, int> receivedAt;
    const auto acknowledged = numbersIn(*traffic.alice, "friend bob: ", acknowledgedAt);
    const auto received = numbersIn(*traffic.bob, "friend alice: ", receivedAt);
    int missed = 0;
    for (std::size_t i = 1; i < received.size(); ++i) {
        for (int number = received[i - 1] + 1; number < received[i]; ++number) {
            ++missed;
            const bool senderKnows = !acknowledgedAt.contains(number);
            const bool readerKnows = receivedAt[received[i]] > receivedAt[received[i - 1]];
            EXPECT_TRUE(senderKnows || readerKnows)
                << "message " << number << " was acknowledged, and is missing without a word";
        }
    }
    std::set<int> kept;
    for (const int number : history())
        EXPECT_TRUE(kept.insert(number).second) << "kept twice: " << number;
    for (const int number : acknowledged) {
        const bool isOnThisPage = !kept.empty() && number >= *kept.begin();
        EXPECT_TRUE(!isOnThisPage || kept.contains(number))
            << "acknowledged and not kept: " << number;
    }
    std::cout << "sent " << traffic.sent << ", acknowledged " << acknowledged.size()
              << ", received " << received.size() << ", missed " << missed
              << "; disconnects of the sender " << Traffic::count(*traffic.alice, "didDisconnect")
              << ", of the reader " << Traffic::count(*traffic.bob, "didDisconnect") << std::endl;
    EXPECT_GT(received.size(), 10u);
}

}  // namespace
}  // namespace vexim::testing
