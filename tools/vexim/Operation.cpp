#include "Operation.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

#include "Explain.h"
#include "Table.h"
#include "VexIMLib/VexIMLib.h"
#include "chat/Text.h"

namespace {

using vexim::Value;

/// Why an attempt got no answer, if the record of events says so.
std::string reasonOf(const VXIMDiagnosisEvent& failure) {
    if (const auto status = failure.details.get("status"); status.isNumber())
        return "status " + status.description();
    switch (failure.details.get("underlying").longLongValue()) {
        case vexim::URLErrorCannotFindHost: return "no such host";
        case vexim::URLErrorCannotConnectToHost: return "cannot connect";
        case vexim::URLErrorNetworkConnectionLost: return "the connection was lost";
        case vexim::URLErrorTimedOut: return "timed out";
        default: return "see below";
    }
}

/// Runs the main queue until `hasArrived` is true, for 30 seconds at most. If the first attempt has
/// failed, it says that others follow, because that takes seconds.
bool await(const std::function<bool()>& hasArrived, const VXIMClient& client) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    bool isReported = false;
    while (std::chrono::steady_clock::now() < end) {
        if (vexim::MainQueue::shared().runUntil(hasArrived, std::chrono::milliseconds(500)))
            return true;
        const auto events = client.diagnose().events();
        const auto failure = std::ranges::find(events, "request failed", &VXIMDiagnosisEvent::name);
        if (failure != events.end() && !std::exchange(isReported, true)) {
            std::fprintf(stderr, "vexim: no usable answer from %s (%s), trying again …\n",
                         client.config()->socketURL()->host().c_str(), reasonOf(*failure).c_str());
        }
    }
    return false;
}

}  // namespace

void printJSON(const Value& value) {
    const auto text =
        vexim::writeJSON(value.isNil() ? Value::null() : value, vexim::JSONFragments::Allow).text;
    // On a terminal, leave out control sequences.
    static const bool isTerminal = isatty(STDOUT_FILENO) != 0;
    std::printf("%s\n", isTerminal ? chat::harmless(text).c_str() : text.c_str());
}

int perform(const VXIMClient& client, Output output,
            const std::function<void(VXIMResultCompletion)>& operation,
            const std::function<Value(const Value&)>& shown) {
    struct Outcome {
        bool arrived = false;
        Value result;
        vexim::ErrorPtr error;
    };
    auto outcome = std::make_shared<Outcome>();
    operation([outcome](Value result, vexim::ErrorPtr error) {
        *outcome = {true, std::move(result), std::move(error)};
    });
    if (!await([&] { return outcome->arrived; }, client))
        throw std::runtime_error("the service did not answer");
    if (outcome->error) throw std::runtime_error(explain(outcome->error));
    const auto& result = outcome->result;
    switch (output) {
        case Output::Text:
            std::fputs(tableOf(shown ? shown(result) : result).c_str(), stdout);
            if (result.asArray() != nullptr && result.asArray()->empty())
                std::fputs("vexim: there are none\n", stderr);
            break;
        case Output::JSON: printJSON(result); break;
    }
    return 0;
}
