#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "VexIMLib/Foundation/Dictionary.h"
#include "VexIMLib/Foundation/Export.h"
#include "VexIMLib/Foundation/Object.h"
#include "VexIMLib/Foundation/Value.h"

namespace vexim {

namespace detail {
class EmbeddedObserver;
}

/// What an observer receives. VXIMConstants.h lists the names that the library posts, with what
/// their `object` and `userInfo` hold; applications may post names of their own.
struct Notification {
    /// Observers register for a name, see VXIMConstants.h.
    std::string name;
    /// The sender, or nullptr.
    std::shared_ptr<Object> object;
    /// See the documentation of the name.
    std::optional<Dictionary> userInfo;
};

/// Publish and subscribe by name. Call from any thread. `post` calls the handlers in the order of
/// registration, on the posting thread, with no lock held. An observer that is added during a post
/// is not called by it; one that is removed is not called any more.
///
///     auto observer = std::make_shared<int>();  // anything shared; keep it as long as you observe
///     vexim::NotificationCenter::defaultCenter().addObserver(
///         observer, VXIMFriendOnlineNotification, nullptr,
///         [](const vexim::Notification& notification) { … });
///
/// The library posts on the main queue, so its handlers run there. To stop, remove the observer or
/// destroy it: handlers of a destroyed observer are no longer called.
class VEXIM_EXPORT NotificationCenter {
public:
    /// Runs on the posting thread.
    using Handler = std::function<void(const Notification& notification)>;

    /// The centre of the process. The library posts to this one.
    static NotificationCenter& defaultCenter();
    /// A separate centre; the library never posts to it. Destroy it only when no thread is posting.
    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// Registers `handler`; an empty one is never called. `observer` identifies the registration
    /// and is held weakly. An empty `name` matches every name, a nullptr `sender` every sender. The
    /// sender is compared by address and not kept alive.
    void addObserver(const std::shared_ptr<void>& observer, std::string name, const Object* sender,
                     Handler handler);

    // Remove all registrations of the observer, or those for one name. An unknown observer or name
    // changes nothing. You may call them in the observer's destructor, and from a handler. A
    // handler that runs on another thread meanwhile is not waited for.
    void removeObserver(const void* observer);
    void removeObserver(const void* observer, std::string_view name);

    // Call all matching handlers before they return. Exceptions from handlers pass through, and the
    // handlers after that one are not called.
    void post(const Notification& notification);
    void post(std::string name, std::shared_ptr<Object> object,
              std::optional<Dictionary> userInfo = std::nullopt);

private:
    friend class detail::EmbeddedObserver;
    // for observers that contain their own registration
    void add(detail::EmbeddedObserver& observer);
    void remove(detail::EmbeddedObserver& observer) noexcept;

    struct Impl;
    // the table of observers, with its lock
    std::unique_ptr<Impl> impl_;
};

}  // namespace vexim
