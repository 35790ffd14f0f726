#pragma once

#include <atomic>
#include <functional>
#include <thread>

namespace vexim::testing {

/// Calls both functions with each number below `rounds`, on two threads at the same moment.
inline void race(int rounds, const std::function<void(int)>& one,
                 const std::function<void(int)>& other) {
    std::atomic<int> arrived{0};
    const auto run = [&](const std::function<void(int)>& each) {
        for (int round = 0; round < rounds; ++round) {
            ++arrived;
            while (arrived < 2 * (round + 1)) std::this_thread::yield();
            each(round);
        }
    };
    const std::jthread thread([&] { run(other); });
    run(one);
}

}  // namespace vexim::testing
