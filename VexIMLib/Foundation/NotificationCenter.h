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

/// What an observer hears.
struct Notification {
    std::string name;                    // what observers choose by
    std::shared_ptr<Object> object;      // the sender, or nullptr
    std::optional<Dictionary> userInfo;  // as each name's documentation tells
};

/// Publish and subscribe by name. Callable from any thread; posting calls the handlers in
/// registration order, on the posting thread, with no lock held. While one post runs, what is added
/// is not called and what is removed is not called any more.
class VEXIM_EXPORT NotificationCenter {
public:
    /// Runs on the posting thread.
    using Handler = std::function<void(const Notification& notification)>;

    /// The process-wide centre, to which the library posts.
    static NotificationCenter& defaultCenter();
    /// A centre of its own; the library posts to the default one only.
    NotificationCenter();
    ~NotificationCenter();
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// `observer` is held weakly and is the registration's identity. An empty `name` hears every
    /// name; a nullptr `sender` hears any sender (a sender's address is compared, nothing is held).
    void addObserver(const std::shared_ptr<void>& observer, std::string name, const Object* sender,
                     Handler handler);

    /// Removes all of the observer's registrations. Safe in the observer's own destructor.
    void removeObserver(const void* observer);
    void removeObserver(const void* observer, std::string_view name);

    /// Calls the handlers before it returns.
    void post(const Notification& notification);
    void post(std::string name, std::shared_ptr<Object> object,
              std::optional<Dictionary> userInfo = std::nullopt);

private:
    friend class detail::EmbeddedObserver;
    void add(detail::EmbeddedObserver& observer);
    void remove(detail::EmbeddedObserver& observer) noexcept;

    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace vexim
