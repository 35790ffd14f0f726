#include "Operation.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

#include "Explain.h"
#include "VexIMLib/VexIMLib.h"

namespace {

using vexim::Value;

/// One value in one line: text as it stands, anything else as JSON.
std::string inOneLine(const Value& value) {
    if (const auto text = value.asString()) return *text;
    return vexim::writeJSON(value, vexim::JSONFragments::Allow).text;
}

/// A dictionary as "key: value" lines, a list with a line for each element, anything else as it is.
void printText(const Value& value) {
    if (const auto* dictionary = value.asDictionary()) {
        for (const auto& [key, entry] : *dictionary) {
            std::printf("%.*s: %s\n", static_cast<int>(key.size()), key.data(), inOneLine(entry).c_str());
        }
    } else if (const auto* array = value.asArray()) {
        for (const auto& element : *array) std::printf("%s\n", inOneLine(element).c_str());
    } else if (!value.isNil()) {
        std::printf("%s\n", inOneLine(value).c_str());
    }
}

}  // namespace

int perform(Output output, const std::function<void(VXIMResultCompletion)>& operation) {
    struct Outcome {
        bool arrived = false;
        Value result;
        vexim::ErrorPtr error;
    };
    auto outcome = std::make_shared<Outcome>();
    operation([outcome](Value result, vexim::ErrorPtr error) { *outcome = {true, std::move(result), std::move(error)}; });
    if (!vexim::MainQueue::shared().runUntil([&] { return outcome->arrived; }, std::chrono::seconds(30))) {
        std::fputs("vexim: the service did not answer\n", stderr);
        return 1;
    }
    if (outcome->error) {
        std::fprintf(stderr, "vexim: %s\n", explain(outcome->error).c_str());
        return 1;
    }
    switch (output) {
        case Output::Text: printText(outcome->result); break;
        case Output::JSON: {
            const Value& printed = outcome->result.isNil() ? Value::null() : outcome->result;
            std::printf("%s\n", vexim::writeJSON(printed, vexim::JSONFragments::Allow).text.c_str());
            break;
        }
    }
    return 0;
}
