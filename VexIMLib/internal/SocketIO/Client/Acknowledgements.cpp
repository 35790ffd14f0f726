#include "VexIMLib/internal/SocketIO/Client/Acknowledgements.h"

#include <algorithm>

namespace vexim {
namespace {

// Practically forever, without overflow.
constexpr std::chrono::milliseconds kLongestPatience = std::chrono::hours(24 * 365 * 10);

}  // namespace

void Acknowledgements::add(Callback callback, std::chrono::milliseconds timeout, TimePoint now) {
    const std::uint64_t id = nextId_++;
    Pending pending{std::move(callback), std::nullopt};
    if (timeout.count() > 0) {
        pending.deadline = now - pausedFor(now) + std::min(timeout, kLongestPatience);
        deadlines_.emplace(*pending.deadline, id);
    }
    pending_.emplace(id, std::move(pending));
}

std::optional<Acknowledgements::Callback> Acknowledgements::take(std::uint64_t id) {
    const auto found = pending_.find(id);
    if (found == pending_.end()) return std::nullopt;
    if (found->second.deadline) deadlines_.erase({*found->second.deadline, id});
    Callback callback = std::move(found->second.callback);
    pending_.erase(found);
    return callback;
}

std::vector<Acknowledgements::Callback> Acknowledgements::takeExpired(TimePoint now) {
    std::vector<Callback> expired;
    for (auto due = deadline(); due && *due <= now; due = deadline())
        expired.push_back(*take(deadlines_.begin()->second));
    return expired;
}

std::vector<Acknowledgements::Callback> Acknowledgements::takeAll() {
    std::vector<std::uint64_t> ids;
    ids.reserve(pending_.size());
    for (const auto& [id, pending] : pending_) ids.push_back(id);
    std::ranges::sort(ids);
    std::vector<Callback> all;
    all.reserve(ids.size());
    for (const auto id : ids) all.push_back(*take(id));
    return all;
}

std::optional<Acknowledgements::TimePoint> Acknowledgements::deadline() const {
    if (deadlines_.empty() || pausedSince_) return std::nullopt;
    return deadlines_.begin()->first + pausedBefore_;
}

void Acknowledgements::pause(TimePoint now) {
    if (!pausedSince_) pausedSince_ = now;
}

void Acknowledgements::resume(TimePoint now) {
    pausedBefore_ = pausedFor(now);
    pausedSince_.reset();
}

Acknowledgements::TimePoint::duration Acknowledgements::pausedFor(TimePoint now) const {
    return pausedBefore_ + (pausedSince_ ? now - *pausedSince_ : TimePoint::duration::zero());
}

}  // namespace vexim
