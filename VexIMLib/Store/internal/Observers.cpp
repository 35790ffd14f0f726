#include "VexIMLib/Store/internal/Observers.h"

#include <algorithm>
#include <unordered_map>
#include <utility>
#include <variant>

#include "VexIMLib/Foundation/MainQueue.h"
#include "VexIMLib/Store/internal/Reading.h"

namespace vexim::store {
namespace {

/// Marks a longest increasing subsequence of `numbers`, ignoring negative ones (patience sorting).
std::vector<bool> longestRising(const std::vector<std::int64_t>& numbers) {
    std::vector<std::size_t> tops;
    std::vector<std::ptrdiff_t> before(numbers.size(), -1);
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        if (numbers[i] < 0) continue;
        const auto pile = std::ranges::lower_bound(
            tops, numbers[i], {}, [&numbers](std::size_t top) { return numbers[top]; });
        if (pile != tops.begin()) before[i] = static_cast<std::ptrdiff_t>(*std::prev(pile));
        if (pile == tops.end()) {
            tops.push_back(i);
        } else {
            *pile = i;
        }
    }
    std::vector<bool> marked(numbers.size());
    for (auto i = tops.empty() ? -1 : static_cast<std::ptrdiff_t>(tops.back()); i >= 0;
         i = before[static_cast<std::size_t>(i)]) {
        marked[static_cast<std::size_t>(i)] = true;
    }
    return marked;
}

/// Calls the listener on the main queue, if it still exists then.
template <class Observer, class What>
void post(const std::weak_ptr<Listener>& listener, What what) {
    MainQueue::shared().async([listener, what = std::move(what)] {
        const auto heard = listener.lock();
        if (heard && std::get<Observer>(heard->observer)) std::get<Observer>(heard->observer)(what);
    });
}

template <class T>
VXIMListChange<T> changeOf(std::vector<T> list, Difference difference) {
    return {std::move(list), std::move(difference.removed), std::move(difference.inserted),
            std::move(difference.changed)};
}

}  // namespace

Difference differenceOf(const std::vector<std::int64_t>& before,
                        const std::vector<std::int64_t>& now,
                        const std::set<std::int64_t>& touched) {
    std::unordered_map<std::int64_t, std::size_t> places;
    for (std::size_t i = 0; i < before.size(); ++i) places[before[i]] = i;
    std::vector<std::int64_t> formerPlaces;
    for (const std::int64_t each : now) {
        const auto place = places.find(each);
        formerPlaces.push_back(place == places.end() ? -1
                                                     : static_cast<std::int64_t>(place->second));
    }
    const std::vector<bool> stays = longestRising(formerPlaces);
    Difference difference;
    std::vector<bool> isKept(before.size());
    for (std::size_t i = 0; i < now.size(); ++i) {
        if (!stays[i]) {
            difference.inserted.push_back(i);
            continue;
        }
        isKept[static_cast<std::size_t>(formerPlaces[i])] = true;
        if (touched.contains(now[i])) difference.changed.push_back(i);
    }
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (!isKept[i]) difference.removed.push_back(i);
    }
    return difference;
}

void Observers::add(List list) { lists_.push_back(std::move(list)); }

void Observers::refresh(Tables& tables, const Touched& touched, bool all) {
    std::erase_if(lists_, [](const List& each) { return each.listener.expired(); });
    for (List& list : lists_) refresh(tables, touched, all, list);
}

void Observers::refresh(Tables& tables, const Touched& touched, bool all, List& list) {
    const std::int32_t limit = std::max(list.limit->load(), 0);
    const bool must =
        all || std::exchange(list.isNew, false) || std::exchange(list.toldLimit, limit) != limit;
    const bool isFirst = list.shown.empty() && must;
    list.toldLimit = limit;
    const auto show = [&list](std::vector<std::int64_t> rows,
                              const std::set<std::int64_t>& changed) {
        Difference difference = differenceOf(list.shown, rows, changed);
        list.shown = std::move(rows);
        return difference;
    };
    if (list.kind == Kind::Conversations) {
        if (!must && !touched.list && touched.conversations.empty()) return;
        std::vector<Tables::Conversation*> newest = tables.all();
        if (newest.size() > static_cast<std::size_t>(limit))
            newest.resize(static_cast<std::size_t>(limit));
        std::vector<std::int64_t> rows;
        rows.reserve(newest.size());
        for (const Tables::Conversation* const each : newest) rows.push_back(each->row);
        Difference difference = show(std::move(rows), touched.conversations);
        if (difference.isEmpty() && !isFirst) return;
        std::vector<VXIMConversation> conversations;
        conversations.reserve(newest.size());
        for (const Tables::Conversation* const each : newest)
            conversations.push_back(tables.conversation(*each));
        post<VXIMConversationsObserver>(list.listener,
                                        changeOf(std::move(conversations), std::move(difference)));
    } else if (list.kind == Kind::Messages) {
        const Tables::Conversation* const conversation = tables.find(list.conversation);
        if (!must && !touched.list &&
            !(conversation && touched.conversations.contains(conversation->row)))
            return;
        std::vector<VXIMStoredMessage> messages =
            messagesBefore(tables, list.conversation, std::nullopt, limit);
        std::vector<std::int64_t> ids;
        ids.reserve(messages.size());
        for (const VXIMStoredMessage& each : messages) ids.push_back(each.localId);
        Difference difference = show(std::move(ids), touched.messages);
        if (difference.isEmpty() && !isFirst) return;
        post<VXIMMessagesObserver>(list.listener,
                                   changeOf(std::move(messages), std::move(difference)));
    }
}

void Observers::tell(const VXIMStoreDamage& damage) {
    for (const List& list : lists_) {
        if (list.kind == Kind::Damage) post<VXIMStoreDamageObserver>(list.listener, damage);
    }
}

}  // namespace vexim::store
