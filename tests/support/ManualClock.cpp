#include "support/ManualClock.h"

#include <gtest/gtest.h>

#include <mutex>

#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim::testing {

class ManualClock::Hand final : public Clock {
public:
    explicit Hand(double wallTime) : start_(wallTime) {}
    TimePoint now() const override {
        std::lock_guard lock(mutex_);
        return TimePoint(elapsed_ + std::chrono::hours(1));  // not zero, which some code may take for "never"
    }
    double wallTime() const override {
        std::lock_guard lock(mutex_);
        return start_ + std::chrono::duration<double>(elapsed_).count();
    }
    void turn(std::chrono::nanoseconds by) {
        std::lock_guard lock(mutex_);
        elapsed_ += by;
    }

private:
    mutable std::mutex mutex_;
    const double start_;
    std::chrono::nanoseconds elapsed_{0};
};

namespace {

// More than any test means to run: a function that queues itself again at once would go on for ever.
constexpr std::size_t kMostFunctions = 1'000'000;

std::size_t drainAll() {
    std::size_t total = 0;
    while (const auto ran = MainQueue::shared().drain()) {
        total += ran;
        if (total > kMostFunctions) {
            ADD_FAILURE() << "the main queue never becomes empty";
            break;
        }
    }
    return total;
}

}  // namespace

ManualClock::ManualClock(double wallTime) : hand_(std::make_shared<Hand>(wallTime)) { Clock::setShared(hand_); }

ManualClock::~ManualClock() { Clock::setShared(nullptr); }

void ManualClock::advance(std::chrono::nanoseconds by) {
    hand_->turn(by);
    MainQueue::shared().async([] {});
}

std::size_t ManualClock::advanceAndDrain(std::chrono::nanoseconds by) {
    const auto target = hand_->now() + by;
    std::size_t total = drainAll();
    for (auto next = MainQueue::shared().nextDeadline(); next && *next <= target; next = MainQueue::shared().nextDeadline()) {
        if (*next > hand_->now()) hand_->turn(*next - hand_->now());
        total += drainAll();
        if (total > kMostFunctions) return total;
    }
    if (target > hand_->now()) hand_->turn(target - hand_->now());
    return total + drainAll();
}

Clock& ManualClock::clock() const noexcept { return *hand_; }
Clock::TimePoint ManualClock::now() const { return hand_->now(); }
double ManualClock::wallTime() const { return hand_->wallTime(); }

}  // namespace vexim::testing
