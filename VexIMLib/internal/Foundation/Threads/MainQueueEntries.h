#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "VexIMLib/Foundation/Clock.h"

// The contents of the main queue: functions in line, and those that wait for their time.
namespace vexim {

/// A function in the queue, or a step, which stays there until it is done. The numbers give the
/// order, so that a drain knows what was there when it began.
struct Queued {
    std::uint64_t number = 0;
    std::function<void()> function;
    std::shared_ptr<std::function<bool()>> step;

    explicit operator bool() const noexcept { return function || step; }
};

struct Delayed {
    Clock::TimePoint deadline;
    std::uint64_t number;
    mutable std::function<void()> function;  // moved out of the heap's const top

    friend bool operator<(const Delayed& a, const Delayed& b) {  // the earliest is the heap's top
        return a.deadline != b.deadline ? a.deadline > b.deadline : a.number > b.number;
    }
};

}  // namespace vexim
