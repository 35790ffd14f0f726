#pragma once

#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "VexIMLib/Async/Coroutine.h"
#include "VexIMLib/Async/Future.h"
#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim::testing {

/// An operation that the test answers when it wants.
struct Held {
    using Completion = std::function<void(int, ErrorPtr)>;

    Call<int> call() {
        return vexim::call([this](Completion done) {
            ++starts;
            completion = std::move(done);
        });
    }
    /// Answers like the library: on the main queue.
    void answer(int value, ErrorPtr error = nullptr) {
        MainQueue::shared().async(
            [done = completion, value, error = std::move(error)] { done(value, error); });
    }

    int starts = 0;
    Completion completion;
};

inline void drainMainQueue() {
    while (MainQueue::shared().drain() > 0) continue;
}

/// "7", "NSURLErrorDomain -999", …
inline std::string describe(const Result<int>& result) {
    return result.error ? result.error->domain() + " " + std::to_string(result.error->code())
                        : std::to_string(result.value);
}
inline std::string describe(std::future<int>& future) {
    if (future.wait_for(std::chrono::seconds(0)) != std::future_status::ready) return "pending";
    try {
        return std::to_string(future.get());
    } catch (const Failure& failure) {
        return describe(Result<int>{0, failure.error()});
    }
}

/// A task that awaits one call and records the result on the thread where it continues.
inline Task<> record(Call<int> call, std::string& into) {
    const auto result = co_await std::move(call);
    into = describe(result) + (MainQueue::shared().isMainThread() ? "" : ", off the main thread");
}

}  // namespace vexim::testing
