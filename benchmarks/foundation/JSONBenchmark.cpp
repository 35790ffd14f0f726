#include <benchmark/benchmark.h>

#include <boost/json.hpp>
#include <string>

#include "VexIMLib/Foundation/JSON.h"
#include "support/Comparison.h"

namespace {

// One message as the service sends it: 206 bytes.
const std::string kMessage =
    R"({"content":{"media":1,"body":"Shall we meet at the station at seven? I will bring tickets."},"ts":1700000000123,)"
    R"("from":{"id":"5f2b7c9e8a1d4e0012345678"},"to":{"id":"5f2b7c9e8a1d4e00deadbeef","name":"Anne"}})";

std::string history() {
    std::string text = R"({"messages":[)";
    for (int i = 0; i < 1000; ++i) text += (i > 0 ? "," : "") + kMessage;
    return text + "]}";
}

const std::string kHistory = history();

template <const std::string& text>
void readOurs(benchmark::State& state) {
    if (text.size() != 206 && text.size() < 100'000)
        state.SkipWithError("the message is not the one agreed on");
    for (auto _ : state) {
        auto result = vexim::parseJSON(text);
        benchmark::DoNotOptimize(result);
    }
}

template <const std::string& text>
void readPeer(benchmark::State& state) {
    for (auto _ : state) {
        auto tree = boost::json::parse(text);
        benchmark::DoNotOptimize(tree);
    }
}

template <const std::string& text>
void writeOurs(benchmark::State& state) {
    const auto value = vexim::parseJSON(text).value;
    for (auto _ : state) {
        auto written = vexim::writeJSON(value);
        benchmark::DoNotOptimize(written);
    }
}

template <const std::string& text>
void writePeer(benchmark::State& state) {
    const auto tree = boost::json::parse(text);
    for (auto _ : state) {
        auto written = boost::json::serialize(tree);
        benchmark::DoNotOptimize(written);
    }
}

using vexim::bench::compare;
const bool kRegistered =
    compare("JSON in, one message", readOurs<kMessage>, readPeer<kMessage>, 1.0) &&
    compare("JSON out, one message", writeOurs<kMessage>, writePeer<kMessage>, 0.9) &&
    compare("JSON in, history of 1000", readOurs<kHistory>, readPeer<kHistory>, 1.0) &&
    // Both need 200 KB of new pages, which cost more or less on each system. So instructions are
    // limited instead.
    compare("JSON out, history of 1000", writeOurs<kHistory>, writePeer<kHistory>, std::nullopt);

}  // namespace
