#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "VexIMLib/Foundation/Export.h"

namespace vexim {

class Object;
class Value;
struct Notification;

namespace detail {

class EmbeddedObservers;

/// A registration with the default notification centre, stored inside its observer. Use it in
/// objects of which there may be very many: it allocates no memory, and adding and removing it
/// costs almost nothing. It receives the notifications that contain its value, in order with the
/// centre's other observers.
///
/// It is for the library's own objects, such as the friends in a long list; applications use
/// `NotificationCenter::addObserver`. A friend's info, for example, listens for the notifications
/// about one id:
///
///     static const EmbeddedObserver::Kind kind{
///         {VXIMFriendOnlineNotification, VXIMFriendOfflineNotification}, "id", &didChange};
///     observer_.join(kind, *this, id_);
///
/// The centre chains observers by the value that they wait for, so an event finds the right ones
/// without asking the others. Join it while the object is made. The destructor may run on any
/// thread. It waits for the centre's lock, but never for a running handler, because that keeps the
/// object alive.
class VEXIM_EXPORT EmbeddedObserver {
public:
    /// What the observers of one class receive. Constant, and never destroyed.
    struct Kind {
        /// The names of the notifications.
        std::array<std::string_view, 2> names;
        /// The key of the value in their user information. A notification without it reaches no
        /// embedded observer.
        std::string_view key;
        /// Called on the posting thread, with no lock held. `observer` is the object that contains
        /// the registration, which stays alive meanwhile.
        void (*hear)(Object& observer, const Notification& notification);
    };

    EmbeddedObserver() noexcept = default;
    EmbeddedObserver(const EmbeddedObserver&) = delete;
    EmbeddedObserver& operator=(const EmbeddedObserver&) = delete;
    /// Make it its object's last member, so that it unregisters before anything else is destroyed.
    ~EmbeddedObserver() {
        if (kind_ != nullptr) leave();
    }

    /// Registers it, after all other observers. `object` contains this observer, and `value` must
    /// not change. A value that is neither a string nor a number never matches.
    void join(const Kind& kind, Object& object, const Value& value);

private:
    friend class EmbeddedObservers;
    /// An entry in a bucket's chain.
    struct Link {
        EmbeddedObserver* next = nullptr;
        EmbeddedObserver** at = nullptr;  // what points here
    };
    /// Unregisters it.
    void leave() noexcept;

    // Constant while it is registered.
    const Kind* kind_ = nullptr;
    Object* object_ = nullptr;
    const Value* value_ = nullptr;
    std::size_t hash_ = 0;      // of the value
    std::uint64_t number_ = 0;  // in the order of registration
    // Used by the centre, under its lock.
    Link byValue_;
    Link byAddress_;
    std::atomic<std::uint8_t> silenced_{0};  // a bit for each of the names that were removed
};

}  // namespace detail
}  // namespace vexim
