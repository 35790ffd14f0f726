#include "Operation.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>

#include "Explain.h"
#include "VexIMLib/VexIMLib.h"
#include "chat/Text.h"

namespace {

using vexim::Value;

/// Others have written it: a terminal gets nothing that it would obey, anything else gets it as it
/// stands.
void print(const std::string& line) {
    static const bool isTerminal = isatty(STDOUT_FILENO) != 0;
    std::printf("%s\n", isTerminal ? chat::harmless(line).c_str() : line.c_str());
}

std::string asJSON(const Value& value) {
    return vexim::writeJSON(value, vexim::JSONFragments::Allow).text;
}

/// One value in one line: text as it stands, anything else as JSON.
std::string inOneLine(const Value& value) {
    return value.isString() ? *value.asString() : asJSON(value);
}

/// A dictionary as "key: value" lines, a list with a line for each element, anything else as it is.
void printText(const Value& value) {
    if (const auto* dictionary = value.asDictionary()) {
        for (const auto& [key, entry] : *dictionary)
            print(std::string(key) + ": " + inOneLine(entry));
    } else if (const auto* array = value.asArray()) {
        for (const auto& element : *array) print(inOneLine(element));
    } else if (!value.isNil()) {
        print(inOneLine(value));
    }
}

/// Why an attempt got no answer, as far as the record tells.
std::string reasonOf(const VXIMDiagnosisEvent& failure) {
    if (const auto status = failure.details.get("status"); status.isNumber())
        return "status " + status.description();
    switch (failure.details.get("underlying").longLongValue()) {
        case vexim::URLErrorCannotFindHost: return "no such host";
        case vexim::URLErrorCannotConnectToHost: return "cannot connect";
        case vexim::URLErrorNetworkConnectionLost: return "the connection was lost";
        case vexim::URLErrorTimedOut: return "not in time";
        default: return "see below";
    }
}

/// Runs the main queue until `hasArrived`, for 30 seconds at most. Says so when a first attempt has
/// failed and others follow, which takes seconds.
bool await(const std::function<bool()>& hasArrived, const VXIMClient& client) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    bool isTold = false;
    while (std::chrono::steady_clock::now() < end) {
        if (vexim::MainQueue::shared().runUntil(hasArrived, std::chrono::milliseconds(500)))
            return true;
        const auto events = client.diagnose().events();
        const auto failure = std::ranges::find(events, "request failed", &VXIMDiagnosisEvent::name);
        if (failure != events.end() && !std::exchange(isTold, true)) {
            std::fprintf(stderr, "vexim: no usable answer from %s (%s), trying again …\n",
                         client.config()->socketURL()->host().c_str(), reasonOf(*failure).c_str());
        }
    }
    return false;
}

}  // namespace

int perform(const VXIMClient& client, Output output,
            const std::function<void(VXIMResultCompletion)>& operation) {
    struct Outcome {
        bool arrived = false;
        Value result;
        vexim::ErrorPtr error;
    };
    auto outcome = std::make_shared<Outcome>();
    operation([outcome](Value result, vexim::ErrorPtr error) {
        *outcome = {true, std::move(result), std::move(error)};
    });
    if (!await([&] { return outcome->arrived; }, client)) {
        std::fputs("vexim: the service did not answer\n", stderr);
        return 1;
    }
    if (outcome->error) {
        std::fprintf(stderr, "vexim: %s\n", explain(outcome->error).c_str());
        return 1;
    }
    switch (output) {
        case Output::Text: printText(outcome->result); break;
        case Output::JSON:
            print(asJSON(outcome->result.isNil() ? Value::null() : outcome->result));
            break;
    }
    return 0;
}
