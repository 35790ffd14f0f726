// Very many users in one process, as in a gateway: what an idle user costs, a message, and a
// heartbeat; how long all take to log in, and to come back after the service has disconnected them.
// The server is another process.

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "VexIMLib/VexIMLib.h"
#include "networking/CPUTime.h"
#include "scale/ScaleServer.h"

namespace {

using namespace vexim::bench;
using namespace std::chrono_literals;
using vexim::MainQueue;
using Clock = std::chrono::steady_clock;

// logins at a time; more would overflow a service's queue of connections to accept
constexpr std::size_t kAtOnce = 256;
constexpr int kRounds = 10;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "scale benchmark: %s\n", what);
    std::_Exit(1);
}

void await(const std::function<bool()>& predicate, const char* what) {
    if (!MainQueue::shared().runUntil(predicate, 5min)) fail(what);
}

double residentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::strtod(line.c_str() + 6, nullptr);
    }
    return 0;
}

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

class Gateway final : public VXIMClientDelegate, public std::enable_shared_from_this<Gateway> {
public:
    Gateway(const ScaleServer& server, std::size_t count)
        : server_(server),
          count_(count),
          url_(vexim::URL::parse("http://127.0.0.1:" + std::to_string(server.port()))) {
        clients_.reserve(count);
    }

    void logAllIn() {
        for (std::size_t i = 0; i < std::min(kAtOnce, count_); ++i) logNextIn();
        await([this] { return loggedIn_ == count_; }, "not everybody was logged in");
    }

    void deliver() {
        heard_ = 0;
        server_.sendMessages();
        await([this] { return heard_ == count_; }, "a message was lost");
    }

    void comeBack() {
        server_.cutOff();
        const auto end = Clock::now() + 5min;
        while (!server_.isEverybodyBack()) {
            if (Clock::now() > end) fail("not everybody came back");
            MainQueue::shared().runUntil([] { return false; }, 10ms);
        }
        for (const auto& client : clients_) {
            await([&] { return client->status() == VXIMClientStatusOpened; },
                  "a client was not logged in again");
        }
    }

    void clientDidReceiveMessageFromFriend(const std::shared_ptr<VXIMClient>&,
                                           const std::shared_ptr<VXIMMessage>&,
                                           const std::shared_ptr<VXIMFriendInfo>&) override {
        ++heard_;
    }

private:
    void logNextIn() {
        if (clients_.size() == count_) return;
        auto configuration = VXIMClientConfiguration::defaultConfiguration();
        configuration->setAppId("app");
        configuration->setClientKey("key");
        configuration->setInstallationId("gateway-" + std::to_string(clients_.size()));
        configuration->setSocketURL(url_);
        const auto& client =
            clients_.emplace_back(VXIMClient::clientWithConfiguration(configuration));
        client->setDelegate(shared_from_this());
        client->loginWithUserId("user-" + std::to_string(clients_.size()),
                                [this](bool succeeded, const vexim::ErrorPtr&) {
                                    if (!succeeded) fail("a login was refused");
                                    ++loggedIn_;
                                    logNextIn();
                                });
    }

    const ScaleServer& server_;
    const std::size_t count_;
    const std::optional<vexim::URL> url_;
    std::vector<std::shared_ptr<VXIMClient>> clients_;
    std::size_t loggedIn_ = 0;
    std::size_t heard_ = 0;
};

/// CPU microseconds of this process for each of `count` operations: the best of several rounds.
double costOfEach(std::size_t count, const std::function<void()>& operations) {
    double least = 1e9;
    for (int round = 0; round < kRounds; ++round) {
        const double before = cpuSeconds(RUSAGE_SELF);
        operations();
        least = std::min(least, cpuSeconds(RUSAGE_SELF) - before);
    }
    return least / static_cast<double>(count) * 1e6;
}

/// What is compared between different numbers of clients.
struct Costs {
    double message = 0;
    double heartbeat = 0;
};

Costs measure(std::size_t count) {
    const ScaleServer server;
    const auto gateway = std::make_shared<Gateway>(server, count);
    const std::string who = "scale: " + std::to_string(count) + " clients, ";
    const bool isMost = count >= 10'000;

    MainQueue::shared().runUntil([] { return true; }, 1s);
    const double before = residentKiB();
    const auto begin = Clock::now();
    const double cpuBefore = cpuSeconds(RUSAGE_SELF);
    gateway->logAllIn();
    const double loginSeconds = secondsSince(begin);
    const double loginCost =
        (cpuSeconds(RUSAGE_SELF) - cpuBefore) / static_cast<double>(count) * 1e6;
    printAmount(who + "memory of each", (residentKiB() - before) / static_cast<double>(count),
                "KiB", isMost ? std::optional(24.0) : std::nullopt);
    printAmount(who + "all logged in", loginSeconds, "s", std::nullopt);
    printAmount(who + "CPU of a login", loginCost, "us", std::nullopt);

    Costs costs;
    // Small numbers need more than one round, because the clock is too coarse.
    const std::size_t repeats = 10'000 / count;
    costs.message = costOfEach(count * repeats, [&] {
        for (std::size_t i = 0; i < repeats; ++i) gateway->deliver();
    });
    printAmount(who + "CPU of a message", costs.message, "us", std::nullopt);
    costs.heartbeat = costOfEach(count * repeats, [&] {
        for (std::size_t i = 0; i < repeats; ++i) server.beat();
    });
    printAmount(who + "CPU of a heartbeat", costs.heartbeat, "us", std::nullopt);
    const auto threads = std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
    printAmount(who + "threads", static_cast<double>(threads), "", 4);

    const auto cut = Clock::now();
    gateway->comeBack();
    printAmount(who + "all back after a cut", secondsSince(cut), "s", std::nullopt);
    return costs;
}

/// Runs in its own process.
Costs measureApart(std::size_t count) {
    int ends[2];
    if (::pipe(ends) != 0) std::abort();
    const pid_t child = ::fork();
    if (child == 0) {
        const Costs costs = measure(count);
        std::_Exit(::write(ends[1], &costs, sizeof costs) == sizeof costs ? 0 : 1);
    }
    ::close(ends[1]);
    Costs costs;
    const bool came = ::read(ends[0], &costs, sizeof costs) == sizeof costs;
    ::close(ends[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    if (!came || status != 0) fail("a measuring process failed");
    return costs;
}

/// One row for scripts/bench_instructions.py, which subtracts everything outside a round: the
/// start, the logins and the end.
void countInstructions(const Selection& asked) {
    const std::string row = "scale: a heartbeat, among 10 000 against among 100";
    // So many that the small variation of the logins does not matter.
    constexpr std::size_t kInARound = 100'000;
    if (asked.isList) return Selection::list(row, kInARound);
    if (asked.row != row) return;
    const std::size_t count = asked.isOurs ? 10'000 : 100;
    const std::size_t beats = static_cast<std::size_t>(asked.rounds) * kInARound / count;
    const ScaleServer server;
    const auto gateway = std::make_shared<Gateway>(server, count);
    gateway->logAllIn();
    for (std::size_t i = 0; i < beats; ++i) server.beat();
}

}  // namespace

int main() {
    stayOnOneCore();
    rlimit files{};
    ::getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &files);
    if (files.rlim_max < 10'100) fail("10 000 connections need 'ulimit -n' of 10 100 at least");

    if (const auto& asked = Selection::asked()) {
        countInstructions(*asked);
        return 0;
    }
    const Costs few = measureApart(100);
    measureApart(1000);
    const Costs many = measureApart(10'000);
    printRatio("scale: a message, among 10 000 against among 100", many.message, few.message, "us",
               std::nullopt);
    // Cache misses cost more on some machines. So instructions are limited instead.
    printRatio("scale: a heartbeat, among 10 000 against among 100", many.heartbeat, few.heartbeat,
               "us", std::nullopt);
    return 0;
}
