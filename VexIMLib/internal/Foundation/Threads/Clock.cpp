#include "VexIMLib/Foundation/Clock.h"

#include <utility>
#include <vector>

#include "VexIMLib/internal/Foundation/Threads/SharedSlot.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {

namespace {

class SystemClock final : public Clock {
public:
    TimePoint now() const override { return std::chrono::steady_clock::now(); }
    double wallTime() const override {
        return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    }
};

detail::SharedSlot<Clock>& slot() {
    static auto& slot = *new detail::SharedSlot<Clock>(Clock::system());
    return slot;
}

struct TurnListeners {
    Mutex mutex;
    std::vector<std::weak_ptr<detail::ClockListener>> all VEXIM_GUARDED_BY(mutex);

    static TurnListeners& shared() {
        static auto& listeners = *new TurnListeners;
        return listeners;
    }
};

}  // namespace

Clock::~Clock() = default;

std::shared_ptr<Clock> Clock::system() {
    static auto& clock = *new std::shared_ptr<Clock>(std::make_shared<SystemClock>());
    return clock;
}

std::shared_ptr<Clock> Clock::shared() { return slot().get(); }

void Clock::setShared(std::shared_ptr<Clock> clock) {
    slot().set(clock ? std::move(clock) : system());
}

void Clock::didTurn(std::function<void()> looked) {
    auto& listeners = TurnListeners::shared();
    std::vector<std::shared_ptr<detail::ClockListener>> present;
    {
        const MutexLock lock(listeners.mutex);
        for (const auto& weak : listeners.all) {
            if (auto listener = weak.lock()) present.push_back(std::move(listener));
        }
    }
    const std::shared_ptr<void> looking(nullptr, [looked = std::move(looked)](void*) {
        if (looked) looked();
    });
    for (const auto& listener : present) (*listener)(looking);
}

std::shared_ptr<void> detail::onClockTurned(ClockListener listener) {
    auto& listeners = TurnListeners::shared();
    auto kept = std::make_shared<ClockListener>(std::move(listener));
    const MutexLock lock(listeners.mutex);
    std::erase_if(listeners.all, [](const auto& weak) { return weak.expired(); });
    listeners.all.push_back(kept);
    return kept;
}

}  // namespace vexim
