#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <source_location>
#include <string>
#include <utility>

namespace vexim::testing {

/// Counts the calls of one completion. It fails the test at a second call and at a call off the
/// main thread.
class CompletionWatch : public std::enable_shared_from_this<CompletionWatch> {
public:
    enum class Runs { ExactlyOnce, AtMostOnce };

    static std::shared_ptr<CompletionWatch> make(Runs runs, std::source_location where);
    /// Call it before each call of the completion.
    void called();

private:
    friend class CompletionListener;
    friend std::string describePendingCompletions();
    explicit CompletionWatch(std::source_location where) : where_(where) {}
    const std::source_location where_;
    std::atomic<int> calls_{0};
};

template <class Completion>
auto watched(CompletionWatch::Runs runs, Completion completion, std::source_location where) {
    return [watch = CompletionWatch::make(runs, where),
            completion = std::move(completion)](auto&&... arguments) mutable {
        watch->called();
        return std::invoke(completion, std::forward<decltype(arguments)>(arguments)...);
    };
}

/// Wraps a completion: the test fails when it runs twice, off the main thread, or not at all by the
/// test's end.
///
///     request->sendWithCompletion(once([&](vexim::Value result, vexim::ErrorPtr error) { … }));
template <class Completion>
auto once(Completion completion, std::source_location where = std::source_location::current()) {
    return watched(CompletionWatch::Runs::ExactlyOnce, std::move(completion), where);
}

/// For the operations that are described as sometimes never calling back.
template <class Completion>
auto atMostOnce(Completion completion,
                std::source_location where = std::source_location::current()) {
    return watched(CompletionWatch::Runs::AtMostOnce, std::move(completion), where);
}

/// How many completions that must run exactly once have not run yet in the running test.
std::size_t pendingCompletions();
/// Where these were given, for messages.
std::string describePendingCompletions();

/// Reports the completions that never ran, at the end of each test.
class CompletionListener final : public ::testing::EmptyTestEventListener {
public:
    void OnTestEnd(const ::testing::TestInfo& test) override;
};

}  // namespace vexim::testing
