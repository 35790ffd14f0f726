#include "Roster.h"

#include <algorithm>
#include <tuple>

namespace chat {

Roster::Roster() {
    all_.push_back(std::make_unique<Conversation>(Address{}));
    current_ = all_.front().get();
    current_->title = "vexim";
}

std::size_t Roster::currentIndex() const {
    const auto found = std::find_if(all_.begin(), all_.end(),
                                    [this](const auto& one) { return one.get() == current_; });
    return static_cast<std::size_t>(found - all_.begin());
}

Conversation* Roster::find(const Address& address) {
    const auto found = std::find_if(all_.begin(), all_.end(),
                                    [&](const auto& one) { return one->address == address; });
    return found == all_.end() ? nullptr : found->get();
}

Conversation& Roster::open(const Address& address) {
    if (auto* known = find(address)) return *known;
    closed_.erase(address);
    all_.push_back(std::make_unique<Conversation>(address));
    auto& made = *all_.back();
    sort();
    return made;
}

void Roster::close(const Address& address) {
    if (address.kind == Kind::Console) return;
    const auto found = std::find_if(all_.begin(), all_.end(),
                                    [&](const auto& one) { return one->address == address; });
    if (found == all_.end()) return;
    const bool wasCurrent = found->get() == current_;
    const auto next = all_.erase(found);
    closed_.insert(address);
    if (wasCurrent) select(**std::prev(next));
}

void Roster::rename(Conversation& conversation, std::string title) {
    if (title.empty() || conversation.title == title) return;
    conversation.title = std::move(title);
    sort();
}

void Roster::sort() {
    std::sort(all_.begin(), all_.end(), [](const auto& one, const auto& other) {
        return std::tie(one->address.kind, one->title, one->address.id) <
               std::tie(other->address.kind, other->title, other->address.id);
    });
}

void Roster::select(Conversation& conversation) {
    current_ = &conversation;
    if (!conversation.anchor) conversation.unread = 0;
}

bool Roster::selectAt(std::size_t index) {
    if (index >= all_.size()) return false;
    select(*all_[index]);
    return true;
}

void Roster::selectBy(int step) {
    const auto count = static_cast<int>(all_.size());
    select(*all_[static_cast<std::size_t>(
        ((static_cast<int>(currentIndex()) + step) % count + count) % count)]);
}

bool Roster::selectUnread() {
    const auto current = currentIndex();
    for (std::size_t step = 1; step < all_.size(); ++step) {
        const auto index = (current + step) % all_.size();
        if (all_[index]->unread > 0) return selectAt(index);
    }
    return false;
}

void Roster::numberFiles(Conversation& conversation) {
    conversation.eachEntry([this](Entry& entry) {
        const bool isThere =
            entry.delivery == Delivery::Received || entry.delivery == Delivery::Delivered;
        if (entry.file && entry.file->number == 0 && isThere && !entry.text.empty())
            entry.file->number = ++lastFile_;
    });
}

void Roster::notice(std::string text, double time, bool isAlert) {
    Entry entry;
    entry.isAlert = isAlert;
    entry.time = time;
    entry.text = std::move(text);
    current_->notice(std::move(entry));
}

void Roster::follow() {
    current_->anchor.reset();
    current_->unread = 0;
}

double Roster::oldestHanded() const {
    double oldest = 0;
    for (const auto& conversation : all_) {
        for (const auto& entry : conversation->entries()) {
            const bool waits =
                entry.delivery == Delivery::Handed || entry.delivery == Delivery::Unconfirmed;
            if (waits && (oldest == 0 || entry.time < oldest)) oldest = entry.time;
        }
    }
    return oldest;
}

}  // namespace chat
