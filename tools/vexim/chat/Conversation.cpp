#include "Conversation.h"

#include <algorithm>
#include <iterator>
#include <map>

namespace chat {
namespace {

// Ids with this bit belong to notices, not to messages of the store.
constexpr std::uint64_t kNotice = std::uint64_t{1} << 63;
constexpr std::uint64_t kGap = kNotice | (std::uint64_t{1} << 62);

constexpr std::size_t kMostNotices = 1'000;

}  // namespace

Conversation::Conversation(Address itsAddress)
    : address(std::move(itsAddress)),
      title(address.id) {}

std::optional<std::size_t> Conversation::indexOf(std::uint64_t id) const {
    for (std::size_t at = entries_.size(); at-- > 0;) {  // it is nearly always near the end
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
        return entry.file && entry.file->number > 0 &&
               (number == 0 || entry.file->number == number);
    });
    return found == entries_.rend() ? nullptr : &*found;
}

void Conversation::show(std::vector<Entry> messages) {
    std::map<std::uint64_t, File> files;
    for (const auto& entry : entries_) {
        if (entry.file) files.emplace(entry.id, *entry.file);
    }
    for (auto& message : messages) {
        const auto known = files.find(message.id);
        if (!message.file || known == files.end()) continue;
        message.file->number = known->second.number;
        if (!known->second.path.empty()) message.file->path = known->second.path;
        const bool isTransferred =
            message.delivery == Delivery::Waiting || message.delivery == Delivery::Sending;
        if (!message.isOwn || isTransferred) {
            message.file->percent = known->second.percent;
            message.file->pace = known->second.pace;
        }
    }
    arrange({std::make_move_iterator(messages.begin()), std::make_move_iterator(messages.end())});
}

void Conversation::showGaps(std::vector<Entry> notices) {
    gaps_ = std::move(notices);
    for (std::size_t i = 0; i < gaps_.size(); ++i) gaps_[i].id = kGap | i;
    std::deque<Entry> messages;
    std::copy_if(entries_.begin(), entries_.end(), std::back_inserter(messages),
                 [](const Entry& entry) { return !entry.isNotice; });
    arrange(std::move(messages));
}

void Conversation::notice(Entry notice) {
    notice.isNotice = true;
    notice.id = kNotice | ++lastNotice_;
    if (notices_.size() >= kMostNotices) notices_.erase(notices_.begin());
    notices_.push_back(notice);
    // It stands last even if other people's clocks are ahead. The next message moves it to its
    // place.
    entries_.push_back(std::move(notice));
}

void Conversation::arrange(std::deque<Entry> messages) {
    std::vector<Entry> notices = gaps_;
    notices.insert(notices.end(), notices_.begin(), notices_.end());
    std::ranges::stable_sort(notices, {}, &Entry::time);
    entries_.clear();
    auto notice = notices.begin();
    for (auto& message : messages) {
        for (; notice != notices.end() && notice->time < message.time; ++notice)
            entries_.push_back(*notice);
        entries_.push_back(std::move(message));
    }
    entries_.insert(entries_.end(), notice, notices.end());
}

void Conversation::doubt(double now) {
    for (auto& entry : entries_) {
        if (entry.delivery == Delivery::Handed && entry.time <= now - kPatience)
            entry.delivery = Delivery::Unconfirmed;
    }
}

}  // namespace chat
