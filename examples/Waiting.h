#pragma once

#include <VexIMLib/VexIMLib.h>

#include <chrono>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>

// [succeeds]
/// Starts an operation and runs the main queue until its completion has run, ten seconds at most.
/// For programs that do one thing after the other.
inline bool succeeds(const std::function<void(VXIMBooleanCompletion)>& start) {
    // shared, because the answer may come after the ten seconds
    const auto outcome = std::make_shared<std::optional<bool>>();
    start([outcome](bool succeeded, vexim::ErrorPtr error) {
        if (error) std::cerr << error->description() << '\n';
        *outcome = succeeded;
    });
    vexim::MainQueue::shared().runUntil([&] { return outcome->has_value(); },
                                        std::chrono::seconds(10));
    return outcome->value_or(false);
}
// [/succeeds]

/// Runs the main queue until `predicate` is true. Returns false if that takes over ten seconds.
inline bool becomesTrue(const std::function<bool()>& predicate) {
    return vexim::MainQueue::shared().runUntil(predicate, std::chrono::seconds(10));
}

/// A client of the local service, whose application is "demo-app".
inline std::shared_ptr<VXIMClient> demoClient(const char* url) {
    auto client = VXIMClient::clientWithAppId("demo-app", "demo-key", "example");
    client->config()->setSocketURL(vexim::URL::parse(url));
    return client;
}
