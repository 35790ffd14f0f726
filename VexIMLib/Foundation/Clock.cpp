#include "VexIMLib/Foundation/Clock.h"

#include <utility>

#include "VexIMLib/Foundation/SharedSlot.h"

namespace vexim {

namespace {

class SystemClock final : public Clock {
public:
    TimePoint now() const override { return std::chrono::steady_clock::now(); }
    double wallTime() const override {
        return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    }
};

detail::SharedSlot<Clock>& slot() {
    static auto& slot = *new detail::SharedSlot<Clock>(Clock::system());
    return slot;
}

}  // namespace

Clock::~Clock() = default;

std::shared_ptr<Clock> Clock::system() {
    static auto& clock = *new std::shared_ptr<Clock>(std::make_shared<SystemClock>());
    return clock;
}

std::shared_ptr<Clock> Clock::shared() { return slot().get(); }

void Clock::setShared(std::shared_ptr<Clock> clock) { slot().set(clock ? std::move(clock) : system()); }

}  // namespace vexim
