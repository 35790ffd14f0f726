#include "VexIMLib/internal/SocketIO/Client/EventHandlers.h"

#include <algorithm>
#include <atomic>
#include <utility>

namespace vexim {

struct EventHandlers::Registration {
    Registration(SocketIOClient::HandlerId number, SocketIOClient::Handler function)
        : id(number),
          handler(std::move(function)) {}
    const SocketIOClient::HandlerId id;
    const SocketIOClient::Handler handler;
    std::atomic<bool> removed{false};
};

SocketIOClient::HandlerId EventHandlers::add(std::string_view event,
                                             SocketIOClient::Handler handler) {
    std::shared_ptr<const List> replaced;  // destroyed without the lock
    const MutexLock lock(mutex_);
    auto found = lists_.find(event);
    if (found == lists_.end()) found = lists_.emplace(event, nullptr).first;
    auto list = found->second ? std::make_shared<List>(*found->second) : std::make_shared<List>();
    list->push_back(std::make_shared<Registration>(++lastId_, std::move(handler)));
    replaced = std::exchange(found->second, std::move(list));
    return lastId_;
}

void EventHandlers::remove(std::string_view event) {
    std::shared_ptr<const List> removed;
    const MutexLock lock(mutex_);
    const auto found = lists_.find(event);
    if (found == lists_.end()) return;
    removed = std::move(found->second);
    lists_.erase(found);
    for (const auto& registration : *removed) registration->removed = true;
}

void EventHandlers::remove(SocketIOClient::HandlerId id) {
    std::shared_ptr<const List> replaced;
    const MutexLock lock(mutex_);
    for (auto& [event, list] : lists_) {
        const auto found =
            std::ranges::find(*list, id, [](const auto& registration) { return registration->id; });
        if (found == list->end()) continue;
        (*found)->removed = true;
        auto rest = std::make_shared<List>();
        std::ranges::copy_if(*list, std::back_inserter(*rest),
                             [id](const auto& registration) { return registration->id != id; });
        replaced = std::exchange(list, std::move(rest));
        return;
    }
}

void EventHandlers::removeAll() {
    Lists removed;
    const MutexLock lock(mutex_);
    removed.swap(lists_);
    for (const auto& [event, list] : removed) {
        for (const auto& registration : *list) registration->removed = true;
    }
}

void EventHandlers::call(std::string_view event, const Array& arguments,
                         const AckEmitter& ack) const {
    std::shared_ptr<const List> list;
    {
        const MutexLock lock(mutex_);
        const auto found = lists_.find(event);
        if (found == lists_.end()) return;
        list = found->second;
    }
    for (const auto& registration : *list) {
        if (!registration->removed && registration->handler) registration->handler(arguments, ack);
    }
}

}  // namespace vexim
