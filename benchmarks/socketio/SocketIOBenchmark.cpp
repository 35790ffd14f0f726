// The live connection, compared with what one would write by hand and with the official JavaScript
// client. All figures are CPU time of all threads of the process. Servers run in other processes.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "VexIMLib/Foundation/JSON.h"
#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/SocketIOClient.h"
#include "networking/CPUTime.h"
#include "socketio/BeastClients.h"
#include "socketio/PeerServer.h"
#include "support/Selection.h"
#include "support/Table.h"

namespace {

using namespace std::chrono_literals;
using namespace vexim;
using namespace vexim::bench;

template <class Work>
double costOf(long count, Work work) {
    const double before = cpuSeconds(RUSAGE_SELF);
    work();
    return (cpuSeconds(RUSAGE_SELF) - before) * 1e6 / static_cast<double>(count);
}

/// The best of some rounds, because other load can only make it worse.
template <class Work>
double leastOf(int rounds, long count, Work work) {
    double least = 1e18;
    for (int i = 0; i < rounds; ++i) least = std::min(least, costOf(count, work));
    return least;
}

void wait(const std::function<bool()>& until) {
    if (MainQueue::shared().runUntil(until, 120s)) return;
    std::fprintf(stderr, "the benchmark hangs\n");
    std::_Exit(1);
}

std::shared_ptr<SocketIOClient> makeClient(const PeerServer& server, Dictionary parameters) {
    Dictionary options{
        {"forceWebsockets", true}, {"reconnects", false}, {"connectParams", std::move(parameters)}};
    if (server.isSecure()) options.set("caPEM", server.authorityPEM());
    auto client = SocketIOClient::create(URL::parse(server.url()), options);
    client->joinNamespace("/chat");
    return client;
}

std::shared_ptr<SocketIOClient> connect(const PeerServer& server, Dictionary parameters) {
    auto client = makeClient(server, std::move(parameters));
    client->connect();
    wait([&] { return client->status() == SocketIOStatusConnected; });
    return client;
}

void receive(const PeerServer& server, long count) {
    const auto client = makeClient(server, {{"flood", count}});
    std::int64_t sum = 0;
    long seen = 0;
    client->on("message", [&](const Array& arguments, const AckEmitter&) {
        sum += arguments.get(0).get("ts").longLongValue();
        ++seen;
    });
    client->connect();
    wait([&] { return seen == count; });
}

/// Like an application that emits now and then: in turns, each sent before the next.
void emitInTurns(SocketIOClient& client, const Array& items, long count) {
    for (long i = 0; i < count; ++i) {
        while (!client.emit("say", items)) MainQueue::shared().drain();
    }
}

long residentKiB() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmRSS:")) return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return 0;
}

/// CPU microseconds of each message; nullopt if the official client is not installed.
std::optional<double> withJavaScript(const char* what, const PeerServer& server, long count) {
    ::setenv("PEER_CA", server.authorityPEM().c_str(), 1);
    const std::string command = std::string("node " VEXIM_BENCH_FOLDER "/client.mjs ") + what +
                                " " + server.url() + " " + std::to_string(count) + " '" + kMessage +
                                "'";
    FILE* output = ::popen(command.c_str(), "r");
    double micros = 0;
    const bool isRead = output && std::fscanf(output, "%lf", &micros) == 1;
    if (output) ::pclose(output);
    if (isRead) return micros;
    std::printf("%s: the official client is not installed (npm ci in tests/interop)\n", what);
    return std::nullopt;
}

constexpr const char* kReceive = "receive, Beast behind 64 KiB and a tree";
constexpr const char* kConnect = "connect, Beast";

/// Runs one row to count its instructions; false if that was not asked for.
bool doneAsSelected(const PeerServer& server) {
    constexpr int kMessages = 20'000;
    constexpr int kConnects = 200;
    const std::string group = "Socket.IO ";
    const auto receiveOurs = [&] { receive(server, kMessages); };
    const auto receivePeer = [&] { receiveWithBufferedReads(server, kMessages); };
    const auto connectOurs = [&] {
        for (int i = 0; i < kConnects; ++i) connect(server, {{"x", 1}});
    };
    const auto connectPeer = [&] {
        for (int i = 0; i < kConnects; ++i) connectAndClose(server);
    };
    // Each does only its own row, so call both.
    const bool isReceive =
        Selection::handles(group + kReceive, kMessages, receiveOurs, receivePeer);
    const bool isConnect =
        Selection::handles(group + kConnect, kConnects, connectOurs, connectPeer);
    return isReceive || isConnect;
}

/// Plain connections have limits; the same rows over TLS are for information.
void printComparison(const PeerServer& server, const char* name, double ours, double peer,
                     std::optional<double> limit) {
    printRatio(std::string(server.isSecure() ? "Socket.IO over TLS " : "Socket.IO ") + name, ours,
               peer, "us", server.isSecure() ? std::nullopt : limit);
}

void measureConnect(const PeerServer& server) {
    // Many short turns, so that some of them run while the machine does nothing else.
    const int turns = server.isSecure() ? 20 : 100;
    constexpr long kConnects = 100;
    double bare = 1e18;
    double ours = 1e18;
    for (int turn = 0; turn < turns; ++turn) {
        bare = std::min(bare, costOf(kConnects, [&] {
                            for (long i = 0; i < kConnects; ++i) connectAndClose(server);
                        }));
        ours = std::min(ours, costOf(kConnects, [&] {
                            for (long i = 0; i < kConnects; ++i) connect(server, {{"x", 1}});
                        }));
    }
    printComparison(server, kConnect, ours, bare, 1.6);
}

void measure(const PeerServer& server) {
    constexpr long kMessages = 200'000;
    constexpr int kRounds = 3;
    const auto compare = [&](const char* name, double ours, double peer,
                             std::optional<double> limit) {
        printComparison(server, name, ours, peer, limit);
    };
    const auto tell = [&](const char* name, double amount, const char* unit, double limit) {
        printAmount(std::string(server.isSecure() ? "Socket.IO over TLS " : "Socket.IO ") + name,
                    amount, unit, server.isSecure() ? std::nullopt : std::optional(limit));
    };
    receive(server, 1000);  // to start the network thread, or make the TLS context

    // First, because later the memory would come from free blocks of the heap.
    {
        constexpr long kIdle = 2000;
        std::vector<std::shared_ptr<SocketIOClient>> idle;
        idle.reserve(kIdle);
        const long before = residentKiB();
        for (long i = 0; i < kIdle; ++i) idle.push_back(connect(server, {{"x", 1}}));
        tell("idle connection", static_cast<double>(residentKiB() - before) / kIdle, "KiB", 12);
        const auto threads =
            std::distance(std::filesystem::directory_iterator("/proc/self/task"), {});
        tell("threads with 2000 connections", static_cast<double>(threads), "", 4);
    }

    const double asynchronous =
        leastOf(kRounds, kMessages, [&] { receiveWithAsyncReads(server, kMessages); });
    const double buffered =
        leastOf(kRounds, kMessages, [&] { receiveWithBufferedReads(server, kMessages); });
    const double received = leastOf(kRounds, kMessages, [&] { receive(server, kMessages); });
    compare("receive, Beast async_read and a tree", received, asynchronous, 0.75);
    compare(kReceive, received, buffered, 0.7);
    const auto script = withJavaScript("receive", server, kMessages);
    if (script) compare("receive, official JavaScript client", received, *script, std::nullopt);

    const Array items{parseJSON(kMessage).value};
    const double coalesced = leastOf(kRounds, kMessages, [&] { emitCoalesced(server, kMessages); });
    const auto sink = connect(server, {{"sink", 1}});
    const double emitted =
        leastOf(kRounds, kMessages, [&] { emitInTurns(*sink, items, kMessages); });
    const auto scriptEmitted = withJavaScript("emit", server, kMessages);
    if (scriptEmitted) compare("emit, official JavaScript client", emitted, *scriptEmitted, 0.28);
    compare("emit in a burst, coalescing writer", emitted, coalesced, 2.0);

    {
        const auto deaf = connect(server, {{"silent", 1}});
        const long before = residentKiB();
        for (long i = 0; i < kMessages; ++i) {
            if (deaf->emit("say", items)) continue;
            std::fprintf(stderr, "the queue was full\n");
            std::_Exit(1);
        }
        tell("200 000 queued emits", static_cast<double>(residentKiB() - before) / 1024, "MiB", 64);
    }
    measureConnect(server);
}

}  // namespace

int main() {
    const PeerServer plain(PeerServer::Wire::Plain);
    const PeerServer secure(PeerServer::Wire::Tls);
    ::setenv("no_proxy", "*", 1);
    MainQueue::shared().drain();
    if (doneAsSelected(plain)) return 0;
    measure(plain);
    measure(secure);
    return 0;
}
