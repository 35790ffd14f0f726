#include "VexIMLib/internal/Foundation/Objects/EmbeddedObservers.h"

#include <algorithm>
#include <functional>

#include "VexIMLib/Foundation/NotificationCenter.h"
#include "VexIMLib/internal/Foundation/Values/Blocks.h"

namespace vexim::detail {

namespace {

bool canMatch(const Value& value) noexcept { return value.isString() || value.isNumber(); }

/// Mixes the bits, because some numbers differ only in their upper bits.
std::size_t mix(std::uint64_t number) noexcept {
    return static_cast<std::size_t>((number * 0x9E3779B97F4A7C15) >> 32);
}

std::size_t hashOf(const Value& value) noexcept {
    if (const auto text = value.asStringView()) return hashOfKey(*text);
    if (value.kind() == Value::Kind::Integer)
        return mix(static_cast<std::uint64_t>(value.integer()));
    return mix(std::hash<double>()(value.doubleValue()));
}

std::size_t hashOfAddress(const void* address) noexcept {
    return mix(reinterpret_cast<std::uintptr_t>(address));
}

/// The bits for `name` among the kind's names; all bits if it is empty.
std::uint8_t bitsOf(const EmbeddedObserver::Kind& kind, std::string_view name) noexcept {
    std::uint8_t bits = 0;
    for (std::size_t i = 0; i < kind.names.size(); ++i) {
        if (name.empty() || kind.names[i] == name)
            bits = static_cast<std::uint8_t>(bits | (1U << i));
    }
    return bits;
}

}  // namespace

std::size_t EmbeddedObservers::addressHash(const EmbeddedObserver& observer) noexcept {
    return hashOfAddress(observer.object_);
}

void EmbeddedObserver::join(const Kind& kind, Object& object, const Value& value) {
    if (kind_ != nullptr) leave();
    if (!canMatch(value)) return;
    object_ = &object;
    value_ = &value;
    silenced_ = 0;
    kind_ = &kind;
    try {
        NotificationCenter::defaultCenter().add(*this);
    } catch (...) {
        kind_ = nullptr;
        throw;
    }
}

void EmbeddedObserver::leave() noexcept {
    NotificationCenter::defaultCenter().remove(*this);
    kind_ = nullptr;
}

void EmbeddedObservers::Listener::notify(const Notification& notification) const {
    const auto held = object.lock();
    if (held && (observer->silenced_ & name) == 0) observer->kind_->hear(*held, notification);
}

void EmbeddedObservers::add(EmbeddedObserver& observer, std::uint64_t number) {
    if (std::ranges::find(kinds_, observer.kind_) == kinds_.end()) kinds_.push_back(observer.kind_);
    if (newCount_ == kMostNew) moveNewToBuckets();
    byValue_.makeRoom(newCount_ + 1);
    byAddress_.makeRoom(newCount_ + 1);
    observer.number_ = number;
    push<&EmbeddedObserver::byValue_>(newest_, observer);
    ++newCount_;
}

void EmbeddedObservers::moveNewToBuckets() noexcept {
    while (newest_ != nullptr) {
        EmbeddedObserver& observer = *newest_;
        take<&EmbeddedObserver::byValue_>(observer);
        observer.hash_ = hashOf(*observer.value_);
        byValue_.add(observer);
        byAddress_.add(observer);
    }
    newCount_ = 0;
}

void EmbeddedObservers::remove(EmbeddedObserver& observer) noexcept {
    if (observer.byAddress_.at == nullptr) {
        take<&EmbeddedObserver::byValue_>(observer);
        --newCount_;
        return;
    }
    byValue_.remove(observer);
    byAddress_.remove(observer);
}

void EmbeddedObservers::unsubscribe(const void* identity, std::string_view name) noexcept {
    moveNewToBuckets();
    for (auto* each = byAddress_.chain(hashOfAddress(identity)); each != nullptr;
         each = each->byAddress_.next) {
        if (each->object_ == identity) each->silenced_ |= bitsOf(*each->kind_, name);
    }
}

std::vector<EmbeddedObservers::Listener> EmbeddedObservers::listeners(
    const Notification& notification) {
    std::vector<Listener> found;
    if (!notification.userInfo) return found;
    for (const auto* kind : kinds_) {
        if (std::ranges::find(kind->names, notification.name) == kind->names.end()) continue;
        const Value& value = notification.userInfo->get(kind->key);
        if (!canMatch(value)) continue;
        moveNewToBuckets();
        const std::uint8_t name = bitsOf(*kind, notification.name);
        const std::size_t hash = hashOf(value);
        for (auto* each = byValue_.chain(hash); each != nullptr; each = each->byValue_.next) {
            if (each->hash_ != hash || each->kind_ != kind || (each->silenced_ & name) != 0 ||
                !(*each->value_ == value))
                continue;
            // The object may be waiting for the lock in its destructor. Then it cannot be kept
            // alive.
            found.push_back({each->number_, each->object_->weak_from_this(), each, name});
        }
    }
    std::ranges::sort(found, {}, &Listener::number);
    return found;
}

}  // namespace vexim::detail
