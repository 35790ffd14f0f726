// The parts behind a client, each by itself: answers, the send queue, reconnecting, and what the
// threads share.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/SocketIO/Client/Acknowledgements.h"
#include "VexIMLib/internal/SocketIO/Client/Reconnector.h"
#include "VexIMLib/internal/SocketIO/Client/SendQueue.h"
#include "VexIMLib/internal/SocketIO/Client/SocketIOCore.h"
#include "support/Completions.h"

namespace vexim::testing {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;

class TurnedClock final : public Clock {
public:
    TimePoint now() const override { return time; }
    double wallTime() const override { return 0; }
    TimePoint time{1h};
};

// Acknowledgements

class AcknowledgementsTest : public ::testing::Test {
protected:
    void add(const char* name, std::chrono::milliseconds timeout) {
        acks.add(once([this, name](const Array&, const ErrorPtr&) { taken += name; }), timeout,
                 now);
    }
    /// The names of those that were taken out; "-" for an empty callback.
    std::string names(const std::vector<Acknowledgements::Callback>& callbacks) {
        taken.clear();
        for (const auto& callback : callbacks) callback({}, nullptr);
        return taken;
    }
    std::string expired(std::chrono::milliseconds later) {
        now += later;
        return names(acks.takeExpired(now));
    }

    Acknowledgements acks;
    Clock::TimePoint now{1h};
    std::string taken;
};

TEST_F(AcknowledgementsTest, EachIsTakenOutOnceInOrder) {
    add("a", 0ms);  // 0
    add("b", 20ms);
    add("c", 10ms);
    add("d", 30ms);
    add("e", std::chrono::milliseconds::max());
    EXPECT_EQ(acks.deadline(), now + 10ms);
    EXPECT_EQ(expired(9ms), "");
    EXPECT_EQ(expired(1ms), "c");
    EXPECT_EQ(acks.deadline(), now + 10ms) << "the second deadline";
    EXPECT_EQ(names({acks.take(1).value_or(nullptr)}), "b");
    EXPECT_FALSE(acks.take(1)) << "answered twice";
    EXPECT_FALSE(acks.take(2)) << "answered too late";
    EXPECT_FALSE(acks.take(9)) << "never asked for";
    EXPECT_EQ(expired(10ms), "") << "its deadline went with the answer";
    EXPECT_EQ(expired(100h), "d");
    EXPECT_EQ(names(acks.takeAll()), "ae");
    EXPECT_EQ(acks.deadline(), std::nullopt);
    EXPECT_EQ(acks.nextId(), 5u) << "the ids of two connections differ";
    add("f", 1ms);
    EXPECT_EQ(expired(1ms), "f") << "on the next connection, too";
}

TEST_F(AcknowledgementsTest, DeadlinesStandStillDuringPauses) {
    add("a", 10ms);
    for (int pause = 0; pause < 2; ++pause) {
        acks.pause(now);
        acks.pause(now + 1h);  // no effect: it is paused already
        EXPECT_EQ(acks.deadline(), std::nullopt);
        EXPECT_EQ(expired(2h), "");
        acks.resume(now);
        EXPECT_EQ(acks.deadline(), now + (pause == 0 ? 10ms : 6ms));
        EXPECT_EQ(expired(4ms), "");
    }
    acks.pause(now);
    now += 1h;
    add("b", 10ms);  // added during the pause; only the rest of the pause counts for it
    now += 1h;
    acks.resume(now);
    EXPECT_EQ(expired(2ms), "a");
    EXPECT_EQ(expired(7ms), "");
    EXPECT_EQ(expired(1ms), "b");
}

// The send queue

EncodedPacket packetOf(std::size_t cost, std::size_t attachments = 0) {
    EncodedPacket packet;
    const auto each = attachments == 0 ? 0 : cost / 2 / attachments;
    for (std::size_t i = 0; i < attachments; ++i)
        packet.attachments.emplace_back(std::string(each - PacketQueue::cost(Data()), 'x'));
    packet.text = std::string(cost - PacketQueue::cost(packet), 'x');
    return packet;
}

TEST(SendQueue, KeepsItsBoundsHoweverOftenItIsDrained) {
    SendQueue queue(1000, 3);
    struct Row {
        const char* why;
        std::vector<EncodedPacket> packets;
    };
    const Row rows[] = {
        {"bytes of texts", {packetOf(400), packetOf(600)}},
        {"bytes of attachments", {packetOf(500, 2), packetOf(500, 1)}},
        {"messages", {packetOf(10), packetOf(60, 1), packetOf(30)}},
    };
    for (int round = 0; round < 3; ++round) {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.why);
            for (const auto& packet : row.packets) ASSERT_EQ(queue.add(packet), EmitFault::None);
            EXPECT_EQ(queue.add(packetOf(6)), EmitFault::QueueFull);
            PacketQueue sending;
            queue.takeInto(sending);
            EXPECT_TRUE(queue.empty());
            EXPECT_EQ(queue.add(packetOf(6)), EmitFault::QueueFull) << "taken is not written";
            queue.didWrite({PacketQueue::cost(row.packets[0]), 1});
            EXPECT_EQ(queue.add(row.packets[0]), EmitFault::None);
            EXPECT_EQ(queue.add(packetOf(6)), EmitFault::QueueFull);
            EXPECT_EQ(queue.reset().count(), 1u);  // a new connection begins with an empty queue
        }
    }
    EXPECT_EQ(queue.add(packetOf(1001)), EmitFault::Oversize);
    EXPECT_EQ(queue.add({"x", {Data(std::string(1000, 'x'))}}), EmitFault::Oversize);
    queue.setServerLimit(50);
    EXPECT_EQ(queue.add({std::string(51, 'x'), {}}), EmitFault::TooLarge);
    EXPECT_EQ(queue.add({"x", {Data("x"), Data(std::string(51, 'x'))}}), EmitFault::TooLarge);
    EXPECT_EQ(queue.add({std::string(50, 'x'), {}}), EmitFault::None);
    EXPECT_TRUE(queue.claimWake());
    EXPECT_FALSE(queue.claimWake()) << "one wake for all";
    queue.releaseWake();
    EXPECT_TRUE(queue.claimWake());
}

// Reconnecting

TEST(Reconnector, TriesAgainAfterALossOnly) {
    // j: joined; J: joined and up for long enough; a: an attempt begins; l: the link is lost;
    // s: the server ends it; r: it refuses; n: nothing can begin; b: the application asks again
    struct Row {
        const char* why;
        const char* happens;
        const char* verdicts;  // Leave, Give up, Retry
        std::uint32_t attempt;
    };
    const Row rows[] = {
        {"a first connect fails", "l", "L", 0},
        {"a first connect is refused", "r", "L", 0},
        {"a loss", "jl", "R", 0},
        {"the server's goodbye", "js", "L", 0},
        {"no attempt succeeds", "jlalalal", "RRRG", 3},
        {"a refusal at a reconnect", "jlar", "RG", 1},
        {"nothing to connect to at a reconnect", "jlan", "RG", 1},
        {"the server's goodbye after a reconnect", "jlajs", "RL", 1},
        {"short connections count on", "jlajlajlajl", "RRRL", 3},
        {"a stable one begins a new count", "jlajlaJlajl", "RRRR", 1},
        {"a first failure after a stable one", "JlalJl", "RRR", 0},
        {"the application asks again", "jlalalalbl", "RRRGL", 0},
        {"it asks again while attempts are made", "jlabl", "RL", 0},
    };
    ReconnectPolicy policy;
    policy.maxAttempts = 3;
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        Reconnector reconnector(policy);
        reconnector.begin();
        Clock::TimePoint now{1h};
        std::string verdicts;
        const auto judge = [&](Reconnector::Verdict verdict) {
            verdicts += "LGR"[static_cast<int>(verdict)];
        };
        for (const char what : std::string(row.happens)) {
            switch (what) {
                case 'j': reconnector.didJoin(now), now += policy.stableAfter - 1ms; break;
                case 'J': reconnector.didJoin(now), now += policy.stableAfter; break;
                case 'a': reconnector.nextAttempt(), reconnector.willOpen(); break;
                case 'l': judge(reconnector.didEnd(EndCause::LinkLost, now)); break;
                case 's': judge(reconnector.didEnd(EndCause::ServerDisconnect, now)); break;
                case 'r': judge(reconnector.didEnd(EndCause::Refused, now)); break;
                case 'n': judge(reconnector.didNotStart()); break;
                case 'b': reconnector.begin(), reconnector.willOpen(); break;
            }
        }
        EXPECT_EQ(verdicts, row.verdicts);
        EXPECT_EQ(reconnector.attempt(), row.attempt);
    }
}

// What the threads share

/// A core. The test plays its network thread.
class CoreTest : public ::testing::Test {
protected:
    struct Network final : SocketIOCore::Network {
        void start(SocketIOCore::Epoch epoch) override { epochs.push_back(epoch), told += 'S'; }
        void attemptNow() override { told += 'h'; }
        void stop(PacketQueue left) override { leftover = left.count(), told += 'x'; }
        void send() override { told += 's'; }
        void resumeReading() override { told += 'r'; }
        std::vector<SocketIOCore::Epoch> epochs;
        std::size_t leftover = 0;
        std::string told;
    };

    CoreTest() {
        core->attach(network);
        for (const char* event : {"connect", "disconnect", "error", "message"}) {
            core->handlers().add(event, [this, event](const Array& arguments, const AckEmitter&) {
                heard.push_back(std::string(event) + " " + arguments.get(0).description());
            });
        }
    }
    ~CoreTest() override {
        core->handlers().removeAll();
        MainQueue::shared().drain();  // what this test has queued must not run in the next one
    }
    SocketIOCore::Epoch join() {
        core->connect();
        core->didJoin(network->epochs.back(), 0);
        return network->epochs.back();
    }
    Acknowledgements::Callback note(const char* name) {
        return once([this, name](const Array& answer, const ErrorPtr& error) {
            heard.push_back(std::string(name) + " " +
                            (error ? std::to_string(error->code()) : answer.description()));
        });
    }
    static Delivery::Item event(int number) {
        Delivery::Item item;
        item.event = "message";
        item.arguments = {number};
        return item;
    }
    Lines take() {
        MainQueue::shared().drain();
        return std::exchange(heard, {});
    }
    static SocketIOOptions options() {
        SocketIOOptions options;
        options.maxReadAhead = 1000;
        return options;
    }
    /// The number of packets that the network thread would take now.
    std::size_t sent(SocketIOCore::Epoch epoch) {
        PacketQueue sending;
        core->refill(epoch, {}, true, sending);
        return sending.count();
    }

    std::shared_ptr<TurnedClock> clock = std::make_shared<TurnedClock>();
    std::shared_ptr<Network> network = std::make_shared<Network>();
    std::shared_ptr<SocketIOCore> core = std::make_shared<SocketIOCore>(options(), clock);
    Lines heard;
};

TEST_F(CoreTest, KeepsTheAnswersOfAnEndedConnectionAndDropsItsEvents) {
    const auto epoch = join();
    core->emitWithAck("ask", {}, 0ms, note("answer"));
    Delivery::Item answer;
    answer.callback = *core->takeAck(epoch, 0);
    answer.arguments = {"yes"};
    core->disconnect();
    std::vector<Delivery::Item> turn{event(1), answer, event(2)};
    answer.callback = nullptr;
    core->deliver(epoch, turn);
    EXPECT_FALSE(core->queueEvent(epoch, "error", {"of the former connection"}));
    EXPECT_EQ(take(), (Lines{"connect /", "disconnect io client disconnect", "answer [yes]"}));
    EXPECT_FALSE(core->didEnd(epoch, {.error = nullptr, .loss = "lost"}));
    EXPECT_EQ(take(), Lines{}) << "disconnect() has said everything";
}

TEST_F(CoreTest, AnswersThePeerOnceAndOnItsOwnConnectionOnly) {
    const auto first = join();
    const auto ackOf = [this](SocketIOCore::Epoch epoch) {
        return AckEmitter([this, epoch](const Array& items) { core->sendAck(epoch, 7, items); });
    };
    const AckEmitter ack = ackOf(first);
    const AckEmitter late = ackOf(first);
    ack.with({1});
    ack.with({2});
    EXPECT_EQ(sent(first), 1u) << "a second answer does not count";
    ASSERT_TRUE(core->didEnd(first, {.error = nullptr, .loss = "lost"}));
    const auto second = join();
    late.with({1});
    EXPECT_EQ(sent(second), 0u) << "another connection asks under the same number";
    ackOf(second).with({3});
    EXPECT_EQ(sent(second), 1u);
}

TEST_F(CoreTest, SendsWhatWasEmittedBeforeADisconnectAndNothingAfterIt) {
    const auto first = join();
    EXPECT_TRUE(core->emit("a", {}));
    EXPECT_EQ(sent(first), 1u);
    EXPECT_TRUE(core->emit("b", {}));
    core->emitWithAck("c", {}, 0ms, note("c"));
    core->disconnect();
    EXPECT_EQ(network->leftover, 2u) << "to be written before the goodbye";
    EXPECT_FALSE(core->emit("d", {}));
    core->connect();
    EXPECT_FALSE(core->emit("e", {})) << "not joined yet";
    core->didJoin(network->epochs.back(), 0);
    EXPECT_EQ(sent(network->epochs.back()), 0u) << "nothing is queued for a later connection";
    EXPECT_EQ(take(),
              (Lines{"connect /", "c 2", "disconnect io client disconnect",
                     "error \"d\" was not sent: the socket is not connected.",
                     "error \"e\" was not sent: the socket is not connected.", "connect /"}));
    EXPECT_EQ(network->told, "SsxS") << "one wake for all that is emitted meanwhile";
}

TEST_F(CoreTest, HurriesAnAttemptThatIsWaitedForAndStartsNoSecondOne) {
    const auto first = join();
    core->connect();
    EXPECT_EQ(network->told, "S") << "it stands";
    const auto next = core->didEnd(first, {.error = nullptr, .loss = "lost", .retries = true});
    ASSERT_TRUE(next);
    EXPECT_EQ(core->status(), SocketIOStatusConnecting);
    core->connect();
    EXPECT_EQ(network->told, "Sh");
    EXPECT_TRUE(core->namespaceFor(*next));
    EXPECT_FALSE(core->namespaceFor(first));
    core->disconnect();
    EXPECT_FALSE(core->namespaceFor(*next)) << "the attempt has nothing to begin with";
    core->shutDown();
    core->connect();
    EXPECT_EQ(network->told, "Shxx");
    EXPECT_EQ(take(), (Lines{})) << "nothing is called once the client is gone";
}

TEST_F(CoreTest, PausesReadingUntilHalfIsDelivered) {
    const auto epoch = join();
    take();
    core->emitWithAck("ask", {}, 10ms, note("late"));
    std::vector<Delivery::Item> turn{event(1), event(2), event(3)};  // 256 bytes each
    core->deliver(epoch, turn);
    EXPECT_FALSE(core->endTurn(epoch, true).pauses);
    turn.push_back(event(4));
    core->deliver(epoch, turn);
    EXPECT_FALSE(core->endTurn(epoch, false).pauses) << "not before it is joined";
    EXPECT_FALSE(core->endTurn(epoch + 1, true).pauses) << "nor for another connection";
    EXPECT_TRUE(core->endTurn(epoch, true).pauses);
    clock->time += 1h;
    EXPECT_FALSE(core->expireAcks()) << "an answer that nobody reads is not late";
    MainQueue::shared().setTurnLimit(0ns);
    for (const char* told : {"", "", "r"}) {  // 768, 512, 256 bytes are left
        network->told.clear();
        MainQueue::shared().turn();
        EXPECT_EQ(network->told, told);
    }
    MainQueue::shared().setTurnLimit(4ms);
    EXPECT_EQ(core->expireAcks(), clock->time + 10ms);
    clock->time += 10ms;
    core->expireAcks();
    EXPECT_EQ(take(), (Lines{"message 1", "message 2", "message 3", "message 4", "late 3"}));
}

TEST_F(CoreTest, EndsAPauseWithItsConnection) {
    core->joinNamespace("a,b?x=y");
    EXPECT_EQ(core->nsp(), "/ab") << "a comma would end it in a packet";
    const auto epoch = join();
    std::vector<Delivery::Item> turn{event(1), event(2), event(3), event(4)};
    core->deliver(epoch, turn);
    EXPECT_TRUE(core->endTurn(epoch, true).pauses);
    core->disconnect();
    EXPECT_FALSE(core->isReadingPaused());
    join();
    core->emitWithAck("ask", {}, 10ms, note("late"));
    EXPECT_EQ(core->expireAcks(), clock->time + 10ms);
    clock->time += 10ms;
    core->expireAcks();
    EXPECT_EQ(take().back(), "late 3");
}

TEST(EventHandlers, CallNoneThatAnEarlierOneHasRemovedByName) {
    EventHandlers handlers;
    int calls = 0;
    for (int i = 0; i < 2; ++i) {
        handlers.add("event", [&](const Array&, const AckEmitter&) {
            ++calls;
            handlers.remove("event");
        });
    }
    handlers.call("event", {}, {});
    EXPECT_EQ(calls, 1);
}

}  // namespace
}  // namespace vexim::testing
