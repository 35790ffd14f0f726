#include "VexIMLib/C/internal/Mailbox.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <utility>

#include "VexIMLib/C/internal/Errors.h"
#include "VexIMLib/Foundation/MainQueue.h"

namespace vexim::c {

std::optional<Mailbox::RequestId> Mailbox::open(std::string extra, std::size_t bytes) {
    bytes += extra.size() + kRequestBytes;
    const MutexLock lock(mutex_);
    if (closed_) return std::nullopt;
    if (bytes_ + bytes > limit_) {
        pushAnswer(
            extra, Outcome::Error,
            errorBody(InterfaceError::TooMuch, "Too many answers are waiting to be received."));
        return std::nullopt;
    }
    bytes_ += bytes;
    requests_.emplace(++lastId_, OpenRequest{std::move(extra), bytes, nullptr, std::nullopt});
    return lastId_;
}

bool Mailbox::isOpen(RequestId id) const {
    const MutexLock lock(mutex_);
    return requests_.contains(id);
}

std::optional<std::string> Mailbox::extraOf(RequestId id) const {
    const MutexLock lock(mutex_);
    const auto found = requests_.find(id);
    if (found == requests_.end()) return std::nullopt;
    return found->second.extra;
}

void Mailbox::answer(RequestId id, Outcome outcome, std::string_view body) {
    Transfers ended;  // destroyed without the lock
    const MutexLock lock(mutex_);
    if (const auto found = requests_.find(id); found != requests_.end())
        end(found, outcome, body, ended);
}

bool Mailbox::attach(RequestId id, std::shared_ptr<VXIMTransfer> transfer) {
    const MutexLock lock(mutex_);
    const auto found = requests_.find(id);
    if (found == requests_.end()) return false;
    found->second.transfer = std::move(transfer);
    return true;
}

bool Mailbox::setDeadline(RequestId id, Clock::TimePoint deadline) {
    const MutexLock lock(mutex_);
    const auto found = requests_.find(id);
    if (found == requests_.end()) return false;
    found->second.deadline = deadline;
    const auto added = deadlines_.emplace(deadline, id).first;
    return added == deadlines_.begin();
}

std::optional<Clock::TimePoint> Mailbox::nextDeadline() const {
    const MutexLock lock(mutex_);
    if (deadlines_.empty()) return std::nullopt;
    return deadlines_.begin()->first;
}

Mailbox::Transfers Mailbox::expire(Clock::TimePoint now, std::string_view error) {
    Transfers transfers;
    const MutexLock lock(mutex_);
    while (!deadlines_.empty() && deadlines_.begin()->first <= now) {
        end(requests_.find(deadlines_.begin()->second), Outcome::Error, error, transfers);
    }
    return transfers;
}

Mailbox::Transfers Mailbox::cancel(std::string_view extra, RequestId except, std::string_view error,
                                   std::size_t& count) {
    Transfers transfers;
    const MutexLock lock(mutex_);
    for (auto next = requests_.begin(); next != requests_.end();) {
        if (next->first == except || next->second.extra != extra) {
            ++next;
            continue;
        }
        next = end(next, Outcome::Error, error, transfers);
        ++count;
    }
    return transfers;
}

Mailbox::Transfers Mailbox::close(std::string_view error) {
    Transfers transfers;
    const MutexLock lock(mutex_);
    if (std::exchange(closed_, true)) return transfers;
    blanks_ = {};
    std::erase_if(items_, [](const Item& item) { return item.kind == Item::Kind::Event; });
    bytes_ = 0;
    for (const Item& item : items_) bytes_ += bytesOf(item);
    // In the order in which they were sent.
    std::vector<RequestId> ids;
    for (const auto& [id, request] : requests_) {
        bytes_ += request.bytes;
        ids.push_back(id);
    }
    std::ranges::sort(ids);
    for (const RequestId id : ids) end(requests_.find(id), Outcome::Error, error, transfers);
    pipe_.close();
    changed_.notifyAll();
    return transfers;
}

bool Mailbox::event(std::string text) {
    Item item{Item::Kind::Event, std::move(text)};
    const MutexLock lock(mutex_);
    if (closed_) return false;
    if (bytes_ + bytesOf(item) > limit_) {
        drop(Item::Kind::Event);
        return false;
    }
    push(std::move(item));
    return true;
}

bool Mailbox::receive(double seconds, std::string& text) {
    using SteadyClock = std::chrono::steady_clock;
    constexpr double kLongest = 1e8;  // three years
    const bool waits = seconds > 0;   // false for NaN
    SteadyClock::time_point until;
    if (waits) {
        until =
            SteadyClock::now() + std::chrono::duration_cast<SteadyClock::duration>(
                                     std::chrono::duration<double>(std::min(seconds, kLongest)));
    }
    Item item;
    {
        const MutexLock lock(mutex_);
        while (items_.empty()) {
            pipe_.clear();
            if (closed_ || !waits || SteadyClock::now() >= until) return false;
            ++waiting_;
            changed_.waitUntil(mutex_, until);
            --waiting_;
        }
        item = std::move(items_.front());
        items_.pop_front();
        if (text.capacity() >= kItemBytes && text.capacity() <= kLargestBlank &&
            blanks_.size() < kMostBlanks && !closed_) {
            blanks_.push_back(std::move(text));
        }
        bytes_ -= bytesOf(item);
        if (item.kind == Item::Kind::Overflow) {
            item.text = R"({"@type":"event","name":"overflow","events":)" +
                        std::to_string(item.events) + R"(,"answers":)" +
                        std::to_string(item.answers) + '}';
        }
    }
    text = std::move(item.text);
    return true;
}

std::string Mailbox::blank() {
    std::string text;
    const MutexLock lock(mutex_);
    if (blanks_.empty()) return text;
    text = std::move(blanks_.back());
    blanks_.pop_back();
    text.clear();
    return text;
}

std::size_t Mailbox::size() const {
    const MutexLock lock(mutex_);
    return bytes_;
}

bool Mailbox::isSpent() const {
    const MutexLock lock(mutex_);
    return closed_ && items_.empty();
}

std::optional<int> Mailbox::descriptor() {
    const MutexLock lock(mutex_);
    const bool isFirst = !pipe_.isOpen();
    const auto descriptor = closed_ ? std::nullopt : pipe_.open();
    if (descriptor && isFirst && !items_.empty()) wakeNow();
    return descriptor;
}

void Mailbox::push(Item item) {
    bytes_ += bytesOf(item);
    items_.push_back(std::move(item));
    wake();
}

void Mailbox::pushAnswer(std::string_view extra, Outcome outcome, std::string_view body) {
    static constexpr std::string_view kAnswer = R"({"@type":"answer","@extra":)";
    static constexpr std::string_view kError = R"({"@type":"error","@extra":)";
    const bool failed = outcome == Outcome::Error;
    Item item{Item::Kind::Answer, {}};
    item.text.reserve(kAnswer.size() + extra.size() + body.size() + 16);
    item.text.append(failed ? kError : kAnswer).append(extra);
    item.text.append(failed ? R"(,"error":)" : R"(,"result":)").append(body).append("}");
    if ((bytes_ + bytesOf(item)) / 4 > limit_) return drop(Item::Kind::Answer);
    push(std::move(item));
}

void Mailbox::drop(Item::Kind kind) {
    if (items_.empty() || items_.back().kind != Item::Kind::Overflow)
        push({Item::Kind::Overflow, {}});
    ++(kind == Item::Kind::Event ? items_.back().events : items_.back().answers);
}

Mailbox::Requests::iterator Mailbox::end(Requests::iterator request, Outcome outcome,
                                         std::string_view body, Transfers& transfers) {
    OpenRequest ended = std::move(request->second);
    if (ended.deadline) deadlines_.erase({*ended.deadline, request->first});
    if (ended.transfer) transfers.push_back(std::move(ended.transfer));
    bytes_ -= ended.bytes;
    const auto next = requests_.erase(request);
    pushAnswer(ended.extra, outcome, body);
    return next;
}

void Mailbox::wake() {
    const bool pollerSleeps = pipe_.isOpen() && !pipe_.isNotified();
    if (waking_ || (waiting_ == 0 && !pollerSleeps)) return;
    if (!MainQueue::shared().isMainThread()) return wakeNow();
    waking_ = true;
    MainQueue::shared().async([weak = weak_from_this()] {
        const auto self = weak.lock();
        if (!self) return;
        const MutexLock lock(self->mutex_);
        self->waking_ = false;
        if (!self->items_.empty()) self->wakeNow();
    });
}

void Mailbox::wakeNow() {
    if (waiting_ > 0) changed_.notifyOne();
    if (!pipe_.isNotified()) pipe_.notify();
}

}  // namespace vexim::c
