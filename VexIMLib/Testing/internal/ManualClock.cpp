#include "VexIMLib/Testing/ManualClock.h"

#include <algorithm>
#include <future>
#include <stdexcept>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim::testing {

class ManualClock::Hand final : public Clock {
public:
    explicit Hand(double wallTime) : start_(wallTime) {}
    TimePoint now() const override {
        const MutexLock lock(mutex_);
        // not zero, which some code may read as "never"
        return TimePoint(elapsed_ + std::chrono::hours(1));
    }
    double wallTime() const override {
        const MutexLock lock(mutex_);
        return start_ + std::chrono::duration<double>(elapsed_).count();
    }
    /// Ready when everything that waits by the clock has checked it.
    std::future<void> turn(std::chrono::nanoseconds by) {
        {
            const MutexLock lock(mutex_);
            elapsed_ += by;
        }
        auto looked = std::make_shared<std::promise<void>>();
        Clock::didTurn([looked] { looked->set_value(); });
        return looked->get_future();
    }

private:
    mutable Mutex mutex_;
    const double start_;
    std::chrono::nanoseconds elapsed_ VEXIM_GUARDED_BY(mutex_){0};
};

namespace {

// More than any test needs. A function that always queues itself again would never end.
constexpr std::size_t kMostFunctions = 1'000'000;
// How far one step of `runUntil` advances, and the real time in it for threads that do not wait by
// the clock.
constexpr std::chrono::milliseconds kStep{250};
constexpr std::chrono::microseconds kPause{200};
// How long to wait for the network thread to check the clock. While the process exits, there is no
// thread to wait for.
constexpr std::chrono::seconds kPatience{5};

std::size_t drainAll() {
    std::size_t total = 0;
    while (const auto ran = MainQueue::shared().drain()) {
        total += ran;
        if (total > kMostFunctions) throw std::logic_error("the main queue never becomes empty");
    }
    return total;
}

}  // namespace

ManualClock::ManualClock(double wallTime) : hand_(std::make_shared<Hand>(wallTime)) {
    Clock::setShared(hand_);
}

ManualClock::~ManualClock() {
    Clock::setShared(nullptr);
    Clock::didTurn();
}

void ManualClock::advance(std::chrono::nanoseconds by) {
    hand_->turn(by);
    MainQueue::shared().async([] {});  // whoever runs it checks again, too
}

std::size_t ManualClock::advanceAndDrain(std::chrono::nanoseconds by) {
    const auto target = hand_->now() + by;
    std::size_t total = drainAll();
    for (auto next = MainQueue::shared().nextDeadline(); next && *next <= target;
         next = MainQueue::shared().nextDeadline()) {
        if (*next > hand_->now()) hand_->turn(*next - hand_->now());
        total += drainAll();
    }
    if (target > hand_->now()) hand_->turn(target - hand_->now());
    return total + drainAll();
}

bool ManualClock::runUntil(const std::function<bool()>& predicate, std::chrono::nanoseconds most) {
    auto& queue = MainQueue::shared();
    const auto end = hand_->now() + most;
    while (!queue.runUntil(predicate, kPause)) {
        if (hand_->now() >= end) return false;
        // Wait until all have checked the clock. So even on a slow machine, an immediate answer is
        // in time.
        hand_->turn(std::min<std::chrono::nanoseconds>(kStep, end - hand_->now()))
            .wait_for(kPatience);
    }
    return true;
}

Clock& ManualClock::clock() const noexcept { return *hand_; }
Clock::TimePoint ManualClock::now() const { return hand_->now(); }
double ManualClock::wallTime() const { return hand_->wallTime(); }

}  // namespace vexim::testing
