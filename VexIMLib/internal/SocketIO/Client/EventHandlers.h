#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "VexIMLib/Foundation/Array.h"
#include "VexIMLib/SocketIOClient.h"
#include "VexIMLib/internal/Foundation/Threads/ThreadSafety.h"

namespace vexim {

/// Handlers by event, in the order of registration. Any thread; no lock is held while a handler
/// runs or is destroyed.
class EventHandlers {
public:
    SocketIOClient::HandlerId add(std::string_view event, SocketIOClient::Handler handler);
    void remove(std::string_view event);
    void remove(SocketIOClient::HandlerId id);
    void removeAll();

    /// Calls the handlers that are registered for `event` now, except those removed meanwhile.
    void call(std::string_view event, const Array& arguments, const AckEmitter& ack) const;

private:
    struct Registration;
    using List = std::vector<std::shared_ptr<Registration>>;
    struct Hash : std::hash<std::string_view> {
        using is_transparent = void;  // finds by a view, too
    };
    // Lists are never changed, only replaced.
    using Lists =
        std::unordered_map<std::string, std::shared_ptr<const List>, Hash, std::equal_to<>>;

    mutable Mutex mutex_;
    SocketIOClient::HandlerId lastId_ VEXIM_GUARDED_BY(mutex_) = 0;
    Lists lists_ VEXIM_GUARDED_BY(mutex_);
};

}  // namespace vexim
