#include "Conversation.h"

#include <algorithm>
#include <cmath>

namespace chat {
namespace {

constexpr int kPage = 50;
constexpr double kMillisecond = 0.001;
constexpr double kNever = 1e12;
constexpr double kClocksDiffer = 86'400;  // a sender's clock may be ahead of ours

std::int64_t millis(double seconds) { return std::llround(seconds * 1000); }

bool isWaiting(Delivery delivery) { return delivery == Delivery::Handed || delivery == Delivery::Unconfirmed; }

}  // namespace

bool isSameMessage(const Entry& one, const Entry& other) {
    return !one.isNotice && !other.isNotice && millis(one.time) == millis(other.time) && one.sender == other.sender &&
           one.text == other.text;
}

Conversation::Conversation(Address itsAddress) : address(std::move(itsAddress)), title(address.id) {
    if (!hasHistory()) older = Older::Nothing;
}

std::optional<std::size_t> Conversation::indexOf(std::uint64_t id) const {
    // Nearly always looked for near the end, and ids do not rise where history was put in front.
    for (std::size_t at = entries_.size(); at-- > 0;) {
        if (entries_[at].id == id) return at;
    }
    return std::nullopt;
}

Entry* Conversation::find(std::uint64_t id) {
    const auto at = indexOf(id);
    return at ? &entries_[*at] : nullptr;
}

Entry* Conversation::findFile(int number) {
    const auto found = std::find_if(entries_.rbegin(), entries_.rend(), [&](const Entry& entry) {
        return entry.file && entry.file->number > 0 && (number == 0 || entry.file->number == number);
    });
    return found == entries_.rend() ? nullptr : &*found;
}

std::uint64_t Conversation::append(Entry entry) {
    entry.id = ++lastId_;
    entries_.push_back(std::move(entry));
    if (entries_.size() > kMost) {
        if (anchor && anchor->entry == entries_.front().id) anchor.reset();
        entries_.pop_front();
        if (hasHistory()) older = Older::There;
    }
    return lastId_;
}

void Conversation::remove(std::uint64_t id) {
    if (const auto at = indexOf(id)) entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(*at));
}

bool Conversation::confirm(const Entry& echo) {
    for (auto& entry : entries_) {
        if (!isWaiting(entry.delivery) || !isSameMessage(entry, echo)) continue;
        entry.delivery = Delivery::Delivered;
        return true;
    }
    return false;
}

bool Conversation::doubt(double now) {
    bool found = false;
    for (auto& entry : entries_) {
        if (entry.delivery != Delivery::Handed || entry.handed > now - kPatience) continue;
        entry.delivery = Delivery::Unconfirmed;
        found = true;
    }
    return found;
}

std::ptrdiff_t Conversation::failedCount() const {
    return std::count_if(entries_.begin(), entries_.end(), [](const Entry& entry) { return entry.delivery == Delivery::Failed; });
}

void Conversation::giveUp(double handedBefore, const std::string& reason) {
    for (auto& entry : entries_) {
        if (!isWaiting(entry.delivery) || entry.handed > handedBefore) continue;
        entry.delivery = Delivery::Failed;
        entry.failure = reason;
    }
}

double Conversation::newestTime() const {
    double newest = 0;
    for (const auto& entry : entries_) {
        if (!entry.isNotice) newest = std::max(newest, entry.time);
    }
    return newest;
}

Conversation::Request Conversation::newestPage(double now) { return {now + kClocksDiffer, kPage, now - kPatience, now}; }

Conversation::Request Conversation::olderPage() const {
    const auto isKept = [](const Entry& entry) {
        return !entry.isNotice && (entry.delivery == Delivery::Received || entry.delivery == Delivery::Delivered);
    };
    const auto first = std::find_if(entries_.begin(), entries_.end(), isKept);
    if (first == entries_.end()) return {0, kPage, 0, kNever};
    const auto sameTime = std::count_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
        return isKept(entry) && millis(entry.time) == millis(first->time);
    });
    return {first->time + kMillisecond, kPage + static_cast<int>(sameTime), 0, kNever};
}

int Conversation::merge(const Request& request, const std::vector<Entry>& page) {
    int news = 0;
    for (const auto& message : page) {  // the newest first
        const auto known =
            std::find_if(entries_.begin(), entries_.end(), [&](const Entry& e) { return isSameMessage(e, message); });
        if (known != entries_.end()) {
            if (isWaiting(known->delivery) || known->delivery == Delivery::Failed) known->delivery = Delivery::Delivered;
            continue;
        }
        if (message.time > request.newsAfter && !message.isOwn) ++news;
        auto place = entries_.end();
        while (place != entries_.begin() && std::prev(place)->time > message.time) --place;
        // A page comes backwards: of two at the same time, the one that comes later in it was written before.
        while (place != entries_.begin() && !std::prev(place)->isNotice && millis(std::prev(place)->time) == millis(message.time)) {
            --place;
        }
        Entry added = message;
        added.id = ++lastId_;
        entries_.insert(place, std::move(added));
    }
    return news;
}

int Conversation::takeOlder(const Request& request, std::vector<Entry> page) {
    older = static_cast<int>(page.size()) < request.limit ? Older::Nothing : Older::There;
    return merge(request, page);
}

int Conversation::takeNewest(const Request& request, std::vector<Entry> page) {
    const bool isWhole = static_cast<int>(page.size()) < request.limit;
    const bool overlaps =
        isWhole || std::any_of(page.begin(), page.end(), [&](const Entry& message) {
            return std::any_of(entries_.begin(), entries_.end(), [&](const Entry& entry) { return isSameMessage(entry, message); });
        });
    const double newest = newestTime();
    const int news = merge(request, page);
    if (!overlaps && newest > 0) {  // between what was known and the page, messages are missing
        const double oldest = page.back().time;
        std::erase_if(entries_, [&](const Entry& entry) {
            return !entry.isNotice && entry.time < oldest && entry.delivery != Delivery::Failed && !isWaiting(entry.delivery);
        });
        anchor.reset();
        older = Older::There;
    }
    if (older == Older::Unknown || older == Older::Loading || isWhole) older = isWhole ? Older::Nothing : Older::There;
    for (auto& entry : entries_) {
        const bool wouldBeThere = entry.handed <= request.judges && (isWhole || entry.time >= page.back().time);
        if (!isWaiting(entry.delivery) || !wouldBeThere) continue;
        entry.delivery = Delivery::Failed;
        entry.failure = "the service did not take it";
    }
    return news;
}

}  // namespace chat
