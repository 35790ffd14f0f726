#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <list>
#include <stdexcept>
#include <string>

#include "resources/Operations.h"
#include "support/Eventually.h"
#include "support/RecordingService.h"

namespace vexim::testing {

/// Runs operations against a service whose answer the test chooses.
class Operations : public ::testing::Test {
protected:
    /// Runs the operation of that name to its end.
    const Outcome& run(const std::string& name) {
        const auto& all = allOperations();
        const auto operation = std::find_if(all.begin(), all.end(),
                                            [&](const Operation& o) { return name == o.name; });
        if (operation == all.end()) throw std::invalid_argument("no operation " + name);
        outcomes_.emplace_back();
        Outcome& outcome = outcomes_.back();
        operation->start(resources, outcome);
        EXPECT_TRUE(eventually([&] { return outcome.hasEnded(); })) << name;
        return outcome;
    }

    RecordingService service;
    Resources resources;

private:
    std::list<Outcome> outcomes_;  // completions report into them by reference
};

}  // namespace vexim::testing
