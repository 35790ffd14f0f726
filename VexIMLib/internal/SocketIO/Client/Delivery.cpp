#include "VexIMLib/internal/SocketIO/Client/Delivery.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim {
namespace {

// The memory of an event besides its text. For short events that is nearly all of it, and a server
// can send millions of them.
constexpr std::size_t kItemBytes = 256;
// The limit for events that the main queue has not taken yet. Even while reading is paused some are
// read because of the heartbeat, so there must be a limit.
constexpr std::size_t kMaxUndeliveredBytes = std::size_t{64} << 20;

/// Appends `more` to `items` and leaves it empty. If `items` is empty, the two swap their memory.
void append(std::vector<Delivery::Item>& items, std::vector<Delivery::Item>& more) {
    if (items.empty()) return items.swap(more);
    std::ranges::move(more, std::back_inserter(items));
    more.clear();
}

}  // namespace

Delivery::Delivery(std::size_t maxReadAhead, std::function<void()> didDeliver)
    : maxReadAhead_(maxReadAhead),
      didDeliver_(std::move(didDeliver)) {}

void Delivery::addBytes(Item& item) {
    // There are at most as many errors for callbacks as the application has requested answers, so
    // they need no limit.
    if (!item.error) item.bytes += kItemBytes;
    undeliveredBytes_ += item.bytes;
}

void Delivery::push(Item item) {
    const MutexLock lock(mutex_);
    addBytes(item);
    inbox_.push_back(std::move(item));
}

void Delivery::pushAll(std::vector<Item>& items) {
    const MutexLock lock(mutex_);
    for (auto& item : items) addBytes(item);
    append(inbox_, items);
}

std::size_t Delivery::count() const {
    const MutexLock lock(mutex_);
    return inbox_.size();
}

bool Delivery::claimRun() {
    const MutexLock lock(mutex_);
    return !inbox_.empty() && !std::exchange(isRunClaimed_, true);
}

bool Delivery::overflows() const {
    const MutexLock lock(mutex_);
    return undeliveredBytes_ > kMaxUndeliveredBytes;
}

bool Delivery::pauseIfFull() {
    const MutexLock lock(mutex_);
    const bool isFull = undeliveredBytes_ >= maxReadAhead_;
    isPaused_ = isPaused_ || isFull;
    return isFull;
}

bool Delivery::isPaused() const {
    const MutexLock lock(mutex_);
    return isPaused_;
}

void Delivery::endPause() {
    const MutexLock lock(mutex_);
    isPaused_ = false;
}

/// Resume reading only when half of the space is free; otherwise each event would stop and start
/// it.
bool Delivery::subtractDelivered() {
    const MutexLock lock(mutex_);
    undeliveredBytes_ -= std::exchange(deliveredBytes_, 0);
    if (!isPaused_ || undeliveredBytes_ > maxReadAhead_ / 2) return false;
    isPaused_ = false;
    return true;
}

Delivery::Levels Delivery::levels() const {
    const MutexLock lock(mutex_);
    return {inbox_.size() + undeliveredReady_, undeliveredBytes_};
}

bool Delivery::deliverSome(bool isContinued) {
    if (!isContinued) {
        const MutexLock lock(mutex_);
        append(ready_, inbox_);
        undeliveredReady_ = ready_.size() - nextReady_;
        isRunClaimed_ = false;
    }
    // Even if a handler throws, the rest stays in the queue. Inside a handler, its own event is
    // already subtracted.
    struct Turn {
        Delivery& delivery;
        ~Turn() {
            delivery.didTakeTurn();
            delivery.didDeliver_();
        }
    } turn{*this};
    while (nextReady_ < ready_.size()) {
        const Item next = std::move(ready_[nextReady_++]);
        deliveredBytes_ += next.bytes;
        deliver(next);
        if (detail::isTurnOver()) break;
    }
    return nextReady_ < ready_.size();
}

void Delivery::didTakeTurn() {
    const bool isThrough = nextReady_ == ready_.size();
    if (isThrough) {
        ready_.clear();
        nextReady_ = 0;
    }
    const MutexLock lock(mutex_);
    // While events keep coming, reuse the memory of their list; an idle connection keeps none.
    if (isThrough && inbox_.empty()) std::vector<Item>().swap(ready_);
    undeliveredReady_ = ready_.size() - nextReady_;
}

void Delivery::deliver(const Item& item) const {
    if (item.callback) return item.callback(item.arguments, item.error);
    handlers_.call(item.event.asStringView().value_or(""), item.arguments, item.ack);
}

}  // namespace vexim
